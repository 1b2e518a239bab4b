// Texts of JSON, which come from clients, servers and files, and the conditions and orders by which
// clients choose rows.
#include <algorithm>
#include <cstddef>
#include <map>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>

#include "json/JsonText.h"
#include "json/RowCondition.h"
#include "json/RowOrder.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

constexpr JsonLimits kTextLimits{.depth = 100, .members = 1000};

/// Gives a few bytes at a time.
class PieceStream : public std::streambuf {
 public:
  explicit PieceStream(std::string_view text) : m_text(text) {}

 protected:
  int_type underflow() override {
    constexpr std::size_t kPieceBytes = 3;
    char* const next = egptr() == nullptr ? m_text.data() : egptr();
    const auto left = static_cast<std::size_t>(m_text.data() + m_text.size() - next);
    setg(next, next, next + std::min(left, kPieceBytes));
    return left == 0 ? traits_type::eof() : traits_type::to_int_type(*next);
  }

 private:
  std::string m_text;
};

/// Rows that are taken as they come are those of the whole value, and the rest of it is the same.
void TakeRows(std::string_view text, const ParsedJson& whole) {
  std::map<std::size_t, Json> rows;  // by the place of the result
  Json* current = nullptr;
  const JsonRowTaker taker{[&](const Json& answer, std::size_t place, const Json& result) {
                             Require(answer.IsObject() && result.IsObject());
                             current = &rows[place];
                             *current = Json::Array();
                           },
                           [&](Json row) {
                             Require(current != nullptr);
                             current->PushBack(std::move(row));
                           }};
  PieceStream bytes(text);
  ParsedJson parsed = ParseJsonRows(bytes, kTextLimits, taker);
  Require(parsed.fault == whole.fault);
  Json* results = parsed.value.Find("results");
  for (std::size_t i = 0; results != nullptr && results->IsArray() && i < results->Size(); ++i) {
    Json* left = (*results)[i].Find("rows");
    if (left != nullptr && left->IsArray()) {
      Require(left->Size() == 0 && rows.contains(i));
      *left = std::move(rows[i]);
    }
  }
  Require(parsed.value == whole.value);
}

/// What is read, written and read again is the same value.
void TakeText(std::string_view text) {
  const ParsedJson parsed = ParseJson(text, kTextLimits);
  TakeRows(text, parsed);
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
