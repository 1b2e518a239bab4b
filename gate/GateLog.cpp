#include "gate/GateLog.h"

#include <unistd.h>

#include "json/JsonText.h"

void GateLog(const std::string& text) {
  constexpr std::size_t kLongest = 1000;
  std::string line = "qmt_gate: " + ValidUtf8(text.substr(0, kLongest));
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') {
      c = '?';
    }
  }
  line += '\n';
  // Who reads no more is no reason to stop.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
}
