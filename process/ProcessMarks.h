#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "collect/process/ProcessSourceLINUX.h"

/// Which processes a request's last answer was of, by number and the kernel's start time, with what
/// a row can't hold of them in full.
class ProcessMarks {
 public:
  struct Mark {
    std::int32_t pid = 0;
    bool isIoUnknown = false;
    std::uint64_t startTicks = 0;
    std::uint64_t ioBytes = 0;
  };

  ProcessMarks() = default;
  explicit ProcessMarks(std::span<const Process> processes);

  /// Null if the process was not there; valid as long as the marks.
  [[nodiscard]] const Mark* Find(const Process& process) const;
  [[nodiscard]] std::size_t Size() const { return m_marks.size(); }

 private:
  std::vector<Mark> m_marks;  ///< by number
};
