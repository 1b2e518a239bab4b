#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

/// What a process or a group took in the time of one row. What has no source is nothing.
struct Use {
  std::int64_t time = 0;          ///< of the row, in seconds since the epoch
  std::optional<double> seconds;  ///< that the row covers
  std::string name;
  std::string more;  ///< what is shown besides, as its user
  std::optional<double> cpuSeconds;
  std::optional<double> memoryBytes;
  std::optional<double> ioBytes;
};

/// What all of one name took in a stretch of time.
struct UseTotal {
  std::string name;
  std::string more;
  std::uint64_t mostAtOnce = 0;
  std::optional<double> cpuSeconds;
  std::optional<double> ioBytes;
  std::optional<double> mostMemory;  ///< bytes of all at one time
  std::int64_t mostMemoryTime = 0;
};

enum class UseMeasure { kCpu, kMemory, kIo };

/// The figure of that measure.
[[nodiscard]] std::optional<double> FigureOf(const UseTotal& total, UseMeasure measure);

/// Tells rows of the time since the batch before from those of an agent that has just begun, which
/// hold all that a process has taken since it was started.
class UseBatches {
 public:
  /// Takes away what was taken over time, unless the row covers just the time since the batch
  /// before. Times may not descend.
  void Judge(Use& use);

 private:
  std::int64_t m_before = 0;  ///< the time of the batch before; 0 for none
  std::int64_t m_batch = 0;   ///< of the batch that is judged
};

/// Sums uses by name and by what is shown besides. Holds no more than so many names.
class UseSums {
 public:
  explicit UseSums(std::size_t mostNames) : m_mostNames(mostNames) {}

  /// Times may not descend.
  void Add(const Use& use);
  /// The `count` that took the most, the first one most; those that took nothing are left out.
  [[nodiscard]] std::vector<UseTotal> Top(UseMeasure measure, std::size_t count) const;
  /// Uses of names for which there was no place.
  [[nodiscard]] std::uint64_t Omitted() const { return m_omitted; }

 private:
  struct Sum {
    UseTotal total;
    std::int64_t time = 0;  ///< of the row before
    std::uint64_t atOnce = 0;
    std::optional<double> memory;
  };

  std::size_t m_mostNames;
  std::unordered_map<std::string, Sum> m_sums;
  std::uint64_t m_omitted = 0;
};
