#include "client/show/Terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/show/TerminalCodes.h"
#include "json/JsonText.h"
#include "json/TerminalText.h"

namespace {

sigset_t StopSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

/// Bytes of the code of emphasis that the text begins with; 0 for none.
std::size_t CodeSize(std::string_view text) {
  const TerminalCodes& codes = OutputCodes();
  for (const std::string* code : {&codes.bold, &codes.dim, &codes.plain}) {
    if (!code->empty() && text.starts_with(*code)) {
      return code->size();
    }
  }
  return 0;
}

}  // namespace

bool WritesToTerminal() { return ::isatty(STDOUT_FILENO) == 1; }

Screen ReadScreen(ColorMode mode) {
  const auto variable = [](const char* name) {
    const char* value = std::getenv(name);
    return std::string_view(value == nullptr ? "" : value);
  };
  Screen screen;
  if (WritesToTerminal()) {
    winsize size{};
    const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    screen.width = known ? size.ws_col : 80;
    screen.height = known && size.ws_row != 0 ? size.ws_row : 24;
    screen.redraws = variable("TERM") != "dumb";
    screen.color = screen.redraws && variable("NO_COLOR").empty();
  }
  if (mode != ColorMode::kAuto) {
    screen.color = mode == ColorMode::kAlways;
  }
  return screen;
}

std::string Emphasize(const std::string& text, const Screen& screen) {
  return screen.color ? OutputCodes().bold + text + OutputCodes().plain : text;
}

std::string Dim(const std::string& text, const Screen& screen) {
  return screen.color ? OutputCodes().dim + text + OutputCodes().plain : text;
}

std::string_view CutText(std::string_view text, std::size_t width) {
  std::size_t used = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    const std::string_view rest = text.substr(i);
    if (const std::size_t code = CodeSize(rest); code != 0) {
      i += code;
      continue;
    }
    const TextStep step = FirstCharacter(rest);
    used += step.columns;
    if (used > width) {
      break;
    }
    i += step.bytes;
  }
  return text.substr(0, i);
}

std::string Frame(std::string_view text, const Screen& screen) {
  std::string out = OutputCodes().clear;
  for (std::size_t lines = 1; !text.empty(); ++lines) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (lines == screen.height && !text.empty()) {
      return out + "...";
    }
    out += CutText(line, screen.width);
    if (screen.color) {
      out += OutputCodes().plain;
    }
    if (!text.empty()) {
      out += '\n';
    }
  }
  return out;
}

StopSignals::StopSignals() {
  const sigset_t set = StopSet();
  if (::sigprocmask(SIG_BLOCK, &set, nullptr) == 0) {
    m_descriptor = Descriptor(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  if (!m_descriptor.IsOpen()) {
    throw ClientError("cannot wait for signals: " + std::generic_category().message(errno));
  }
}

bool StopSignals::WaitUntil(std::chrono::steady_clock::time_point time) const {
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
    const auto bounded = std::clamp<std::int64_t>(left.count(), 0, 60'000);
    pollfd wanted{m_descriptor.Get(), POLLIN, 0};
    if (::poll(&wanted, 1, static_cast<int>(bounded)) > 0) {
      return true;
    }
    if (left.count() <= 0) {
      return false;
    }
  }
}

void WriteOutput(std::string_view text, int stop) {
  // A pipe that is ready takes this much without making the writer wait.
  constexpr std::size_t kChunk = 4096;
  while (!text.empty()) {
    std::array<pollfd, 2> wanted{{{STDOUT_FILENO, POLLOUT, 0}, {stop, POLLIN, 0}}};
    if (::poll(wanted.data(), wanted.size(), -1) < 0) {
      continue;
    }
    if (wanted[1].revents != 0 && (wanted[0].revents & POLLOUT) == 0) {
      throw Interrupted{};
    }
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), std::min(text.size(), kChunk));
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EPIPE) {
      throw OutputClosed{};
    } else if (errno != EINTR && errno != EAGAIN) {
      throw ClientError("cannot write the output: " + std::generic_category().message(errno));
    }
  }
}

std::string ShownJson(const Json& value, int indent, bool isForTerminal) {
  std::string text = JsonText(value, indent);
  return isForTerminal ? JsonWithoutSteering(text) : text;
}

void Complain(std::string_view words) {
  const std::string line = "qmtctl: " + SafeText(words) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}
