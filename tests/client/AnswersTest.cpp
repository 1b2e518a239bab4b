#include "client/Answers.h"

#include <gtest/gtest.h>

#include "client/Errors.h"

namespace {

const std::string kGood =
    R"({"results":[{"record":"CPUP","category":"4","time":5,"rows":[{"A":1}]}]})";

std::string With(const std::string& from, const std::string& to) {
  std::string text = kGood;
  return text.replace(text.find(from), from.size(), to);
}

TEST(Answers, ResultsAreTakenOnlyAsPromised) {
  const std::vector<RecordName> asked{{"CPUP", "4"}};
  Json good = Json::parse(kGood);
  EXPECT_EQ(ReadResults(good, asked).at(0).rows.at(0).at("A"), 1);

  const std::string broken[] = {
      "{}",
      R"({"results":{}})",
      R"({"results":[]})",
      R"({"results":[1]})",
      With("CPUP", "PI"),
      With("\"CPUP\"", "null"),
      With("\"4\"", "4"),
      With("\"4\"", "\"3\""),
      With("\"time\":5", "\"time\":5.5"),
      With("\"time\":5", "\"time\":18446744073709551615"),
      With("[{\"A\":1}]", "{\"A\":1}"),
      With("{\"A\":1}", "[1]"),
      With("\"A\":1", "\"A\":[1]"),
      With("\"time\"", "\"error\":\"no\",\"time\""),
      With("\"time\"", "\"error\":{},\"time\""),
  };
  for (const std::string& text : broken) {
    Json answer = Json::parse(text);
    EXPECT_THROW(static_cast<void>(ReadResults(answer, asked)), ClientError) << text;
  }
}

TEST(Answers, NestingAndMembersAreBounded) {
  std::string members = "{\"a\":[{";
  for (int i = 0; i < 5000; ++i) {
    members += "\"k" + std::to_string(i) + "\":1,";
  }
  const std::string broken[] = {std::string(1 << 20, '['),
                                members + "\"e\":1}]}",
                                "",
                                "{",
                                "{\"a\":1e999}",
                                "\xff",
                                "\"\\ud800\"",
                                "{\"a\":\"\xc3\"}",
                                "HTTP/1.1 400 Bad Request"};
  for (const std::string& text : broken) {
    EXPECT_THROW(static_cast<void>(ParseAnswer(text)), ClientError) << text.substr(0, 40);
  }
  // Brackets and colons inside texts do not count.
  EXPECT_TRUE(ParseAnswer("{\"a\":\"\\\"" + std::string(5000, '[') + std::string(5000, ':') + "\"}")
                  .is_object());
}

TEST(Answers, RecordNamesMayCarryTheirCategory) {
  EXPECT_EQ(ParseRecordName("CPUP").ToJson(), Json("CPUP"));
  EXPECT_EQ(ParseRecordName("3:PD").ToJson().dump(), R"({"record":"PD","category":"3"})");
  for (const char* text : {"", "4:", ":PD", "7:PD", "43:PD", "A B", "P\x01", "\xc3\xa9"}) {
    EXPECT_THROW(static_cast<void>(ParseRecordName(text)), UsageError) << text;
  }
}

}  // namespace
