#include "support/PatternCost.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

namespace {

/// How many elements repetitions may add to those that the pattern spells out, where they stand in
/// one another or leave their number open between two bounds: there the cost grows with the square.
constexpr std::size_t kMaxExpansion = 2000;
/// How many elements there may be with the other ones, which cost no more than they say.
constexpr std::size_t kMaxElements = 32767;
/// How many anchors ("^", "\b") there may be in what is repeated and may stand for nothing, copies
/// included: each way from one to another is written out, so one more doubles the time.
constexpr std::size_t kMostAnchors = 8;
constexpr std::size_t kTooLarge = 1000000;

/// The elements that a part of an expression has once its repetitions are written out.
struct Expansion {
  std::size_t nested = 0;
  std::size_t plain = 0;  ///< of single elements with one bound
  /// Something in it may stand for nothing. Loops over that cost the square of what they say.
  bool mayBeEmpty = false;
  bool isNothing = true;        ///< all of it may stand for nothing
  bool hasEmptyBranch = false;  ///< or one of those before a "|" may
  std::size_t anchors = 0;

  [[nodiscard]] std::size_t All() const { return std::min(nested + plain, kTooLarge); }
  void Add(const Expansion& other) {
    nested = std::min(nested + other.nested, kTooLarge);
    plain = std::min(plain + other.plain, kTooLarge);
    mayBeEmpty = mayBeEmpty || other.mayBeEmpty;
    isNothing = isNothing && other.isNothing;
    anchors = std::min(anchors + other.anchors, kTooLarge);
  }
  void EndBranch() {
    hasEmptyBranch = hasEmptyBranch || isNothing;
    mayBeEmpty = mayBeEmpty || isNothing;
    isNothing = true;
  }
};

/// Walks through an expression and counts its elements.
class ExpansionCounter {
 public:
  ExpansionCounter(std::string_view pattern, bool isExtended)
      : m_pattern(pattern), m_isExtended(isExtended) {}

  [[nodiscard]] Expansion Count() {
    for (m_at = 0; m_at < m_pattern.size(); ++m_at) {
      Element();
    }
    while (m_open.size() > 1) {
      Close();
    }
    m_open.back().Add(m_last);
    return m_open.back();
  }
  /// Known after the count.
  [[nodiscard]] bool HasBackReference() const { return m_hasBackReference; }
  [[nodiscard]] bool HasTooManyAnchors() const { return m_hasTooManyAnchors; }

 private:
  void Element() {
    const bool isEscaped = m_pattern[m_at] == '\\' && m_at + 1 < m_pattern.size();
    m_at += isEscaped ? 1 : 0;
    const char c = m_pattern[m_at];
    const bool isOperator = isEscaped != m_isExtended;
    m_hasBackReference = m_hasBackReference || (isEscaped && c >= '1' && c <= '9');
    if (c == '[' && !isEscaped) {
      SkipBracket();
      Atom(1);
    } else if (isOperator && c == '(') {
      Atom(1);
      m_open.emplace_back();
      m_last = {};
    } else if (isOperator && c == ')' && m_open.size() > 1) {
      Close();
    } else if (isOperator && c == '{') {
      Repeat(ReadBound());
    } else if (isOperator && c == '+') {
      Repeat({2, false, true, false});  // one copy that must be there and one that may repeat
    } else if ((isOperator && c == '?') || (!isEscaped && c == '*')) {
      RepeatAnchors(c == '*' ? 2 : 1);
      MakeOptional();
    } else if (isOperator && c == '|') {
      m_open.back().Add(std::exchange(m_last, {}));
      m_open.back().EndBranch();
    } else {
      Atom(1);
      if (std::string_view(isEscaped ? "bB<>`'" : "^$").find(c) != std::string_view::npos) {
        m_last.anchors = 1;
        MakeOptional();
      }
    }
  }
  void Atom(std::size_t size) {
    m_open.back().Add(m_last);
    m_last = {.nested = size, .isNothing = false};
  }
  void MakeOptional() { m_last.mayBeEmpty = m_last.isNothing = true; }
  struct Bound {
    std::size_t times;
    bool isRange;
    bool isOpen;
    bool mayBeNone;
  };
  void Repeat(const Bound& bound) {
    RepeatAnchors(bound.times);
    if (bound.times > 1 && !bound.isRange && m_last.nested == 1 && m_last.plain == 0) {
      m_last.plain = bound.times;
    } else if (bound.times != 1) {
      const std::size_t copies = bound.times * (bound.isOpen && m_last.mayBeEmpty ? 2 : 1);
      m_last.nested = std::min(m_last.All() * copies, kTooLarge);
      m_last.plain = 0;
    }
    if (bound.mayBeNone) {
      MakeOptional();
    }
  }
  void RepeatAnchors(std::size_t times) {
    if (m_last.isNothing && times > 1) {
      m_last.anchors = std::min(m_last.anchors * times, kTooLarge);
      m_hasTooManyAnchors = m_hasTooManyAnchors || m_last.anchors > kMostAnchors;
    }
  }
  void Close() {
    Expansion size = m_open.back();
    size.Add(m_last);
    size.isNothing = size.isNothing || std::exchange(size.hasEmptyBranch, false);
    size.mayBeEmpty = size.mayBeEmpty || size.isNothing;
    size.Add({.nested = 1});
    m_open.pop_back();
    m_last = size;
  }
  /// The larger of the two bounds, and 1 more for an open end.
  Bound ReadBound() {
    Bound bound{1, false, false, true};
    std::size_t number = 0;
    bool isSecond = false;
    while (m_at + 1 < m_pattern.size() && std::strchr("0123456789,", m_pattern[m_at + 1])) {
      const char c = m_pattern[++m_at];
      bound.mayBeNone = bound.mayBeNone && (isSecond || c == ',' || c == '0');
      bound.isRange = bound.isRange || (isSecond && c != ',');
      isSecond = isSecond || c == ',';
      bound.isOpen = c == ',';
      number = c == ',' ? 0 : std::min(number * 10 + static_cast<std::size_t>(c - '0'), kTooLarge);
      bound.times = std::max(bound.times, c == ',' ? bound.times + 1 : number);
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
  std::vector<Expansion> m_open{1};  ///< of the open groups, without their last element
  Expansion m_last;
  bool m_hasBackReference = false;
  bool m_hasTooManyAnchors = false;
};

}  // namespace

PatternCost CostOf(std::string_view pattern, bool isExtended) {
  ExpansionCounter counter(pattern, isExtended);
  const Expansion expansion = counter.Count();
  return {counter.HasTooManyAnchors() || expansion.nested > pattern.size() + kMaxExpansion ||
              expansion.All() > pattern.size() + kMaxElements,
          counter.HasBackReference()};
}
