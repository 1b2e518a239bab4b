#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "agent/Signals.h"
#include "agent/UnixAgent.h"
#include "support/ChildProcess.h"
#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kProgram = "./qmt_ufss";
constexpr const char* kProgramName = "qmt_ufss";
constexpr const char* kFirstRunArgument = "1";
constexpr int kNiceness = 39;
constexpr int kChildFailed = 9;

enum class Step { kLock, kNice, kExec };

/// What went wrong in the child, which leaves the telling to its parent.
struct Failure {
  Step step;
  int code;  ///< errno
};

/// Opens the lock file and takes its lock, which belongs to the process and outlasts exec. -1 on
/// failure.
int TakeLock(const char* path) {
  const int lock = ::open(path, O_RDWR | O_CREAT, 0666);
  return lock >= 0 && ::lockf(lock, F_TLOCK, 0) == 0 ? lock : -1;
}

/// In the child, where only what is safe in a signal handler may be called.
[[noreturn]] void BecomeScan(const char* lockPath, const char* firstRun,
                             const FailurePipe& failures) {
  const auto tell = [&failures](Step step) { failures.Tell(Failure{step, errno}); };
  ResetSignals();
  const ::mode_t mask = ::umask(0);
  const int lock = TakeLock(lockPath);
  if (lock < 0) {
    tell(Step::kLock);
    ::_exit(kChildFailed);
  }
  // The lowest priority is the result, and -1 with an errno a failure.
  errno = 0;
  if (::nice(kNiceness) < 0 && errno != 0) {
    tell(Step::kNice);
  }
  ::umask(mask);
  if (::getuid() == 0 || ::geteuid() == 0) {
    [[maybe_unused]] const int ignored = ::setuid(0);
  }
  KeepAcrossExec(lock);
  ::execl(kProgram, kProgramName, lockPath, firstRun, static_cast<char*>(nullptr));
  tell(Step::kExec);
  ::close(lock);
  ::unlink(lockPath);
  ::_exit(kChildFailed);
}

void Tell(const Failure& failure, const std::string& lockPath) {
  switch (failure.step) {
    case Step::kLock:
      Trace(20, kError, "Failed to access the file or directory (%1).", lockPath);
      break;
    case Step::kNice:
      Message(10100, "nice", failure.code, "", "", "");
      break;
    case Step::kExec:
      Message(10100, "execl", failure.code, kProgram, lockPath, "");
      break;
  }
}

/// Tells what the child says until it has become the scan or ended.
void TellFailures(const FailurePipe& failures, const std::string& lockPath) {
  while (const auto failure = failures.Next<Failure>()) {
    Tell(*failure, lockPath);
  }
}

void TellNoChild(const char* call, int code) {
  Message(10150, call, code, kProgramName, "", "");
  Message(10300, "PD_UFSS");
  Trace(20, kError, "Failed to collect the record. (record=%1, detail=%2)", "UFSS",
        "Fail to create qmt_ufss process.");
}

}  // namespace

int UnixAgent::RunUFSS(int firstRun) {
  TraceEntry("UnixAgent::RunUFSS", firstRun);
  ReapChildren();
  if (m_ufssPid > 0) {
    ::waitpid(0, nullptr, WNOHANG);
  }
  const std::string lockPath = ProductPath(m_ufssLockPath);
  FailurePipe failures;
  if (!failures.Open()) {
    TellNoChild("pipe2", errno);
    TraceExit("UnixAgent::RunUFSS", -1);
    return -1;
  }
  const pid_t pid = Os().fork();
  if (pid == 0) {
    BecomeScan(lockPath.c_str(), firstRun != 0 ? kFirstRunArgument : nullptr, failures);
  }
  const int code = errno;
  failures.Listen();
  if (pid < 0) {
    TellNoChild("fork", code);
  } else {
    m_ufssPid = pid;
    TellFailures(failures, lockPath);
  }
  TraceExit("UnixAgent::RunUFSS", pid < 0 ? -1 : 0);
  return pid < 0 ? -1 : 0;
}
