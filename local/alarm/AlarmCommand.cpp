#include "local/alarm/AlarmCommand.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string_view>
#include <system_error>

#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"
#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"
#include "json/RowCondition.h"
#include "local/alarm/CommandFile.h"
#include "support/Capabilities.h"
#include "support/ChildProcess.h"
#include "support/Descriptor.h"
#include "support/ProcessDescriptor.h"

namespace {

constexpr int kCommandNotStarted = 127;
/// Reads of the pipe in one callback.
constexpr int kCommandReads = 4;
/// Between two callbacks, once it has said too much: a flood must cost next to nothing.
constexpr std::chrono::milliseconds kCommandFloodPause{100};
constexpr std::size_t kMostTold = 65536;     ///< bytes that are not too much
constexpr std::size_t kMostVariable = 4096;  ///< bytes of one variable's value

std::string VariableName(std::string_view label) {
  std::string name;
  for (const char c : label) {
    const bool isLower = c >= 'a' && c <= 'z';
    const bool isOther = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    name += isLower ? static_cast<char>(c - 'a' + 'A') : isOther ? c : '_';
  }
  return name;
}

/// A value may hold anything but a NUL, which would cut it.
std::string Variable(const std::string& name, std::string value) {
  std::erase(value, '\0');
  value.resize(std::min(value.size(), kMostVariable));
  return name + '=' + value;
}

std::string PlainText(const Json* value) {
  return value == nullptr || value->IsNull() ? "" : ShownValue(*value, false);
}

void AddMembers(const Json* object, const std::string& prefix,
                std::vector<std::string>& environment) {
  if (object == nullptr || !object->IsObject()) {
    return;
  }
  std::set<std::string> names;
  for (const JsonMember& member : object->Members()) {
    const std::string name = prefix + VariableName(member.name);
    if (names.insert(name).second) {
      environment.push_back(Variable(name, PlainText(&member.value)));
    }
  }
}

}  // namespace

std::vector<std::string> AlarmEnvironment(const Json& alarm) {
  std::vector<std::string> environment;
  constexpr std::array<std::pair<const char*, const char*>, 8> kPlain{
      {{"QMT_ALARM_NAME", "alarm"},
       {"QMT_ALARM_STATE", "state"},
       {"QMT_ALARM_SEVERITY", "severity"},
       {"QMT_ALARM_TEXT", "text"},
       {"QMT_ALARM_RECORD", "record"},
       {"QMT_ALARM_ID", "id"},
       {"QMT_ALARM_SINCE", "since"},
       {"QMT_ALARM_UNTIL", "until"}}};
  environment.reserve(environment.size() + kPlain.size());
  for (const auto& [name, member] : kPlain) {
    environment.push_back(Variable(name, PlainText(alarm.Find(member))));
  }
  AddMembers(alarm.Find("key"), "QMT_ALARM_KEY_", environment);
  AddMembers(alarm.Find("values"), "QMT_ALARM_VALUE_", environment);
  return environment;
}

/// One run of the command.
class AlarmCommand::Child {
 public:
  Child(AlarmCommand& owner)
      : m_owner(owner),
        m_process(owner.m_loop),
        m_output(owner.m_loop),
        m_limit(owner.m_loop),
        m_pause(owner.m_loop) {}
  ~Child() {
    if (m_pid > 0) {
      Kill();
      Reap(std::chrono::steady_clock::now());
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Why it can't be started; empty if it runs.
  std::string Start(std::vector<std::string> environment) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      return std::strerror(errno);
    }
    Descriptor reader(ends[0]);
    const Descriptor writer(ends[1]);
    const char* path = std::getenv("PATH");
    environment.push_back(std::string("PATH=") +
                          (path == nullptr ? "/usr/sbin:/usr/bin:/sbin:/bin" : path));
    std::vector<char*> variables;
    variables.reserve(environment.size() + 1);
    for (std::string& variable : environment) {
      variables.push_back(variable.data());
    }
    variables.push_back(nullptr);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0) {
      BecomeCommand(writer.Get(), parent, variables.data());
    }
    if (pid < 0) {
      return std::strerror(errno);
    }
    m_pid = pid;
    try {
      Watch(std::move(reader));
    } catch (const std::system_error& problem) {
      EndChild(m_pid);
      return problem.code().message();
    } catch (const std::bad_alloc&) {
      EndChild(m_pid);
      throw;
    }
    return "";
  }

  /// Whether it has been started and has ended.
  [[nodiscard]] bool IsOver() const { return m_pid <= 0; }

  /// The group's number is its own for as long as its first process has not been waited for.
  void Kill() const {
    if (m_pid > 0 && ::syscall(SYS_pidfd_send_signal, m_process.Get(), SIGKILL, nullptr, 0U) == 0) {
      ::kill(-m_pid, SIGKILL);
    }
  }

  /// Waits for the end of one that has been killed, until `until` at the most.
  void Reap(std::chrono::steady_clock::time_point until) {
    if (m_pid > 0) {
      ReapChild(m_pid, m_process.Get(), until);
    }
  }

 private:
  /// Watches what has been forked. Throws where that can't be done.
  void Watch(Descriptor output) {
    m_process.Take(OpenProcess(m_pid));
    m_output.Take(std::move(output));
    WatchOutput();
    WatchEnd();
    m_limit.After(m_owner.m_settings.limit, [this] { OnLimit(); });
  }

  static void Say(const char* reason) {
    for (const char* word : {"can't be started: ", reason == nullptr ? "?" : reason, "\n"}) {
      [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, word, std::strlen(word));
    }
  }

  /// What the daemon may do beyond its user is for reading figures. Programs of root get all
  /// capabilities at exec, unless no new rights may be had.
  [[nodiscard]] static bool LeaveRights() {
    return (::geteuid() != 0 || ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) &&
           KeepCapabilities(0);
  }

  [[noreturn]] void BecomeCommand(int output, pid_t parent, char* const* environment) const {
    // A group of its own, which can be ended as a whole, and none of the agent's, which waits for
    // its own group's children.
    ::setsid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
      ::_exit(kCommandNotStarted);
    }
    ResetSignals();
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    nothing >= 0 ? ::dup2(nothing, STDIN_FILENO) : ::close(STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    KeepAcrossExec(STDERR_FILENO);
    const char* const program = m_owner.m_settings.program.c_str();
    if (!LeaveRights()) {
      Say(::strerrordesc_np(errno));
      ::_exit(kCommandNotStarted);
    }
    // Here and not in the daemon, as what a file system is slow with must not hold the loop.
    if (const char* fault = CommandFault(program, ::geteuid()); fault != nullptr) {
      Say(fault);
      ::_exit(kCommandNotStarted);
    }
    std::array<char*, 2> arguments{const_cast<char*>(program), nullptr};
    ::execve(program, arguments.data(), environment);
    Say(::strerrordesc_np(errno));
    ::_exit(kCommandNotStarted);
  }

  void OnLimit() {
    m_isTooLong = true;
    Kill();
  }

  void WatchEnd() {
    m_process.OnReadable([this] { OnEnd(); });
  }

  void WatchOutput() {
    m_output.OnReadable([this] {
      // Nobody would read on: the command would wait for room in the pipe.
      OrIfNoMemory([this] { OnOutput(); }, [this] { WatchOutputLater(); });
    });
  }

  void WatchOutputLater() {
    m_pause.After(kCommandFloodPause, [this] { WatchOutput(); });
  }

  void OnOutput() {
    if (!Read(m_output.Get())) {
      Descriptor(m_output.Release()).Close();
    } else if (m_lines <= kMostLines && m_bytes <= kMostTold) {
      WatchOutput();
    } else {
      WatchOutputLater();
    }
  }

  bool Read(int output) {
    std::array<char, 4096> chunk{};
    for (int turn = 0; turn < kCommandReads && output >= 0; ++turn) {
      const ssize_t size = ::read(output, chunk.data(), chunk.size());
      if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
      }
      m_bytes += static_cast<std::size_t>(size);
      for (const char c : std::string_view(chunk.data(), static_cast<std::size_t>(size))) {
        if (c == '\n') {
          TellLine();
        } else if (m_line.size() < kMostLine) {
          m_line += c;
        }
      }
    }
    return true;
  }

  void TellLine() {
    const std::string line = std::exchange(m_line, {});
    if (line.empty()) {
      return;
    }
    if (++m_lines <= kMostLines) {
      Tell(line);
    }
  }

  void OnEnd() {
    ::siginfo_t end{};
    const int result = ::waitid(P_PID, static_cast<::id_t>(m_pid), &end, WEXITED | WNOHANG);
    if (result == 0 && end.si_pid == 0) {
      WatchEnd();
      return;
    }
    m_limit.Cancel();
    m_pause.Cancel();
    m_pid = 0;
    Descriptor(m_process.Release()).Close();
    const Descriptor output(m_output.Release());
    const bool hasFailed = result == 0 && (end.si_code != CLD_EXITED || end.si_status != 0);
    m_owner.m_failures += m_isTooLong || hasFailed ? 1 : 0;
    // Before all words: there may be no memory for them.
    Leave();
    static_cast<void>(Read(output.Get()));
    TellLine();
    if (m_lines > kMostLines) {
      Tell(std::to_string(m_lines - kMostLines) + " lines were left out");
    }
    if (m_isTooLong) {
      Tell("took longer than " + std::to_string(m_owner.m_settings.limit.count()) +
           " seconds and has been ended");
    } else if (hasFailed) {
      Tell((end.si_code == CLD_EXITED ? "has ended with status " : "has ended by signal ") +
           std::to_string(end.si_status));
    }
  }

  /// The next one is started, and this one freed, out of its own callback.
  void Leave() {
    OrIfNoMemory([this] { m_owner.PostNext(); },
                 [this] { m_pause.After(kCommandFloodPause, [this] { Leave(); }); });
  }

  void Tell(const std::string& words) {
    m_owner.m_report(m_owner.m_settings.program + ": " + words);
  }

  AlarmCommand& m_owner;
  LoopDescriptor m_process;  ///< readable when the command has ended
  LoopDescriptor m_output;
  LoopTimer m_limit;
  LoopTimer m_pause;  ///< between two reads of one that says too much
  pid_t m_pid = 0;
  bool m_isTooLong = false;
  std::string m_line;
  int m_lines = 0;
  std::size_t m_bytes = 0;
};

AlarmCommand::AlarmCommand(EventLoop& loop, ProblemReport report)
    : m_loop(loop), m_report(std::move(report)), m_again(loop) {}

AlarmCommand::~AlarmCommand() { Stop(); }

void AlarmCommand::Configure(AlarmCommandSettings settings) {
  m_settings = std::move(settings);
  if (!IsConfigured()) {
    return;
  }
  if (const char* fault = CommandFault(m_settings.program.c_str(), ::geteuid()); fault != nullptr) {
    m_report(m_settings.program + ": " + fault + ", so it is not started for alarms");
  }
}

void AlarmCommand::Stop() {
  if (m_isStopped) {
    return;
  }
  m_isStopped = true;
  const auto ended =
      std::ranges::count_if(m_children, [](const auto& child) { return !child->IsOver(); });
  const std::size_t left = m_waiting.size();
  m_dropped += left;
  m_waiting.clear();
  for (const auto& child : m_children) {
    child->Kill();
  }
  const auto until = std::chrono::steady_clock::now() + kStopWait;
  for (const auto& child : m_children) {
    child->Reap(until);
  }
  m_children.clear();
  // Last, since the words may lack memory.
  if (ended != 0 || left != 0) {
    m_report(m_settings.program + ": the daemon stops: " + std::to_string(ended) +
             " commands are ended, " + std::to_string(left) + " are not started");
  }
}

void AlarmCommand::Run(std::vector<std::string> environment) {
  if (!IsConfigured()) {
    return;
  }
  if (m_isStopped) {
    ++m_dropped;
    return;
  }
  if (m_waiting.size() >= kMostWaiting) {
    ++m_dropped;
    if (!std::exchange(m_isDropping, true)) {
      m_report(m_settings.program + ": " + std::to_string(kMostWaiting) +
               " alarms wait for the command; it is not started for more of them");
    }
    return;
  }
  m_waiting.push_back(std::move(environment));
  StartNext();
}

void AlarmCommand::StartNext() {
  OrIfNoMemory(
      [this] {
        m_children.remove_if([](const auto& child) { return child->IsOver(); });
        while (!m_waiting.empty() && m_children.size() < m_settings.atOnce) {
          m_children.push_back(std::make_unique<Child>(*this));
          TakeStart(m_children.back()->Start(m_waiting.front()));
        }
      },
      [this] { m_again.After(kCommandFloodPause, [this] { StartNext(); }); });
}

void AlarmCommand::TakeStart(std::string error) {
  ++m_runs;
  m_waiting.pop_front();
  m_isDropping = m_isDropping && !m_waiting.empty();
  const bool isNew = error != m_startError;
  m_startError = std::move(error);
  if (m_startError.empty()) {
    return;
  }
  m_children.pop_back();
  ++m_failures;
  if (isNew) {
    m_report(m_settings.program + ": can't be started: " + m_startError);
  }
}

void AlarmCommand::PostNext() {
  LoopTask task;
  task.run = [this](CMBNode&) { StartNext(); };
  m_loop.Post(std::move(task));
}
