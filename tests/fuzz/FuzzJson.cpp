// Texts of JSON, which come from clients, servers and files, and the conditions and orders by which
// clients choose rows.
#include <stdexcept>
#include <string>
#include <string_view>

#include "json/JsonText.h"
#include "json/RowCondition.h"
#include "json/RowOrder.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// What is read, written and read again is the same value.
void TakeText(std::string_view text) {
  const ParsedJson parsed = ParseJson(text, {.depth = 100, .members = 1000});
  Require((parsed.fault == JsonFault::kNone) || parsed.value.IsNull());
  Require((parsed.fault == JsonFault::kSyntax) == !parsed.words.empty());
  if (parsed.fault != JsonFault::kNone) {
    return;
  }
  Require(IsUtf8(parsed.value));
  for (const int indent : {-1, 2}) {
    const ParsedJson again = ParseJson(JsonText(parsed.value, indent));
    Require(again.fault == JsonFault::kNone && again.value == parsed.value);
  }
}

RowField FieldOf(std::string_view label) {
  if (label.empty() || label.size() > 8) {
    throw std::invalid_argument("no such label");
  }
  return {std::string(label), 0, label[0] == 'n' || label[0] == 't', label[0] == 't'};
}

/// A condition holds for a value or its opposite does, where the value is there.
void TakeCondition(std::string_view text) {
  const Json values[] = {nullptr, "", "some text", 0, -1.5, 1700000000, true};
  try {
    const RowCondition condition(text, FieldOf);
    for (const Json& value : values) {
      const bool holds = condition.Holds(value);
      Require(!value.IsNull() || holds == (condition.Sign() == "!=") || condition.Sign() == "!~");
    }
  } catch (const std::invalid_argument&) {
  }
}

void TakeOrder(std::string_view text) {
  const RowOrder order(text, FieldOf, [](std::string_view label) { return label.size() == 3; });
  const Json values[] = {nullptr, "a", "b", -1, 2.5};
  for (const Json& left : values) {
    for (const Json& right : values) {
      Require(order.Compare(left, right) == (0 <=> order.Compare(right, left)));
    }
  }
}

}  // namespace

/// The first byte, a digit in the seeds, chooses what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  switch (input.Byte() % 4) {
    case 0:
    case 1:
      TakeText(input.Rest());
      break;
    case 2:
      TakeCondition(input.Rest());
      break;
    default:
      try {
        TakeOrder(input.Rest());
      } catch (const std::invalid_argument&) {
      }
  }
  return 0;
}
