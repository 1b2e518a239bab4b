#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"
#include "local/log/ProblemReport.h"
#include "local/loop/EventLoop.h"
#include "support/Descriptor.h"

/// How the gate is started.
struct GateCommand {
  std::string program;                 ///< its path
  std::vector<std::string> arguments;  ///< behind the program's name
  std::chrono::milliseconds firstPause{1000};
  std::chrono::milliseconds longestPause{60000};
  std::chrono::milliseconds patience{2000};  ///< between SIGTERM and SIGKILL
};

/// The program that serves by HTTP, as a child of the daemon: started again when it has ended,
/// after a pause that doubles until it has lived as long as the longest; its standard error goes to
/// the report, line by line, and its standard input and output nowhere. It has a session of its
/// own. For the loop's thread, which it never holds but for Wait.
class GateChild {
 public:
  static constexpr std::size_t kMaxLine = 2048;  ///< bytes of a line; the rest goes into the next
  static constexpr int kMostLines = 60;          ///< in a minute; more are counted
  /// How long the end of a child that has been killed is waited for.
  static constexpr std::chrono::milliseconds kKillWait{1000};

  GateChild(EventLoop& loop, GateCommand command, ProblemReport report);
  /// Kills a child that still runs.
  ~GateChild();
  GateChild(const GateChild&) = delete;
  GateChild& operator=(const GateChild&) = delete;

  void Start();
  /// Asks the child to end. It is not started again.
  void Terminate();
  /// Handles I/O, and nothing else, until the child has ended; one that is out of patience, counted
  /// from Terminate, is killed, and waited for no longer than kKillWait.
  void Wait();
  /// Whether the child runs.
  [[nodiscard]] bool IsRunning() const { return m_pid > 0; }
  /// Whether the process is the child, or one that ended less than a minute ago, of which something
  /// may still be under way.
  [[nodiscard]] bool IsOrWas(pid_t process);

 private:
  using Clock = std::chrono::steady_clock;
  struct Former {
    pid_t process;
    Clock::time_point end;
  };

  [[nodiscard]] bool Spawn(std::string& error);
  [[noreturn]] void BecomeGate(int errorPipe, pid_t parent, char* const* arguments) const;
  /// Watches the child that has been forked. Throws where that can't be done.
  void Watch(Descriptor errors);
  /// Ends a child whose end nobody would see.
  void GiveUp();
  void WatchEnd();
  void WatchErrors();
  void WatchErrorsLater();
  void OnErrors();
  /// Reads what there is; false at the end of the pipe.
  bool ReadErrors(int descriptor);
  void TakeLine(std::string line);
  void OnEnd();
  void ForgetFormer();
  void StartLater();
  void PostStart();
  void Signal(int number) const;
  void Kill();

  EventLoop& m_loop;
  GateCommand m_command;
  ProblemReport m_report;
  LoopTimer m_timer;
  LoopDescriptor m_process;  ///< readable when the child has ended
  LoopDescriptor m_errors;
  LoopTimer m_readPause;
  pid_t m_pid = 0;
  std::vector<Former> m_former;
  bool m_isStopping = false;
  Clock::time_point m_started;
  Clock::time_point m_deadline;  ///< of Wait
  std::chrono::milliseconds m_pause;
  std::string m_line;  ///< the begin of one that has not ended
  Clock::time_point m_minute;
  int m_linesInMinute = 0;
  int m_linesLeftOut = 0;
};
