#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "support/NotTold.h"

/// What a processor's block of /proc/cpuinfo tells of its type.
struct CpuinfoBlock {
  static constexpr std::size_t kTypeLength = 127;

  std::optional<std::uint32_t> processor;
  /// A name's place in the order of what tells most; beyond the last for none.
  std::size_t rank = SIZE_MAX;
  std::array<char, kTypeLength + 1> type{};  ///< a name, cut
  std::optional<std::uint32_t> implementer;
  std::optional<std::uint32_t> part;
};

/// Whether the line begins the block of another processor: "processor\t: 3".
[[nodiscard]] bool IsProcessorLine(std::string_view line);
/// Takes a line into the block. A key counts only if it is the whole of what stands before the
/// first colon; unknown ones are passed over.
void TakeCpuinfoLine(std::string_view line, CpuinfoBlock& block);
/// Ends a block: the type of a processor that has no name but an implementer and a part becomes
/// "ARM Neoverse-N1", or "0x41 part 0xfff" where the part is not known.
void NameByPart(CpuinfoBlock& block);

/// A processor's frequency as /proc/cpuinfo of x86 tells it.
struct CpuinfoClock {
  std::uint32_t processor = UINT32_MAX;  ///< whose block it is
  double megahertz = kNotTold;
};
/// Takes a line "processor\t: 3", with which a frequency is not told any more, or "cpu MHz\t\t:
/// 2096.030"; passes over all others.
void TakeCpuinfoClock(std::string_view line, CpuinfoClock& clock);
