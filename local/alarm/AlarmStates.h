#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "local/alarm/AlarmWatch.h"
#include "local/log/ProblemReport.h"

/// The states of all alarms in a file beside the history, which a restart finds them in. It is
/// replaced as a whole: whenever one begins or ends, and now and then while time is counted.
class AlarmStates {
 public:
  static constexpr std::chrono::seconds kPause{30};  ///< between two writes of counted time
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  AlarmStates(std::string path, ProblemReport report)
      : m_path(std::move(path)), m_report(std::move(report)) {}

  /// Gives each watch what the file has of the alarm of its name and record; a file that is not
  /// there or can't be read gives nothing, the latter with a report.
  void Load(std::vector<std::unique_ptr<AlarmWatch>>& watches);
  /// Writes the file, if there is anything new in it and, but for a change, a while has passed.
  void Save(const std::vector<std::unique_ptr<AlarmWatch>>& watches, bool isLast = false);

  /// The number of the next alarm.
  [[nodiscard]] std::int64_t TakeId() { return m_nextId++; }
  /// Numbers up to this one are taken.
  void TakenUpTo(std::int64_t id) { m_nextId = std::max(m_nextId, id + 1); }

 private:
  std::string m_path;
  ProblemReport m_report;
  std::int64_t m_nextId = 1;
  std::chrono::steady_clock::time_point m_written;
  bool m_isFailing = false;
  bool m_hasFile = false;
  bool m_isNew = false;  ///< a change waits to be written
};
