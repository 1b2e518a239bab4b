#include "local/alarm/ConditionRange.h"

#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace {

/// The values of one field that are left by the conditions so far.
struct LeftValues {
  double low = -std::numeric_limits<double>::infinity();
  double high = std::numeric_limits<double>::infinity();
  bool isLowOut = false;  ///< `low` itself is none of them
  bool isHighOut = false;
  std::set<double> otherThan;
  std::optional<std::string> text;
  std::set<std::string> otherTexts;
  bool isNone = false;

  void Below(double bound, bool isOut) {
    if (bound < high || (bound == high && isOut)) {
      high = bound;
      isHighOut = isOut;
    }
  }
  void Above(double bound, bool isOut) {
    if (bound > low || (bound == low && isOut)) {
      low = bound;
      isLowOut = isOut;
    }
  }
  [[nodiscard]] bool IsEmpty() const {
    return isNone || low > high ||
           (low == high && (isLowOut || isHighOut || otherThan.contains(low))) ||
           (text && otherTexts.contains(*text));
  }
};

void TakeNumber(LeftValues& left, std::string_view sign, double number) {
  if (sign == "=" || sign == ">=" || sign == ">") {
    left.Above(number, sign == ">");
  }
  if (sign == "=" || sign == "<=" || sign == "<") {
    left.Below(number, sign == "<");
  }
  if (sign == "!=") {
    left.otherThan.insert(number);
  }
}

void TakeText(LeftValues& left, const RowCondition& condition) {
  if (condition.Sign() == "!=") {
    left.otherTexts.insert(condition.Operand());
  } else if (condition.Sign() == "=") {
    left.isNone = left.isNone || (left.text && *left.text != condition.Operand());
    left.text = condition.Operand();
  }
}

bool IsNeverNegative(const FieldLayout& field) {
  return field.type == FieldType::kUshort || field.type == FieldType::kUlong ||
         field.meaning == FieldMeaning::percent || field.meaning == FieldMeaning::counter;
}

}  // namespace

bool MayHold(std::span<const RowCondition> conditions, const RecordLayout& layout,
             bool isPredicted) {
  std::map<std::size_t, LeftValues> fields;
  for (const RowCondition& condition : conditions) {
    const std::size_t place = condition.Field().place;
    LeftValues& left = fields[place];
    if (!condition.IsNumeric()) {
      TakeText(left, condition);
      continue;
    }
    if (!isPredicted && IsNeverNegative(layout.fields[place])) {
      left.Above(0, false);
    }
    TakeNumber(left, condition.Sign(), condition.Number());
  }
  for (const auto& [place, left] : fields) {
    if (left.IsEmpty()) {
      return false;
    }
  }
  return true;
}
