#include "client/Terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <system_error>

#include "client/Errors.h"

namespace {

constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kPlain = "\x1b[0m";

struct Character {
  char32_t code = 0;
  std::size_t bytes = 1;
  bool valid = false;
};

/// The first character of a text that is not empty; one byte, not valid, if it is no UTF-8.
Character Decode(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) {
    return {first, 1, true};
  }
  const std::size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < bytes) {
    return {first, 1, false};
  }
  char32_t code = first & (0x7Fu >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    if ((byte(i) & 0xC0u) != 0x80u) {
      return {first, 1, false};
    }
    code = (code << 6) | (byte(i) & 0x3Fu);
  }
  constexpr std::array<char32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < kLeast.at(bytes) || code > 0x10FFFF || surrogate ? Character{first, 1, false}
                                                                 : Character{code, bytes, true};
}

bool TurnsDirection(char32_t code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

/// Columns of one character, -1 for one that is not to be shown.
int CharacterWidth(char32_t code) {
  if (code < 0x20 || (code >= 0x7F && code < 0xA0) || TurnsDirection(code)) {
    return -1;
  }
  if (code < 0x7F) {
    return 1;
  }
  static const bool utf8 = std::setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  return utf8 ? ::wcwidth(static_cast<wchar_t>(code)) : 1;
}

void AppendEscaped(std::string& out, const Character& character) {
  std::array<char, 16> text;
  const auto code = static_cast<unsigned>(character.code);
  const int length = code < 0x80 || !character.valid
                         ? std::snprintf(text.data(), text.size(), "\\x%02X", code)
                         : std::snprintf(text.data(), text.size(), "\\u{%04X}", code);
  out.append(text.data(), static_cast<std::size_t>(length));
}

sigset_t StopSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
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

std::string SafeText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const Character character = Decode(text);
    if (character.valid && CharacterWidth(character.code) >= 0) {
      out += text.substr(0, character.bytes);
    } else {
      AppendEscaped(out, character);
    }
    text.remove_prefix(character.bytes);
  }
  return out;
}

std::size_t TextWidth(std::string_view text) {
  std::size_t width = 0;
  while (!text.empty()) {
    const Character character = Decode(text);
    width += static_cast<std::size_t>(std::max(CharacterWidth(character.code), 0));
    text.remove_prefix(character.bytes);
  }
  return width;
}

std::string Emphasize(const std::string& text, const Screen& screen) {
  return screen.color ? std::string(kBold) + text + std::string(kPlain) : text;
}

std::string Dim(const std::string& text, const Screen& screen) {
  return screen.color ? std::string(kDim) + text + std::string(kPlain) : text;
}

std::string_view CutText(std::string_view text, std::size_t width) {
  std::size_t used = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    const std::string_view rest = text.substr(i);
    if (rest.starts_with(kBold) || rest.starts_with(kDim) || rest.starts_with(kPlain)) {
      i += kBold.size();
      continue;
    }
    const Character character = Decode(rest);
    used += static_cast<std::size_t>(std::max(CharacterWidth(character.code), 0));
    if (used > width) {
      break;
    }
    i += character.bytes;
  }
  return text.substr(0, i);
}

std::string Frame(std::string_view text, const Screen& screen) {
  std::string out = "\x1b[H\x1b[J";
  for (std::size_t lines = 1; !text.empty(); ++lines) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (lines == screen.height && !text.empty()) {
      return out + "...";
    }
    out += CutText(line, screen.width);
    if (screen.color) {
      out += kPlain;
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

void Complain(std::string_view words) {
  const std::string line = "qmtctl: " + SafeText(words) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}
