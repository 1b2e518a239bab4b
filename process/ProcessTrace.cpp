#include "process/ProcessTrace.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>

#include "support/OsCalls.h"

void PrintProcessTrace(const char* format, ...) {
  if (!IsProcessTraceOn()) {
    return;
  }
  const std::time_t now = Os().time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S ", &local);
  std::array<char, 500> text{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  std::string line = std::string(time.data()) + text.data();
  std::replace_if(
      line.begin(), line.end(), [](char c) { return (c >= '\0' && c < ' ') || c == '\x7f'; }, '?');
  line += '\n';
  // A pipe that is ready takes a line of this length as a whole.
  ::pollfd output{STDOUT_FILENO, POLLOUT, 0};
  if (::poll(&output, 1, 0) == 1 && (output.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, line.data(), line.size());
  }
}
