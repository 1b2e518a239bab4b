#include "support/RegExp.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "support/TraceLog.h"

namespace {

/// How many elements repetitions may add to those that the pattern spells out.
constexpr std::size_t kMaxExpansion = 2000;
constexpr std::size_t kTooLarge = 1000000;

bool IgnoresCase(std::string_view pattern) {
  return pattern.size() >= 2 && pattern.substr(pattern.size() - 2) == "/i";
}

/// Counts the elements that an expression has once its repetitions are written out.
class ExpansionCounter {
 public:
  ExpansionCounter(std::string_view pattern, bool isExtended)
      : m_pattern(pattern), m_isExtended(isExtended) {}

  [[nodiscard]] std::size_t Count() {
    for (m_at = 0; m_at < m_pattern.size(); ++m_at) {
      Element();
    }
    while (m_open.size() > 1) {
      Close();
    }
    return m_open.back() + m_last;
  }

 private:
  void Element() {
    const bool isEscaped = m_pattern[m_at] == '\\' && m_at + 1 < m_pattern.size();
    m_at += isEscaped ? 1 : 0;
    const char c = m_pattern[m_at];
    const bool isOperator = isEscaped != m_isExtended;
    if (c == '[' && !isEscaped) {
      SkipBracket();
      Atom(1);
    } else if (isOperator && c == '(') {
      Atom(1);
      m_open.push_back(0);
      m_last = 0;
    } else if (isOperator && c == ')' && m_open.size() > 1) {
      Close();
    } else if (isOperator && c == '{') {
      Repeat(ReadBound());
    } else if (isOperator && c == '+') {
      Repeat(2);  // one copy that must be there and one that may repeat
    } else if (!(isOperator && (c == '?' || c == '|')) && (isEscaped || c != '*')) {
      Atom(1);
    }
  }
  void Atom(std::size_t size) {
    m_open.back() = std::min(m_open.back() + m_last, kTooLarge);
    m_last = size;
  }
  void Repeat(std::size_t times) { m_last = std::min(m_last * times, kTooLarge); }
  void Close() {
    const std::size_t size = m_open.back() + m_last + 1;
    m_open.pop_back();
    m_last = std::min(size, kTooLarge);
  }
  /// The larger of the two bounds, and 1 more for an open end.
  std::size_t ReadBound() {
    std::size_t bound = 1;
    std::size_t number = 0;
    while (m_at + 1 < m_pattern.size() && std::strchr("0123456789,", m_pattern[m_at + 1])) {
      const char c = m_pattern[++m_at];
      number = c == ',' ? 0 : std::min(number * 10 + static_cast<std::size_t>(c - '0'), kTooLarge);
      bound = std::max(bound, c == ',' ? bound + 1 : number);
    }
    for (const std::string_view end : {"}", "\\}"}) {
      if (m_pattern.substr(m_at + 1).starts_with(end)) {
        m_at += end.size();
      }
    }
    return bound;
  }
  void SkipBracket() {
    std::size_t end = m_at + 1;
    end += m_pattern.substr(end).starts_with('^') ? 1 : 0;
    // A bracket right here stands for itself.
    end += m_pattern.substr(end).starts_with(']') ? 1 : 0;
    while (end < m_pattern.size() && m_pattern[end] != ']') {
      end = AfterBracketUnit(end);
    }
    m_at = end < m_pattern.size() ? end : m_at;
  }
  /// Behind the character at `at`, or behind the class, symbol or equivalence ("[:alpha:]") there.
  [[nodiscard]] std::size_t AfterBracketUnit(std::size_t at) const {
    if (m_pattern[at] != '[' || at + 1 >= m_pattern.size() ||
        std::strchr(":.=", m_pattern[at + 1]) == nullptr) {
      return at + 1;
    }
    const char closing[] = {m_pattern[at + 1], ']', '\0'};
    const std::size_t end = m_pattern.find(closing, at + 2);
    return end == std::string_view::npos ? at + 1 : end + 2;
  }

  std::string_view m_pattern;
  bool m_isExtended;
  std::size_t m_at = 0;
  std::vector<std::size_t> m_open{0};  ///< sizes of the open groups, without their last element
  std::size_t m_last = 0;
};

bool HasBackReference(std::string_view pattern) {
  for (std::size_t at = 0; at + 1 < pattern.size(); ++at) {
    if (pattern[at] == '\\' && std::strchr("123456789", pattern[++at]) != nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace

RegExp::RegExp(const char* pattern)
    : m_pattern(pattern == nullptr ? "" : pattern),
      m_hasBackReference(HasBackReference(m_pattern)) {
  if (IgnoresCase(m_pattern)) {
    m_flags |= REG_ICASE;
  }
  Compile(PlainPattern());
}

RegExp::RegExp(const RegExp& other) : RegExp(other.m_pattern.c_str()) {}

std::string RegExp::PlainPattern() const {
  return m_pattern.substr(0, m_pattern.size() - (IgnoresCase(m_pattern) ? 2 : 0));
}

int RegExp::Compile(const std::string& pattern) const {
  auto expression = std::make_unique<regex_t>();
  const bool isExtended = (m_flags & REG_EXTENDED) != 0;
  int code = REG_ESPACE;
  errno = ENOMEM;
  if (ExpansionCounter(pattern, isExtended).Count() <= pattern.size() + kMaxExpansion) {
    errno = 0;
    code = ::regcomp(expression.get(), pattern.c_str(), m_flags);
  } else {
    // As a basic expression it would mean something else.
    m_secondCode = code;
  }
  m_errno = errno;
  if (code == 0) {
    m_compiled.reset(expression.release());
    return 0;
  }
  std::array<char, 128> words{};
  ::regerror(code, expression.get(), words.data(), words.size());
  if (m_compileError.empty()) {
    m_compileError = words.data();
  }
  m_flags = 0;
  Message(10100, "regcomp", code, AddressOf(this), pattern, m_flags);
  return code;
}

int RegExp::match(const char* text) const {
  if (text == nullptr) {
    return 0;
  }
  if (std::strcmp(text, "^") == 0) {
    return 1;
  }
  if (!IsCompiled()) {
    const std::string pattern = PlainPattern();
    if (m_secondCode != 0) {
      Message(10100, "regcomp", m_secondCode, AddressOf(this), pattern, m_flags);
    } else {
      m_secondCode = Compile(pattern);
    }
    if (!IsCompiled()) {
      m_failure = std::make_unique<UtlError>(__FILE__, __LINE__);
      m_failure->GetStream() << "Unable to compile regex " << pattern << " (" << m_errno << ")\n";
      m_failure->CloseStream();
      return 0;
    }
  }
  const auto matches = [this](const char* subject) {
    return ::regexec(m_compiled.get(), subject, 0, nullptr, 0) == 0 ? 1 : 0;
  };
  return m_hasBackReference
             ? matches(std::string(text, ::strnlen(text, kBackReferenceReach)).c_str())
             : matches(text);
}
