#include "collect/TextScanner.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace {

/// Tells letters and digits from white space with one comparison.
constexpr bool IsGraphic(char letter) { return static_cast<unsigned char>(letter) > ' '; }
constexpr bool IsSpace(char letter) {
  return !IsGraphic(letter) && (letter == ' ' || (letter >= '\t' && letter <= '\r'));
}
/// Control characters stand in words, but for the NUL, which ends the text.
constexpr bool IsInWord(char letter) {
  return IsGraphic(letter) || (!IsSpace(letter) && letter != '\0');
}
/// What a character stands for as a digit; above 9 for another one.
constexpr std::uint32_t DigitOf(char letter) {
  return static_cast<std::uint32_t>(static_cast<unsigned char>(letter)) - '0';
}
constexpr bool IsDigit(char letter) { return DigitOf(letter) <= 9; }

inline const char* AfterSpace(const char* at, const char* end) {
  while (at != end && IsSpace(*at)) {
    ++at;
  }
  return at;
}
inline const char* AfterSign(const char* at, const char* end) {
  return at != end && (*at == '-' || *at == '+') ? at + 1 : at;
}

/// So many digits fit into 64 bits in any case.
constexpr std::ptrdiff_t kSafeDigits = 19;

/// Whether 64 bits are too few for a row of digits.
bool Overflows(const char* begin, const char* end) {
  std::uint64_t sum = 0;
  bool overflow = false;
  for (const char* at = begin; at != end && !overflow; ++at) {
    overflow = __builtin_mul_overflow(sum, std::uint64_t{10}, &sum) ||
               __builtin_add_overflow(sum, std::uint64_t{DigitOf(*at)}, &sum);
  }
  return overflow;
}

/// Whether a number that no float holds is one next to zero.
bool IsTooSmall(const char* begin, const char* end) {
  double wide = 1;
  const std::from_chars_result result = std::from_chars(begin, end, wide);
  return result.ec == std::errc{} && std::abs(wide) < 1;
}

}  // namespace

/// A decimal number with its sign apart.
struct TextScanner::Digits {
  std::uint64_t magnitude;
  bool negative;
  bool overflow;
};

inline void TextScanner::SkipSpace() { m_at = AfterSpace(m_at, m_end); }

inline bool TextScanner::SkipSign() {
  SkipSpace();
  const char* const sign = m_at;
  m_at = AfterSign(sign, m_end);
  return m_at != sign && *sign == '-';
}

inline TextScanner::Digits TextScanner::TakeNumber() {
  Digits digits{0, SkipSign(), false};
  const char* const begin = m_at;
  const char* at = begin;
  for (; at != m_end && IsDigit(*at); ++at) {
    digits.magnitude = digits.magnitude * 10 + DigitOf(*at);
  }
  if (at - begin > kSafeDigits) {
    digits.overflow = Overflows(begin, at);
  }
  m_at = at;
  if (at == begin || m_failed) {
    m_failed = true;
  } else {
    ++m_count;
  }
  return digits;
}

bool TextScanner::Signed(std::int64_t& value) {
  const Digits digits = TakeNumber();
  if (m_failed) {
    return false;
  }
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  if (digits.overflow || digits.magnitude > static_cast<std::uint64_t>(kMax)) {
    value = digits.negative ? std::numeric_limits<std::int64_t>::min() : kMax;
  } else {
    value = static_cast<std::int64_t>(digits.magnitude);
    value = digits.negative ? -value : value;
  }
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
  const Digits digits = TakeNumber();
  if (m_failed) {
    return false;
  }
  if (digits.overflow) {
    value = std::numeric_limits<std::uint64_t>::max();
  } else {
    value = digits.negative ? ~digits.magnitude + 1 : digits.magnitude;
  }
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
  const char* begin = m_at;
  if (begin != m_end && *begin == '+') {
    ++begin;
  }
  // Names of no number and a second sign, both of which the conversion would take.
  const char* first = begin == m_at && begin != m_end && *begin == '-' ? begin + 1 : begin;
  if (first == m_end || (!IsDigit(*first) && *first != '.')) {
    m_failed = true;
  }
  if (m_failed) {
    return false;
  }
  const std::from_chars_result result = std::from_chars(begin, m_end, value);
  m_failed = result.ec != std::errc{} && !IsTooSmall(begin, result.ptr);
  if (m_failed) {
    return false;
  }
  if (result.ec != std::errc{}) {
    value = 0;
  }
  m_at = result.ptr;
  ++m_count;
  return true;
}

bool TextScanner::Letter(char& letter) {
  SkipSpace();
  m_failed = m_failed || m_at == m_end || *m_at == '\0';
  if (m_failed) {
    return false;
  }
  letter = *m_at++;
  ++m_count;
  return true;
}

bool TextScanner::Literal(char letter) {
  m_failed = m_failed || m_at == m_end || *m_at != letter;
  if (!m_failed) {
    ++m_at;
  }
  return !m_failed;
}

bool TextScanner::Word(std::string_view& word) {
  if (!SkipWord()) {
    return false;
  }
  word = {m_word, m_at};
  ++m_count;
  return true;
}

bool TextScanner::SkipWord() {
  SkipSpace();
  const char* at = m_at;
  while (at != m_end && IsInWord(*at)) {
    ++at;
  }
  m_failed = m_failed || at == m_at;
  m_word = m_at;
  m_at = at;
  return !m_failed;
}

bool TextScanner::SkipNumbers(int times) {
  const char* at = m_at;
  for (; times > 0 && !m_failed; --times) {
    const char* const begin = AfterSign(AfterSpace(at, m_end), m_end);
    for (at = begin; at != m_end && IsDigit(*at);) {
      ++at;
    }
    m_failed = at == begin;
  }
  m_at = at;
  return !m_failed;
}
