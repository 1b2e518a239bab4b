#include "json/RowOrder.h"

#include <cmath>

#include "json/RowText.h"

namespace {

/// Where values of a kind stand among those of other kinds.
int KindRank(const Json& value) { return value.IsBool() ? 0 : value.IsNumber() ? 1 : 2; }

template <class Value>
std::weak_ordering OrderOf(const Value& left, const Value& right) {
  return left < right   ? std::weak_ordering::less
         : right < left ? std::weak_ordering::greater
                        : std::weak_ordering::equivalent;
}

/// A true order also where doubles can't tell whole numbers apart: by the double, then whole
/// numbers before others, then the whole number itself.
std::weak_ordering OrderOfNumbers(const Json& left, const Json& right) {
  constexpr double kExact = 9007199254740992;  // 2 to the 53rd
  const double a = left.Number();
  const double b = right.Number();
  if (const auto order = OrderOf(a, b); order != 0 || std::fabs(a) < kExact) {
    return order;
  }
  if (!left.IsWhole() || !right.IsWhole()) {
    return OrderOf(left.IsReal(), right.IsReal());
  }
  return a < 0 ? OrderOf(left.Whole(), right.Whole()) : OrderOf(left.Unsigned(), right.Unsigned());
}

/// The order of two plain values, neither null.
std::weak_ordering OrderOfValues(const Json& left, const Json& right) {
  if (const auto order = OrderOf(KindRank(left), KindRank(right)); order != 0) {
    return order;
  }
  if (left.IsString()) {
    return OrderOf(left.Text(), right.Text());
  }
  return left.IsBool() ? OrderOf(left.Bool(), right.Bool()) : OrderOfNumbers(left, right);
}

}  // namespace

RowOrder::RowOrder(std::string_view text, const FieldFinder& find,
                   const std::function<bool(std::string_view)>& hasField) {
  text = Trimmed(text);
  const bool isSigned = (text.starts_with('+') || text.starts_with('-')) && !hasField(text);
  m_field = find(isSigned ? Trimmed(text.substr(1)) : text);
  m_isDescending = isSigned ? text.front() == '-' : m_field.isNumeric;
}

std::weak_ordering RowOrder::Compare(const Json& left, const Json& right) const {
  if (left.IsNull() || right.IsNull()) {
    return OrderOf(left.IsNull(), right.IsNull());
  }
  return m_isDescending ? OrderOfValues(right, left) : OrderOfValues(left, right);
}
