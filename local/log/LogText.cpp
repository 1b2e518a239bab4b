#include "local/log/LogText.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace {

constexpr std::string_view kCutMark = "...";
constexpr int kMaxPlaceholder = 5;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0U) == 0x80U; }

/// The length of a UTF-8 sequence by its first byte; 0 if none begins so.
std::size_t SequenceLength(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first < 0xE0) {
    return 2;
  }
  if (first >= 0xE0 && first < 0xF0) {
    return 3;
  }
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

/// The length of the printable character that the text begins with; 0 if it begins with another
/// thing.
std::size_t PrintableLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x20 || first == 0x7F) {
    return 0;
  }
  const std::size_t length = SequenceLength(first);
  if (length == 0 || length > text.size()) {
    return 0;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if (!IsContinuation(byte(i))) {
      return 0;
    }
  }
  if (length == 1) {
    return 1;
  }
  const unsigned char second = byte(1);
  const bool isControl = first == 0xC2 && second < 0xA0;
  const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool isNoCharacter = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  return isControl || isOverlong || isNoCharacter ? 0 : length;
}

void AppendEscape(std::string& out, char c) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  switch (c) {
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      const auto byte = static_cast<unsigned char>(c);
      out += "\\x";
      out += kDigits[byte >> 4U];
      out += kDigits[byte & 0x0FU];
  }
}

}  // namespace

std::string ExpandMessage(const char* format, int argCount, const char* const* args) {
  std::string out;
  const std::string_view text = format == nullptr ? "" : format;
  std::size_t from = 0;
  while (from < text.size()) {
    const std::size_t percent = text.find('%', from);
    out += text.substr(from, percent - from);
    if (percent == std::string_view::npos) {
      break;
    }
    const int slot = percent + 1 < text.size() ? text[percent + 1] - '0' : 0;
    if (slot < 1 || slot > kMaxPlaceholder) {
      out += '%';
      from = percent + 1;
      continue;
    }
    if (slot <= argCount && args != nullptr && args[slot - 1] != nullptr) {
      out += args[slot - 1];
    }
    from = percent + 2;
  }
  return out;
}

void AppendMoment(std::string& out, std::chrono::system_clock::time_point moment) {
  const auto sinceEpoch =
      std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch()).count();
  const auto milliseconds = (sinceEpoch % 1000 + 1000) % 1000;
  const std::time_t seconds = (sinceEpoch - milliseconds) / 1000;
  std::tm local{};
  ::localtime_r(&seconds, &local);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &local);
  out += text.data();
  std::snprintf(text.data(), text.size(), ".%03d", static_cast<int>(milliseconds));
  out += text.data();
  // "+0200"
  std::strftime(text.data(), text.size(), "%z", &local);
  out.append(text.data(), 3).append(":").append(text.data() + 3);
}

void AppendHarmless(std::string& out, std::string_view text, LineEnds lineEnds) {
  while (!text.empty()) {
    const bool isKept = lineEnds == LineEnds::kKeep && text.front() == '\n';
    const std::size_t length = isKept ? 1 : PrintableLength(text);
    if (length == 0) {
      AppendEscape(out, text.front());
      text.remove_prefix(1);
    } else {
      out += text.substr(0, length);
      text.remove_prefix(length);
    }
  }
}

void AppendLine(std::string& out, std::string_view text, std::size_t maxBytes) {
  if (text.ends_with('\n')) {
    text.remove_suffix(1);
  }
  const std::size_t start = out.size();
  AppendHarmless(out, text.substr(0, maxBytes), LineEnds::kEscape);
  if (text.size() <= maxBytes && out.size() - start <= maxBytes) {
    return;
  }
  std::size_t end = start + maxBytes - kCutMark.size();
  while (end > start && IsContinuation(static_cast<unsigned char>(out[end]))) {
    --end;
  }
  out.resize(end);
  out += kCutMark;
}
