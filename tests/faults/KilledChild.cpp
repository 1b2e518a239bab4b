#include "tests/faults/KilledChild.h"

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <exception>

namespace {

constexpr int kAtSystemCall = SIGTRAP | 0x80;

int Wait(pid_t child) {
  int status = 0;
  return ::waitpid(child, &status, 0) == child ? status : -1;
}

bool HasStoppedBy(int status, int signal) {
  return WIFSTOPPED(status) && WSTOPSIG(status) == signal;
}

bool IsUnhurt(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

[[noreturn]] void LiveAsChild(const std::function<void()>& life) {
  try {
    life();
  } catch (const std::exception&) {
    ::_exit(1);
  }
  ::_exit(0);
}

}  // namespace

faults::KilledRun faults::RunKilled(const std::function<void()>& prepare,
                                    const std::function<void()>& work, std::size_t place) {
  const pid_t child = ::fork();
  if (child == 0) {
    LiveAsChild([&] {
      if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0) {
        prepare();
        // Stands for the tracer between what is counted and what is not.
        ::raise(SIGSTOP);
        work();
        ::raise(SIGSTOP);
      }
    });
  }
  KilledRun run;
  int status = Wait(child);
  if (!HasStoppedBy(status, SIGSTOP)) {
    return run;
  }
  run.wasTraced = true;
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  for (status = Wait(child); HasStoppedBy(status, kAtSystemCall); status = Wait(child)) {
    if (++run.stops == place) {
      ::kill(child, SIGKILL);
      run.wasKilled = WIFSIGNALED(Wait(child));
      return run;
    }
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  }
  while (WIFSTOPPED(status)) {
    ::ptrace(PTRACE_CONT, child, nullptr, nullptr);
    status = Wait(child);
  }
  run.wasUnhurt = IsUnhurt(status);
  return run;
}

bool faults::RunInChild(const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    LiveAsChild(work);
  }
  return IsUnhurt(Wait(child));
}
