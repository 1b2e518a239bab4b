#include "json/Json.h"

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <streambuf>

#include "json/JsonText.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

using Library = nlohmann::ordered_json;

std::string LibraryText(const Library& value, int indent = -1) {
  return value.dump(indent, ' ', false, Library::error_handler_t::replace);
}

TEST(JsonTest, ListsMakeObjectsOfPairsAndArraysOfTheRest) {
  const std::string name = "n";
  std::vector<std::string> texts{"a", "b"};
  Json moved = Json::Array({1, 2});
  const struct {
    Json value;
    const char* text;
  } rows[] = {
      {Json{{"a", 1}, {name, nullptr}}, R"({"a":1,"n":null})"},
      {Json{{"a", 1}, {"a", 2}}, R"({"a":1})"},
      {Json{{"a", 1}, {"b", 2, 3}}, R"([["a",1],["b",2,3]])"},
      {Json{{1, "a"}}, R"([[1,"a"]])"},
      {Json{{"op", "get"}, {"records", {"APP"}}}, R"({"op":"get","records":["APP"]})"},
      {Json{{"pair", {"a", "b"}}}, R"({"pair":["a","b"]})"},
      {Json{{"inner", {{"a", true}}}}, R"({"inner":{"a":true}})"},
      {Json::Array({{"a", 1}}), R"([["a",1]])"},
      {Json::Array({{{"a", 1}}}), R"([{"a":1}])"},
      {Json{{"rows", std::move(moved)}}, R"({"rows":[1,2]})"},
      {Json{{"texts", std::vector<std::vector<std::string>>{texts, {}}}},
       R"({"texts":[["a","b"],[]]})"},
      {Json::Object(), "{}"},
      {Json::Array(), "[]"},
      {Json(), "null"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(JsonText(row.value), row.text);
  }
  EXPECT_TRUE(moved.Elements().empty()) << "lists move what they are given";
}

TEST(JsonTest, KindsAreKeptApart) {
  const Json text = "x";
  const Json negative = -1;
  const Json large = std::numeric_limits<std::uint64_t>::max();
  EXPECT_TRUE(negative.IsWhole() && !negative.IsUnsigned());
  EXPECT_TRUE(large.IsWhole() && large.IsUnsigned());
  EXPECT_TRUE(Json(1.5).IsNumber() && Json(1.5).IsReal() && !Json(1.5).IsWhole());
  EXPECT_TRUE(Json(true).IsBool() && !Json(true).IsNumber());
  EXPECT_EQ(negative.Number(), -1.0);
  EXPECT_EQ(large.Number(), 18446744073709551616.0);
  EXPECT_THROW(static_cast<void>(text.Number()), std::logic_error);
  EXPECT_THROW(static_cast<void>(negative.Text()), std::logic_error);
  EXPECT_THROW(static_cast<void>(negative.Unsigned()), std::logic_error);
  EXPECT_THROW(static_cast<void>(large.Whole()), std::logic_error);
  EXPECT_THROW(static_cast<void>(Json(1.0).Whole()), std::logic_error);
  EXPECT_THROW(Json("x")["a"] = 1, std::logic_error);
  EXPECT_EQ(text.Find("x"), nullptr);

  Json object;
  object["b"] = 1;
  object["a"] = 2;
  object["b"] = 3;
  EXPECT_EQ(JsonText(object), R"({"b":3,"a":2})");
  object.Erase("b");
  EXPECT_EQ(object, (Json{{"a", 2}}));
  EXPECT_EQ(object.Find("b"), nullptr);
  EXPECT_THROW(static_cast<void>(std::as_const(object)["b"]), std::logic_error);

  EXPECT_EQ(Json(3), Json(3U));
  EXPECT_EQ(Json(3), Json(3.0));
  EXPECT_NE(Json(-1), large) << "the same bits";
  EXPECT_NE(Json(1), Json(true));
  EXPECT_NE((Json{{"a", 1}, {"b", 2}}), (Json{{"b", 2}, {"a", 1}}));
}

TEST(JsonTextTest, WritesWhatTheLibraryWrites) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  for (const std::string& text :
       {bytes, std::string("plain"), std::string(), std::string("q\"b\\s/\b\f\n\r\t\x01\x1f\x7f"),
        std::string("a\0b", 3), std::string("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
        std::string("\xC3"), std::string("\xC3("), std::string("\xE2\x82"),
        std::string("\xE2\x82x"), std::string("\xF0\x9F\x98"), std::string("\xED\xA0\x80"),
        std::string("\xC0\x80"), std::string("\xF4\x90\x80\x80"), std::string("\xFF\xFEok\x80")}) {
    EXPECT_EQ(JsonText(text), LibraryText(text)) << text;
    EXPECT_EQ(JsonText(Json{{text, 1}}), LibraryText(Library::object({{text, 1}}))) << text;
    EXPECT_EQ(ValidUtf8(text), Library::parse(LibraryText(text)).get<std::string>());
    EXPECT_EQ(IsUtf8(Json::Array({{{"a", text}}})), ValidUtf8(text) == text) << text;
    EXPECT_EQ(IsUtf8(Json{{text, 1}}), ValidUtf8(text) == text) << text;
  }
  for (const std::string& digits :
       CutAt(' ',
             "0 -0 1 -1 0.1 1e15 1e16 123456789012345680 1e20 1e-4 1e-5 1.5e300 "
             "1.7976931348623157e308 2.2250738585072014e-308 5e-324 -1.7976931348623157e308 "
             "0.6666666666666666 100000 0.30000001192092896 inf -inf nan")) {
    const double number = std::strtod(digits.c_str(), nullptr);
    EXPECT_EQ(JsonText(number), LibraryText(number));
  }
  for (const std::int64_t number : {INT64_MIN, INT64_MAX, std::int64_t{0}, std::int64_t{-10}}) {
    EXPECT_EQ(JsonText(number), LibraryText(number));
  }
  EXPECT_EQ(JsonText(UINT64_MAX), LibraryText(UINT64_MAX));

  const char* const tree = R"({"a":[1,[],{},[{"b":"c"}],null,true],"d":{"e":-1.5}})";
  for (const int indent : {-1, 0, 2}) {
    EXPECT_EQ(JsonText(JsonOf(tree), indent), LibraryText(Library::parse(tree), indent));
  }
}

TEST(ParseJsonTest, TakesWhatTheLibraryTakes) {
  std::vector<std::string> texts = CutAt(
      '~', R"(~nul~null~-0~-0.0~1e400~-1e400~1e-400~18446744073709551615~18446744073709551616~)"
           R"(-9223372036854775808~-9223372036854775809~01~1.~+1~NaN~[1,]~[1~{} {}~{"a" 1}~)"
           R"({"a":}~{"a":1,"b":2,"a":[3]}~{"a":{"x":1},"a":{"y":2}}~{"a":[1],"a":null}~)"
           R"({"a":{"b":[{"c":0}]},"d":1}~"\u0000\ud83d\ude00"~"\ud83d"~"abc~/**/1)");
  for (const std::string& odd :
       {std::string("\"\x01\""), std::string("\"\xFF\""), std::string("\"\xC3"),
        std::string("\xEF\xBB\xBF[1]"), std::string("[1]\0", 4), std::string("tru\xC3\xA9"),
        std::string(" [1 , 2]\n")}) {
    texts.push_back(odd);
  }
  for (const std::string& text : texts) {
    const ParsedJson parsed = ParseJson(text);
    try {
      const Library expected = Library::parse(text);
      ASSERT_EQ(parsed.fault, JsonFault::kNone) << text << parsed.words;
      EXPECT_EQ(JsonText(parsed.value), LibraryText(expected));
      EXPECT_EQ(parsed.value.IsUnsigned(), expected.is_number_unsigned()) << text;
      EXPECT_EQ(parsed.value.IsWhole(), expected.is_number_integer()) << text;
    } catch (const Library::exception& error) {
      EXPECT_EQ(parsed.fault, JsonFault::kSyntax) << text;
      EXPECT_EQ(parsed.words, error.what());
      EXPECT_TRUE(parsed.value.IsNull());
    }
  }
}

TEST(ParseJsonTest, StopsAtItsLimits) {
  constexpr JsonLimits kLimits{.depth = 3, .members = 2};
  const struct {
    std::string text;
    JsonFault fault;
  } rows[] = {
      {"[[[1]], [[2]]]", JsonFault::kNone},
      {R"({"a":[{"b":1}]})", JsonFault::kNone},
      {R"({"a":[{"b":[]}]})", JsonFault::kTooDeep},
      {"[[[{", JsonFault::kTooDeep},
      {R"(["[[[[[[", "{{{{{"])", JsonFault::kNone},
      {R"([{"a":1,"b":2},{"a":1,"b":2}])", JsonFault::kNone},
      {R"({"a":1,"b":{"a":1,"b":2}})", JsonFault::kNone},
      {R"({"a":1,"b":{},"c":3})", JsonFault::kTooManyMembers},
      {R"({"a":1,"a":2,"a":3})", JsonFault::kTooManyMembers},
  };
  for (const auto& row : rows) {
    const ParsedJson parsed = ParseJson(row.text, kLimits);
    EXPECT_EQ(parsed.fault, row.fault) << row.text;
    EXPECT_EQ(parsed.value.IsNull(), row.fault != JsonFault::kNone) << row.text;
  }
  // No stack is deep enough for what a line can open.
  EXPECT_EQ(ParseJson(std::string(1'000'000, '[')).fault, JsonFault::kTooDeep);
}

/// Gives one byte at a time.
class ByteStream : public std::streambuf {
 public:
  explicit ByteStream(std::string text) : m_text(std::move(text)) {}

 protected:
  int_type underflow() override {
    if (m_next == m_text.size()) {
      return traits_type::eof();
    }
    setg(&m_text[m_next], &m_text[m_next], &m_text[m_next] + 1);
    return traits_type::to_int_type(m_text[m_next++]);
  }

 private:
  std::string m_text;
  std::size_t m_next = 0;
};

TEST(ParseJsonRowsTest, RowsComeOutOfTheResultsAlone) {
  const struct {
    const char* text;
    const char* left;
    const char* taken;  ///< place and members of each result, and its rows
  } rows[] = {
      {R"({"ok":true,"results":[{"r":1,"rows":[{"a":"é"},{"a":2}],"n":1},{"e":{}},{"rows":[]}],"z":1})",
       R"({"ok":true,"results":[{"r":1,"rows":[],"n":1},{"e":{}},{"rows":[]}],"z":1})",
       R"(0{"ok":true}{"r":1}{"a":"é"}{"a":2}2{"ok":true}{})"},
      {R"({"rows":[1],"results":{"rows":[1]},"x":[{"rows":[1]}]})",
       R"({"rows":[1],"results":{"rows":[1]},"x":[{"rows":[1]}]})", ""},
      {R"({"results":[{"rows":[{"rows":[1]},[2]]}]})", R"({"results":[{"rows":[]}]})",
       R"(0{}{}{"rows":[1]}[2])"},
      {R"({"results":[{"rows":[{"a":1},{)", "null", R"(0{}{}{"a":1})"},
  };
  for (const auto& row : rows) {
    std::string taken;
    const JsonRowTaker taker{[&](const Json& answer, std::size_t place, const Json& result) {
                               taken += std::to_string(place) + JsonText(answer) + JsonText(result);
                             },
                             [&](const Json& value) { taken += JsonText(value); }};
    ByteStream bytes(row.text);
    EXPECT_EQ(JsonText(ParseJsonRows(bytes, {}, taker).value), row.left) << row.text;
    EXPECT_EQ(taken, row.taken) << row.text;
  }
}

}  // namespace
