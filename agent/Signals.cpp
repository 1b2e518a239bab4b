#include "agent/Signals.h"

#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "node/Node.h"
#include "support/Switches.h"
#include "support/TraceLog.h"

namespace {

/// Where the toggle handler counts; -1 for nowhere.
std::atomic<int> g_toggleDescriptor{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void StopHandler(int signal) {
  const int savedErrno = errno;
  g_caughtSignal = signal;
  CMBRunnableNode::setSignalStatus(signal);
  errno = savedErrno;
}

// Runs with all signals blocked, so that both switches flip as one.
extern "C" void ToggleHandler(int) {
  const int savedErrno = errno;
  g_processTraceOn = g_processTraceOn == 0 ? 1 : 0;
  g_collectorLogOn = g_collectorLogOn == 0 ? 1 : 0;
  const std::uint64_t one = 1;
  // A full counter is readable anyway.
  [[maybe_unused]] const ssize_t written = ::write(g_toggleDescriptor, &one, sizeof one);
  errno = savedErrno;
}

// Ends that come close together are one signal.
extern "C" void ReapHandler(int) {
  const int savedErrno = errno;
  while (::waitpid(0, nullptr, WNOHANG) > 0) {
  }
  errno = savedErrno;
}

bool SetHandler(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigfillset(&action.sa_mask);
  return ::sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

void InstallServiceSignals() {
  for (const int signal : {SIGINT, SIGTERM, SIGPWR}) {
    if (!SetHandler(signal, StopHandler)) {
      Message(10100, "sigaction", errno, signal, "", "");
    }
  }
  for (const int signal : {SIGHUP, SIGQUIT, SIGALRM, SIGPIPE, SIGCHLD, SIGUSR1, SIGXFSZ}) {
    if (!SetHandler(signal, SIG_IGN)) {
      Message(10100, "sigaction", errno, signal, "", "");
    }
  }
}

void ReapChildren() {
  if (!SetHandler(SIGCHLD, ReapHandler)) {
    Message(10100, "sigaction", errno, SIGCHLD, "", "");
  }
}

ToggleSignal::ToggleSignal() : m_descriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  g_toggleDescriptor = m_descriptor;
  if (m_descriptor < 0) {
    Message(10100, "eventfd", errno, "", "", "");
  }
  if (!SetHandler(SIGUSR2, ToggleHandler)) {
    std::perror("Error setting USR2 signal handler.");
  }
}

ToggleSignal::~ToggleSignal() {
  g_toggleDescriptor = -1;
  if (m_descriptor >= 0) {
    ::close(m_descriptor);
  }
}

std::uint64_t ToggleSignal::TakeCount() {
  std::uint64_t count = 0;
  const ssize_t length = ::read(m_descriptor, &count, sizeof count);
  return length == static_cast<ssize_t>(sizeof count) ? count : 0;
}
