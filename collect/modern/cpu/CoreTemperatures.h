#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

/// Where a core is; its number is one within its package.
using CorePlace = std::pair<std::uint32_t, std::uint32_t>;

/// The temperatures of cores, which the chips "coretemp" of /sys/class/hwmon tell. Other
/// processors' chips tell none of single cores.
class CoreTemperatures {
 public:
  /// Reads them; none on a host without such a chip.
  void Read();
  [[nodiscard]] bool IsEmpty() const { return m_degrees.empty(); }
  /// Degrees Celsius; kNotTold for a core without any, and for one of which two chips tell, as of
  /// packages with more than one die.
  [[nodiscard]] double Of(const CorePlace& core) const;

 private:
  std::map<CorePlace, double> m_degrees;
};
