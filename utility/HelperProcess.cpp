#include "utility/HelperProcess.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "support/ChildProcess.h"
#include "support/HostPaths.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kMaxArgument = 4095;
constexpr std::chrono::seconds kLongestPause{60};

/// In the child between fork and exec, where only what is safe in a signal handler may be called.
[[noreturn]] void RunChild(const char* path, const char* argument, const FailurePipe& failures) {
  // Ignored signals would stay ignored in the new program.
  ResetSignals();
  ::execl(path, path, argument, "off", static_cast<char*>(nullptr));
  failures.Tell(errno);
  ::_exit(1);
}

}  // namespace

HelperProcess::HelperProcess(std::string path, std::string argument)
    : m_path(std::move(path)), m_argument(std::move(argument)) {}

bool HelperProcess::IsPaused() const {
  return m_pause.count() != 0 && Clock::now() - m_started < m_pause;
}

void HelperProcess::LengthenPause() {
  m_pause = m_started == Clock::time_point() || Clock::now() - m_started > kLongestPause
                ? std::chrono::seconds(1)
                : std::min(m_pause * 2, kLongestPause);
}

int HelperProcess::Spawn(std::string& error) {
  TraceEntry("HelperProcess::Spawn");
  std::erase_if(m_formerPids, [](pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) != 0; });
  if (IsPaused()) {
    TraceExit("HelperProcess::Spawn");
    return 0;
  }
  LengthenPause();
  if (IsRunning()) {
    // It has lost its pipes and will end once it notices.
    m_formerPids.push_back(m_childPid);
  }
  m_started = Clock::now();
  FailurePipe failures;
  if (!failures.Open()) {
    error = std::strerror(errno);
    TraceExit("HelperProcess::Spawn");
    return -1;
  }
  const std::string argument = ProductPath(m_argument).substr(0, kMaxArgument);
  const pid_t pid = ::fork();
  if (pid == 0) {
    RunChild(m_path.c_str(), argument.c_str(), failures);
  }
  const int code = errno;
  failures.Listen();
  if (pid < 0) {
    error = std::strerror(code);
    Trace(20, kError, "An error occurred in vfork. (%1)  (err=%2)", error, code);
    TraceExit("HelperProcess::Spawn");
    return -1;
  }
  m_childPid = pid;
  // 0 if the new program has taken over.
  const int failure = failures.Next<int>().value_or(0);
  if (failure != 0) {
    ::waitpid(pid, nullptr, 0);
    m_childPid = -1;
    error = std::strerror(failure);
    if (failure != std::exchange(m_toldFailure, failure)) {
      Message(10100, "exec", failure, m_path, argument, "off");
    }
    TraceExit("HelperProcess::Spawn");
    return -1;
  }
  m_toldFailure = 0;
  TraceExit("HelperProcess::Spawn");
  return 1;
}

bool HelperProcess::IsRunning() {
  if (m_childPid <= 0) {
    return false;
  }
  pid_t result = 0;
  do {
    result = ::waitpid(m_childPid, nullptr, WNOHANG);
  } while (result < 0 && errno == EINTR);
  if (result == 0) {
    return true;
  }
  if (result < 0 && errno != ECHILD) {
    ::kill(m_childPid, SIGKILL);
  }
  m_childPid = -1;
  return false;
}
