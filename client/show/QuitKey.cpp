#include "client/show/QuitKey.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "client/show/TerminalGuard.h"

QuitKey::QuitKey() : m_isOn(::isatty(STDIN_FILENO) == 1) { SetKeys(); }

QuitKey::~QuitKey() {
  if (m_isChanged) {
    LeaveTerminal();
    if (IsForeground()) {
      ::tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
    }
  }
}

void QuitKey::SetKeys() {
  constexpr tcflag_t kLines = ICANON | ECHO;
  termios keys{};
  if (!m_isOn || !IsForeground() || ::tcgetattr(STDIN_FILENO, &keys) != 0 ||
      (keys.c_lflag & kLines) == 0) {
    return;
  }
  m_before = keys;
  m_isChanged = true;
  GuardTerminal(m_before, Guarded::kStops);
  keys.c_lflag &= ~kLines;
  keys.c_cc[VMIN] = 0;
  keys.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSANOW, &keys);
}

bool QuitKey::TakeKeys() {
  std::array<char, 256> keys;
  const ssize_t count = ::read(STDIN_FILENO, keys.data(), keys.size());
  // The terminal is gone.
  if (count <= 0) {
    m_isOn = false;
    return false;
  }
  const std::string_view typed(keys.data(), static_cast<std::size_t>(count));
  return typed.find_first_of("qQ") != std::string_view::npos;
}

bool QuitKey::WaitUntil(std::chrono::steady_clock::time_point time, const StopSignals& stop) {
  // Short enough to see soon that the command has come back to the foreground.
  constexpr std::int64_t kLongestWait = 1000;
  while (true) {
    // The terminal was given back where the command has been stopped.
    SetKeys();
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
    const auto wait = std::clamp<std::int64_t>(left.count(), 0, kLongestWait);
    std::array<pollfd, 2> wanted{
        {{stop.Get(), POLLIN, 0}, {m_isOn && IsForeground() ? STDIN_FILENO : -1, POLLIN, 0}}};
    if (::poll(wanted.data(), wanted.size(), static_cast<int>(wait)) > 0) {
      if (wanted[0].revents != 0 || TakeKeys()) {
        return true;
      }
    } else if (left.count() <= 0) {
      return false;
    }
  }
}
