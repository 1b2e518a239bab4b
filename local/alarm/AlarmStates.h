#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/FileWriter.h"
#include "local/alarm/AlarmWatch.h"
#include "local/log/ProblemReport.h"

/// The states of all alarms in a file beside the history, which a restart finds them in. It is
/// replaced as a whole, by a thread of its own: whenever one begins or ends, and now and then while
/// time is counted. What changes during a write is written behind it.
class AlarmStates {
 public:
  static constexpr std::chrono::seconds kPause{30};    ///< between two writes of counted time
  static constexpr std::chrono::seconds kStopWait{3};  ///< what a stop waits for the file
  static constexpr std::size_t kMostBytes = std::size_t{16} << 20;

  /// `onFree` is called when a write is over and something new waits.
  AlarmStates(IoLoop& loop, std::string path, ProblemReport report, std::function<void()> onFree)
      : m_file(loop, std::move(path), [this](const std::string& error) { OnWritten(error); }),
        m_report(std::move(report)),
        m_onFree(std::move(onFree)) {}

  /// Gives each watch what the file has of the alarm of its name and record; a file that is not
  /// there or can't be read gives nothing, the latter with a report.
  void Load(std::vector<std::unique_ptr<AlarmWatch>>& watches);
  /// Writes the file, if there is anything new in it and, but for a change, a while has passed.
  void Save(const std::vector<std::unique_ptr<AlarmWatch>>& watches);
  /// Writes what is new and waits for it, but not for ever.
  void SaveLast(const std::vector<std::unique_ptr<AlarmWatch>>& watches);

  /// The number of the next alarm.
  [[nodiscard]] std::int64_t TakeId() { return m_nextId++; }
  /// Numbers up to this one are taken. One of a damaged file may be any: there is room above it.
  void TakenUpTo(std::int64_t id) {
    m_nextId = std::max(m_nextId, std::min(id, INT64_MAX / 2) + 1);
  }

 private:
  void Look(const std::vector<std::unique_ptr<AlarmWatch>>& watches);
  void Write(const std::vector<std::unique_ptr<AlarmWatch>>& watches);
  void OnWritten(const std::string& error);

  FileWriter m_file;
  ProblemReport m_report;
  std::function<void()> m_onFree;
  std::int64_t m_nextId = 1;
  std::chrono::steady_clock::time_point m_written;
  bool m_isFailing = false;
  bool m_hasFile = false;
  bool m_isNew = false;       ///< a change waits to be written
  bool m_hasTold = false;     ///< the begin or end of an alarm does
  bool m_isCounting = false;  ///< at the last look
  bool m_hasStates = false;
};
