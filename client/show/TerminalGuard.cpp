#include "client/show/TerminalGuard.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace {

/// Sequences are far shorter.
constexpr std::size_t kLongestFarewell = 512;
/// Those of a crash, and those that end the program where it is without having been asked to stop.
constexpr std::array kCrashSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGHUP, SIGQUIT};

// What a crash needs is made ready before: its handler may call next to nothing.
std::array<char, kLongestFarewell> g_farewell{};
std::size_t g_farewellSize = 0;
termios g_before{};
bool g_isStopGuarded = false;

/// Leaves the terminal as it was and lets the signal end the program, or stop it.
void LeaveBySignal(int signal) {
  const int code = errno;
  if (IsForeground()) {
    static_cast<void>(!::write(STDOUT_FILENO, g_farewell.data(), g_farewellSize));
    static_cast<void>(::tcsetattr(STDIN_FILENO, TCSADRAIN, &g_before));
  }
  static_cast<void>(::raise(signal));
  errno = code;
}

void SetHandler(int signal, void (*handler)(int)) {
  struct sigaction present {};
  if (::sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    static_cast<void>(::sigaction(signal, &action, nullptr));
  }
}

void SetHandlers(void (*handler)(int)) {
  for (const int signal : kCrashSignals) {
    SetHandler(signal, handler);
  }
  if (g_isStopGuarded) {
    SetHandler(SIGTSTP, handler);
  }
}

}  // namespace

bool IsForeground() { return ::tcgetpgrp(STDIN_FILENO) == ::getpgrp(); }

void GuardTerminal(const termios& before, Guarded guarded, std::string_view farewell) {
  g_isStopGuarded = guarded == Guarded::kStops;
  g_before = before;
  g_farewellSize = farewell.copy(g_farewell.data(), g_farewell.size());
  SetHandlers(LeaveBySignal);
}

void LeaveTerminal() { SetHandlers(SIG_DFL); }
