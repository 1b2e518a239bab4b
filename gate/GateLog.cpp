#include "gate/GateLog.h"

#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "json/TerminalText.h"

void GateLog(const std::string& text) {
  constexpr std::size_t kLongest = 1000;
  const std::string line = "qmt_gate: " + ShownBegin(text, kLongest) + '\n';
  for (std::string_view left = line; !left.empty();) {
    const ssize_t written = ::write(STDERR_FILENO, left.data(), left.size());
    if (written < 0 && errno != EINTR) {
      // Who reads no more is no reason to stop.
      return;
    }
    left.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
}
