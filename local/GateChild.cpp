#include "local/GateChild.h"

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
#include <system_error>
#include <utility>

#include "io/OrIfNoMemory.h"
#include "support/ChildProcess.h"
#include "support/ProcessDescriptor.h"

namespace {

constexpr int kNotStarted = 127;
constexpr std::chrono::minutes kLineMinute{1};
/// Reads of the pipe in one callback.
constexpr int kReadsAtOnce = 16;
/// Between two callbacks, once there are too many lines: a flood must cost next to nothing.
constexpr std::chrono::milliseconds kFloodPause{100};
/// How long a connection of a child that has ended may still wait to be accepted.
constexpr std::chrono::minutes kFormerTime{1};

/// Nothing of the daemon's stays in the place of standard input and output.
void DetachStandardStreams() {
  const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO}) {
    nothing.IsOpen() ? ::dup2(nothing.Get(), descriptor) : ::close(descriptor);
  }
}

std::string EndText(const ::siginfo_t& end) {
  return end.si_code == CLD_EXITED ? "with status " + std::to_string(end.si_status)
                                   : "by signal " + std::to_string(end.si_status);
}

}  // namespace

GateChild::GateChild(EventLoop& loop, GateCommand command, ProblemReport report)
    : m_loop(loop),
      m_command(std::move(command)),
      m_report(std::move(report)),
      m_timer(loop),
      m_process(loop),
      m_errors(loop),
      m_readPause(loop),
      m_pause(m_command.firstPause) {}

GateChild::~GateChild() {
  Terminate();
  Kill();
}

void GateChild::Start() {
  std::string error;
  m_started = Clock::now();
  m_line.clear();
  if (!Spawn(error)) {
    StartLater();
    m_report(m_command.program + ": can't be started: " + error);
  }
}

bool GateChild::Spawn(std::string& error) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    error = std::strerror(errno);
    return false;
  }
  Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  std::vector<char*> arguments{m_command.program.data()};
  for (std::string& argument : m_command.arguments) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) {
    BecomeGate(writer.Get(), parent, arguments.data());
  }
  if (pid < 0) {
    error = std::strerror(errno);
    return false;
  }
  m_pid = pid;
  try {
    Watch(std::move(reader));
  } catch (const std::system_error& problem) {
    GiveUp();
    error = problem.code().message();
    return false;
  } catch (const std::bad_alloc&) {
    GiveUp();
    throw;
  }
  return true;
}

void GateChild::Watch(Descriptor errors) {
  m_process.Take(OpenProcess(m_pid));
  m_errors.Take(std::move(errors));
  WatchErrors();
  WatchEnd();
}

void GateChild::GiveUp() {
  Descriptor(m_process.Release()).Close();
  Descriptor(m_errors.Release()).Close();
  EndChild(m_pid);
}

void GateChild::BecomeGate(int errorPipe, pid_t parent, char* const* arguments) const {
  // Away from the daemon's terminal, and out of its process group, whose children the agent waits
  // for by itself. The parent must not do that: a leader of a group gets no session.
  ::setsid();
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) {
    ::_exit(kNotStarted);
  }
  ResetSignals();
  ::dup2(errorPipe, STDERR_FILENO);
  KeepAcrossExec(STDERR_FILENO);
  DetachStandardStreams();
  ::execv(arguments[0], arguments);
  const char* reason = ::strerrordesc_np(errno);
  const std::array<std::string_view, 3> words{"can't be started: ", reason == nullptr ? "" : reason,
                                              "\n"};
  for (const std::string_view word : words) {
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, word.data(), word.size());
  }
  ::_exit(kNotStarted);
}

void GateChild::WatchEnd() {
  m_process.OnReadable([this] { OnEnd(); });
}

void GateChild::WatchErrors() {
  m_errors.OnReadable([this] {
    // Nobody would read on: the child would wait for room in the pipe.
    OrIfNoMemory([this] { OnErrors(); }, [this] { WatchErrorsLater(); });
  });
}

void GateChild::WatchErrorsLater() {
  m_readPause.After(kFloodPause, [this] { WatchErrors(); });
}

void GateChild::OnErrors() {
  if (ReadErrors(m_errors.Get())) {
    m_linesLeftOut == 0 ? WatchErrors() : WatchErrorsLater();
  } else {
    Descriptor(m_errors.Release()).Close();
  }
}

bool GateChild::ReadErrors(int descriptor) {
  std::array<char, 4096> chunk{};
  for (int turn = 0; turn < kReadsAtOnce && descriptor >= 0; ++turn) {
    const ssize_t size = ::read(descriptor, chunk.data(), chunk.size());
    if (size <= 0) {
      return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    for (const char c : std::string_view(chunk.data(), static_cast<std::size_t>(size))) {
      if (c != '\n') {
        m_line += c;
      }
      if (c == '\n' || m_line.size() >= kMaxLine) {
        TakeLine(std::exchange(m_line, {}));
      }
    }
  }
  return true;
}

void GateChild::TakeLine(std::string line) {
  const Clock::time_point now = Clock::now();
  if (now - m_minute >= kLineMinute) {
    m_minute = now;
    m_linesInMinute = 0;
    if (const int leftOut = std::exchange(m_linesLeftOut, 0); leftOut != 0) {
      m_report("qmt_gate: " + std::to_string(leftOut) + " lines were left out");
    }
  }
  if (++m_linesInMinute > kMostLines) {
    ++m_linesLeftOut;
  } else if (!line.empty()) {
    m_report("qmt_gate: " + line);
  }
}

void GateChild::OnEnd() {
  ::siginfo_t end{};
  const int result = ::waitid(P_PID, static_cast<::id_t>(m_pid), &end, WEXITED | WNOHANG);
  if (result == 0 && end.si_pid == 0) {
    WatchEnd();
    return;
  }
  Descriptor(m_process.Release()).Close();
  const Descriptor errors(m_errors.Release());
  m_readPause.Cancel();
  const pid_t former = std::exchange(m_pid, 0);
  // First of all: there may be no memory for the rest.
  if (!m_isStopping) {
    StartLater();
  }
  ForgetFormer();
  m_former.push_back({former, Clock::now()});
  // What it has said last; a process of its own that still holds the pipe is not waited for.
  static_cast<void>(ReadErrors(errors.Get()));
  if (!m_line.empty()) {
    TakeLine(std::exchange(m_line, {}));
  }
  if (!m_isStopping) {
    // How it ended is lost where the agent has children's ends ignored.
    m_report("qmt_gate has ended" + (result == 0 ? ' ' + EndText(end) : "") +
             " and is started again");
  }
}

void GateChild::ForgetFormer() {
  std::erase_if(m_former, [now = Clock::now()](const Former& former) {
    return now - former.end >= kFormerTime;
  });
}

bool GateChild::IsOrWas(pid_t process) {
  ForgetFormer();
  return (IsRunning() && process == m_pid) ||
         std::ranges::find(m_former, process, &Former::process) != m_former.end();
}

void GateChild::StartLater() {
  if (Clock::now() - m_started >= m_command.longestPause) {
    m_pause = m_command.firstPause;
  }
  m_timer.After(m_pause,
                [this] { OrIfNoMemory([this] { PostStart(); }, [this] { StartLater(); }); });
  m_pause = std::min(m_pause * 2, m_command.longestPause);
}

void GateChild::PostStart() {
  LoopTask task;
  task.run = [this](CMBNode&) {
    if (!m_isStopping && !IsRunning()) {
      Start();
    }
  };
  task.fail = [this] {
    if (!m_isStopping && !IsRunning()) {
      StartLater();
    }
  };
  m_loop.Post(std::move(task));
}

void GateChild::Terminate() {
  m_timer.Cancel();
  if (!std::exchange(m_isStopping, true) && IsRunning()) {
    m_deadline = Clock::now() + m_command.patience;
    Signal(SIGTERM);
  }
}

void GateChild::Signal(int number) const {
  // Where the agent lets the system take ended children, the child's number may be another's by
  // now.
  ::syscall(SYS_pidfd_send_signal, m_process.Get(), number, nullptr, 0U);
}

void GateChild::Wait() {
  m_loop.Pump(std::max(m_deadline - Clock::now(), Clock::duration(0)),
              [this] { return !IsRunning(); });
  Kill();
}

void GateChild::Kill() {
  if (IsRunning()) {
    Signal(SIGKILL);
    ReapChild(m_pid, m_process.Get(), Clock::now() + kKillWait);
  }
}
