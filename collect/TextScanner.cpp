#include "collect/TextScanner.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace {

constexpr bool IsSpace(char letter) { return letter == ' ' || (letter >= '\t' && letter <= '\r'); }
constexpr bool IsDigit(char letter) { return letter >= '0' && letter <= '9'; }

/// Whether a number that no float holds is one next to zero.
bool IsTooSmall(const char* begin, const char* end) {
  double wide = 1;
  const std::from_chars_result result = std::from_chars(begin, end, wide);
  return result.ec == std::errc{} && std::abs(wide) < 1;
}

}  // namespace

void TextScanner::SkipSpace() {
  std::size_t length = 0;
  while (length < m_rest.size() && IsSpace(m_rest[length])) {
    ++length;
  }
  m_rest.remove_prefix(length);
}

bool TextScanner::Number(std::uint64_t& magnitude, bool& negative, bool& overflow) {
  SkipSpace();
  std::size_t at = 0;
  negative = false;
  if (!m_rest.empty() && (m_rest[0] == '-' || m_rest[0] == '+')) {
    negative = m_rest[0] == '-';
    at = 1;
  }
  const std::size_t begin = at;
  magnitude = 0;
  overflow = false;
  for (; at < m_rest.size() && IsDigit(m_rest[at]); ++at) {
    overflow |= __builtin_mul_overflow(magnitude, std::uint64_t{10}, &magnitude);
    overflow |=
        __builtin_add_overflow(magnitude, static_cast<std::uint64_t>(m_rest[at] - '0'), &magnitude);
  }
  m_failed = m_failed || at == begin;
  m_rest.remove_prefix(at);
  return !m_failed;
}

bool TextScanner::Signed(std::int64_t& value) {
  std::uint64_t magnitude = 0;
  bool negative = false;
  bool overflow = false;
  if (!Number(magnitude, negative, overflow)) {
    return false;
  }
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  if (overflow || magnitude > static_cast<std::uint64_t>(kMax)) {
    value = negative ? std::numeric_limits<std::int64_t>::min() : kMax;
  } else {
    value = static_cast<std::int64_t>(magnitude);
    value = negative ? -value : value;
  }
  ++m_count;
  return true;
}

bool TextScanner::Signed(std::int32_t& value) {
  std::int64_t wide = 0;
  if (!Signed(wide)) {
    return false;
  }
  value = static_cast<std::int32_t>(wide);
  return true;
}

bool TextScanner::Unsigned(std::uint64_t& value) {
  std::uint64_t magnitude = 0;
  bool negative = false;
  bool overflow = false;
  if (!Number(magnitude, negative, overflow)) {
    return false;
  }
  if (overflow) {
    value = std::numeric_limits<std::uint64_t>::max();
  } else {
    value = negative ? ~magnitude + 1 : magnitude;
  }
  ++m_count;
  return true;
}

bool TextScanner::Unsigned(std::uint32_t& value) {
  std::uint64_t wide = 0;
  if (!Unsigned(wide)) {
    return false;
  }
  value = static_cast<std::uint32_t>(wide);
  return true;
}

bool TextScanner::Float(float& value) {
  SkipSpace();
  std::string_view text = m_rest;
  if (text.starts_with('+')) {
    text.remove_prefix(1);
  }
  // Names of no number and a second sign, both of which the conversion would take.
  const std::size_t first = text.starts_with('-') && text.size() == m_rest.size() ? 1 : 0;
  if (text.size() <= first || (!IsDigit(text[first]) && text[first] != '.')) {
    m_failed = true;
  }
  if (m_failed) {
    return false;
  }
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, value);
  m_failed = result.ec != std::errc{} && !IsTooSmall(text.data(), result.ptr);
  if (m_failed) {
    return false;
  }
  if (result.ec != std::errc{}) {
    value = 0;
  }
  m_rest = text.substr(static_cast<std::size_t>(result.ptr - text.data()));
  ++m_count;
  return true;
}

bool TextScanner::Letter(char& letter) {
  SkipSpace();
  m_failed = m_failed || m_rest.empty();
  if (m_failed) {
    return false;
  }
  letter = m_rest.front();
  m_rest.remove_prefix(1);
  ++m_count;
  return true;
}

bool TextScanner::Word(std::string_view& word) {
  SkipSpace();
  std::size_t length = 0;
  while (length < m_rest.size() && !IsSpace(m_rest[length])) {
    ++length;
  }
  m_failed = m_failed || length == 0;
  if (m_failed) {
    return false;
  }
  word = m_rest.substr(0, length);
  m_rest.remove_prefix(length);
  ++m_count;
  return true;
}

bool TextScanner::SkipWord() {
  std::string_view word;
  if (!Word(word)) {
    return false;
  }
  --m_count;
  return true;
}

bool TextScanner::SkipNumbers(int times) {
  std::uint64_t magnitude = 0;
  bool negative = false;
  bool overflow = false;
  bool matched = !m_failed;
  for (int done = 0; done < times && matched; ++done) {
    matched = Number(magnitude, negative, overflow);
  }
  return matched;
}
