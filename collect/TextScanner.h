#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Takes fields from a text as the scanf directives of the C locale do, without their cost: each
/// skips white space first. After one that does not match all that follow fail too.
class TextScanner {
 public:
  /// The text ends at its first NUL, if it has one.
  explicit TextScanner(std::string_view text)
      : m_at(text.data()), m_end(text.data() + text.size()) {}

  /// "%ld", a value beyond 64 bits being the nearest one within.
  bool Signed(std::int64_t& value);
  /// The low 32 bits of "%ld".
  bool Signed(std::int32_t& value);
  /// "%lu": a minus sign negates.
  bool Unsigned(std::uint64_t& value);
  /// "%u": the low 32 bits of "%lu".
  bool Unsigned(std::uint32_t& value);
  /// "%f" for decimal numbers that a float can hold; others do not match.
  bool Float(float& value);
  /// " %c"
  bool Letter(char& letter);
  /// A letter of the format that the text has to go on with, without white space before it.
  bool Literal(char letter);
  /// "%s"; the word stays in the text.
  bool Word(std::string_view& word);
  /// "%*d" and "%*lu", `times` times.
  bool SkipNumbers(int times);
  /// "%*s"
  bool SkipWord();

  /// How many values have been taken; what was skipped does not count.
  [[nodiscard]] int Count() const { return m_count; }

 private:
  struct Digits;

  void SkipSpace();
  /// White space and a sign; whether this was a minus.
  bool SkipSign();
  Digits TakeNumber();

  // A NUL before the end matches nothing, so it need not be looked for.
  const char* m_at;
  const char* m_end;
  const char* m_word = nullptr;  ///< begin of the last word
  int m_count = 0;
  bool m_failed = false;
};
