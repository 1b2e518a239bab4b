#include "support/RegExp.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/PatternCost.h"
#include "support/TraceLog.h"

namespace {

bool IgnoresCase(std::string_view pattern) {
  return pattern.size() >= 2 && pattern.substr(pattern.size() - 2) == "/i";
}

}  // namespace

RegExp::RegExp(const char* pattern)
    : m_pattern(pattern == nullptr ? "" : pattern),
      m_hasBackReference(CostOf(m_pattern, true).hasBackReference) {
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
  if (!CostOf(pattern, isExtended).isTooLarge) {
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

int RegExp::match(const char* text, bool isCut) const {
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
  const auto matches = [this](const char* subject, bool isPart) {
    return ::regexec(m_compiled.get(), subject, 0, nullptr, isPart ? REG_NOTEOL : 0) == 0 ? 1 : 0;
  };
  const std::size_t reach = ::strnlen(text, kBackReferenceReach);
  return m_hasBackReference && text[reach] != '\0' ? matches(std::string(text, reach).c_str(), true)
                                                   : matches(text, isCut);
}
