#pragma once

#include <regex.h>

#include <cstddef>
#include <memory>
#include <string>

#include "support/UtlError.h"

/// A POSIX extended regular expression. A pattern that ends in "/i" ignores case.
///
/// A pattern that does not compile is reported and tried again, as a basic expression that heeds
/// case, at the first match; if that fails too, every match reports it and fails. An expression
/// whose nested repetitions would expand to thousands of elements counts as one that does not
/// compile: the C library would spend gigabytes on it. One with a back reference sees only the
/// beginning of a text: its time may grow with a high power of the length.
class RegExp {
 public:
  /// What an expression with a back reference sees of a text, in bytes.
  static constexpr std::size_t kBackReferenceReach = 256;

  explicit RegExp(const char* pattern);
  /// Compiles anew.
  RegExp(const RegExp& other);
  RegExp& operator=(const RegExp&) = delete;
  ~RegExp() = default;

  /// 1 if the expression matches somewhere in the text, else 0. The text "^" always matches, a null
  /// one never. `isCut` tells that the text is the beginning of a longer one, whose end "$" must
  /// not take its own for.
  [[nodiscard]] int match(const char* text, bool isCut = false) const;

  /// The pattern as it was given, with its "/i".
  [[nodiscard]] const std::string& Pattern() const { return m_pattern; }
  [[nodiscard]] bool IsCompiled() const { return m_compiled != nullptr; }
  /// Why the pattern is no extended expression, in the C library's words; empty if it is one.
  [[nodiscard]] const std::string& CompileError() const { return m_compileError; }
  /// The failure of the last match, or null. Owned by the expression.
  [[nodiscard]] UtlError* Failure() const { return m_failure.get(); }

 private:
  struct Free {
    void operator()(regex_t* expression) const {
      ::regfree(expression);
      delete expression;
    }
  };

  /// 0 or the code of `regcomp`, which is reported.
  int Compile(const std::string& pattern) const;
  [[nodiscard]] std::string PlainPattern() const;

  std::string m_pattern;
  bool m_hasBackReference;
  // A match may compile.
  mutable int m_flags = REG_EXTENDED | REG_NOSUB;
  /// Of the second attempt, which gives the same each time; set where none is to be made.
  mutable int m_secondCode = 0;
  mutable int m_errno = 0;  ///< as the last compilation left it
  mutable std::unique_ptr<regex_t, Free> m_compiled;
  mutable std::string m_compileError;
  mutable std::unique_ptr<UtlError> m_failure;
};
