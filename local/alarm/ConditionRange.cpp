#include "local/alarm/ConditionRange.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
  std::set<std::string> like;  ///< patterns
  std::set<std::string> unlike;
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

/// What is asked of one field.
struct AskedValue {
  std::size_t place = 0;
  bool isNumeric = false;
  std::string_view sign;
  double number = 0;
  std::string_view text;
};

AskedValue AskedBy(const RowCondition& condition) {
  return {condition.Field().place, condition.IsNumeric(), condition.Sign(), condition.Number(),
          condition.Operand()};
}

/// What is asked where that does not hold.
AskedValue Opposite(AskedValue asked) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kOpposites{
      {{"=", "!="}, {"<", ">="}, {">", "<="}, {"~", "!~"}}};
  for (const auto& [one, other] : kOpposites) {
    if (asked.sign == one || asked.sign == other) {
      asked.sign = asked.sign == one ? other : one;
      break;
    }
  }
  return asked;
}

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

void TakeText(LeftValues& left, std::string_view sign, const std::string& text) {
  if (sign == "!=") {
    left.otherTexts.insert(text);
  } else if (sign == "=") {
    left.isNone = left.isNone || (left.text && *left.text != text);
    left.text = text;
  } else if (sign == "~") {
    left.isNone = left.isNone || left.unlike.contains(text);
    left.like.insert(text);
  } else if (sign == "!~") {
    left.isNone = left.isNone || left.like.contains(text) || text == "*";
    left.unlike.insert(text);
  }
}

bool IsNeverNegative(const FieldLayout& field) {
  return field.type == FieldType::kUshort || field.type == FieldType::kUlong ||
         field.meaning == FieldMeaning::percent || field.meaning == FieldMeaning::counter;
}

bool MayAllBe(const std::vector<AskedValue>& asked, const RecordLayout& layout, bool isPredicted) {
  std::map<std::size_t, LeftValues> fields;
  for (const AskedValue& each : asked) {
    LeftValues& left = fields[each.place];
    if (!each.isNumeric) {
      TakeText(left, each.sign, std::string(each.text));
      continue;
    }
    if (!isPredicted && IsNeverNegative(layout.fields[each.place])) {
      left.Above(0, false);
    }
    TakeNumber(left, each.sign, each.number);
  }
  return std::ranges::none_of(fields, [](const auto& entry) { return entry.second.IsEmpty(); });
}

std::vector<AskedValue> AskedByAll(std::span<const RowCondition> conditions) {
  std::vector<AskedValue> asked;
  std::ranges::transform(conditions, std::back_inserter(asked), AskedBy);
  return asked;
}

}  // namespace

bool MayHold(std::span<const RowCondition> conditions, const RecordLayout& layout,
             bool isPredicted) {
  return MayAllBe(AskedByAll(conditions), layout, isPredicted);
}

bool Implies(std::span<const RowCondition> conditions, std::span<const RowCondition> others,
             const RecordLayout& layout, bool isPredicted) {
  return std::ranges::all_of(others, [&](const RowCondition& other) {
    std::vector<AskedValue> asked = AskedByAll(conditions);
    asked.push_back(Opposite(AskedBy(other)));
    return !MayAllBe(asked, layout, isPredicted);
  });
}
