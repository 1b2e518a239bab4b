#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/LoopTimer.h"
#include "json/Json.h"
#include "local/log/ProblemReport.h"
#include "local/loop/EventLoop.h"

/// What is started when an alarm begins or ends.
struct AlarmCommandSettings {
  std::string program;  ///< an absolute path; empty for none
  std::chrono::seconds limit{30};
  std::size_t atOnce = 4;
};

/// The environment of the command, "NAME=value" each, for an alarm in the form of AlarmBook.
[[nodiscard]] std::vector<std::string> AlarmEnvironment(const Json& alarm);

/// Runs the command in the background, as the daemon's user and without any right beyond that: also
/// root's programs get no capability. It must fulfil CommandFault, which is looked at each time.
/// One that takes longer than its limit is ended with all that it has started and that is still of
/// its process group; what it says goes to the report, within bounds. Never waits. For the loop's
/// thread.
class AlarmCommand {
 public:
  static constexpr std::size_t kMostWaiting = 100;
  static constexpr std::size_t kMostLine = 512;  ///< bytes of a line of its output
  static constexpr int kMostLines = 20;          ///< of one run; the rest is counted
  static constexpr std::chrono::milliseconds kStopWait{200};

  AlarmCommand(EventLoop& loop, ProblemReport report);
  /// Stops.
  ~AlarmCommand();
  AlarmCommand(const AlarmCommand&) = delete;
  AlarmCommand& operator=(const AlarmCommand&) = delete;

  /// Reports what is wrong with the program.
  void Configure(AlarmCommandSettings settings);
  [[nodiscard]] bool IsConfigured() const { return !m_settings.program.empty(); }
  /// Ends the commands that run, waiting for kStopWait at most; those that wait, and what comes
  /// later, are dropped.
  void Stop();
  /// Starts the command with the environment, or has it wait for its turn.
  void Run(std::vector<std::string> environment);

  [[nodiscard]] std::uint64_t Runs() const { return m_runs; }
  /// Those that ended otherwise than with status 0, or could not be started.
  [[nodiscard]] std::uint64_t Failures() const { return m_failures; }
  /// Those for which there was no room.
  [[nodiscard]] std::uint64_t Dropped() const { return m_dropped; }

 private:
  class Child;

  /// Starts the next ones in the place of those that have ended; later again where memory lacks.
  void StartNext();
  /// The same in a turn of its own.
  void PostNext();
  /// The first one that waits has been started by the last child, or has an error.
  void TakeStart(std::string error);

  EventLoop& m_loop;
  ProblemReport m_report;
  AlarmCommandSettings m_settings;
  LoopTimer m_again;
  std::list<std::unique_ptr<Child>> m_children;
  std::deque<std::vector<std::string>> m_waiting;
  std::uint64_t m_runs = 0;
  std::uint64_t m_failures = 0;
  std::uint64_t m_dropped = 0;
  bool m_isDropping = false;  ///< told
  std::string m_startError;   ///< told, until one starts again
  bool m_isStopped = false;
};
