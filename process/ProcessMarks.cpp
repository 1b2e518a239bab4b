#include "process/ProcessMarks.h"

#include <algorithm>

ProcessMarks::ProcessMarks(std::span<const Process> processes) {
  m_marks.reserve(processes.size());
  for (const Process& process : processes) {
    const ModernProcessFigures& modern = process.modern;
    m_marks.push_back({process.pid, modern.isIoUnknown, modern.startTicks, modern.ioBytes});
  }
  const auto isBefore = [](const Mark& a, const Mark& b) { return a.pid < b.pid; };
  // The kernel lists processes in this order.
  if (!std::is_sorted(m_marks.begin(), m_marks.end(), isBefore)) {
    std::stable_sort(m_marks.begin(), m_marks.end(), isBefore);
  }
}

const ProcessMarks::Mark* ProcessMarks::Find(const Process& process) const {
  const auto mark =
      std::lower_bound(m_marks.begin(), m_marks.end(), process.pid,
                       [](const Mark& entry, std::int32_t pid) { return entry.pid < pid; });
  return mark != m_marks.end() && mark->pid == process.pid &&
                 mark->startTicks == process.modern.startTicks
             ? &*mark
             : nullptr;
}
