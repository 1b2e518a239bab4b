#include "client/ask/Answers.h"

#include "client/ask/Errors.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

const std::string kGood =
    R"({"results":[{"record":"CPUP","category":"4","time":5,"rows":[{"A":1}]}]})";

std::string With(const std::string& from, const std::string& to) {
  std::string text = kGood;
  return text.replace(text.find(from), from.size(), to);
}

TEST(Answers, ResultsAreTakenOnlyAsPromised) {
  const std::vector<RecordName> asked{{"CPUP", "4"}};
  Json good = JsonOf(kGood);
  EXPECT_EQ(ReadResults(good, asked).at(0).rows[0]["A"], 1);

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
    Json answer = JsonOf(text);
    EXPECT_THROW(static_cast<void>(ReadResults(answer, asked)), ClientError) << text;
  }
}

TEST(Answers, TheConfigurationIsTakenOnlyAsPromised) {
  const std::string good =
      R"({"config":{"children":[{"kind":"folder","label":"F","help":"","children":[{"kind":"choice",)"
      R"("id":65535,"label":"L","help":"","value":"","current":3,"choices":[]}]}]}})";
  EXPECT_EQ(ReadConfig(JsonOf(good)).at(0).children.at(0).current, 3U);
  const std::pair<const char*, const char*> broken[] = {
      {"\"config\"", "\"tree\""},
      {"65535", "65536"},
      {"65535", "-1"},
      {"\"folder\"", "\"file\""},
      {"\"choice\"", "\"text \""},
      {"\"L\"", "7"},
      {"\"help\":\"\",\"v", "\"v"},
      {"\"value\":\"\"", "\"value\":null"},
      {"\"choices\":[]", "\"choices\":[1]"},
      {"[{\"kind\":\"choice", "[1,{\"kind\":\"choice"},
      {"\"current\":3", "\"current\":\"3\""}};
  for (const auto& [from, to] : broken) {
    std::string text = good;
    text.replace(text.find(from), std::string_view(from).size(), to);
    EXPECT_THROW(static_cast<void>(ReadConfig(JsonOf(text))), ClientError) << text;
  }
}

TEST(Answers, TheOutcomeOfAChangeIsThatOfItsItem) {
  const auto answer = [](const char* result) { return Json{{"result", JsonOf(result)}}; };
  const ConfigOutcome outcome =
      ReadConfigOutcome(answer(R"({"item":3,"outcome":"refused","code":-36})"), 3);
  EXPECT_EQ(outcome.kind, ConfigOutcome::Kind::kRefused);
  EXPECT_EQ(outcome.code, -36);
  for (const char* broken :
       {R"(1)", R"({})", R"({"item":4,"outcome":"done","code":0})",
        R"({"item":3,"outcome":"perhaps","code":0})", R"({"item":3,"outcome":"done"})"}) {
    EXPECT_THROW(static_cast<void>(ReadConfigOutcome(answer(broken), 3)), ClientError) << broken;
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
                  .IsObject());
}

TEST(Answers, FurtherPagesOfATimeAreOfTheOneThatWasFound) {
  Json request{{"op", "history"}, {"record", "PDI"}};
  request["at"] = 50;
  for (int row = 7; row < 9; ++row) {
    HistoryPage page{{}, Json::Array({42, row})};
    EXPECT_TRUE(GoToNextPage(request, page));
    Json expected = JsonOf(R"({"op":"history","record":"PDI","since":42,"until":42})");
    expected["after"] = Json::Array({42, row});
    EXPECT_EQ(request, expected);
  }
}

TEST(Answers, RecordNamesMayCarryTheirCategory) {
  EXPECT_EQ(ParseRecordName("CPUP").ToJson(), Json("CPUP"));
  EXPECT_EQ(JsonText(ParseRecordName("3:PD").ToJson()), R"({"record":"PD","category":"3"})");
  for (const char* text : {"", "4:", ":PD", "7:PD", "43:PD", "A B", "P\x01", "\xc3\xa9"}) {
    EXPECT_THROW(static_cast<void>(ParseRecordName(text)), UsageError) << text;
  }
}

TEST(Answers, TheLastBatchOfSchedulesIsTheLastOneWhereNoOtherIsTold) {
  const auto records = [](const std::string& scheduled) {
    const LastBatch batch =
        ReadStatus(JsonOf(R"({"status":{"pid":1,"uptime_seconds":1.5,"version":"","node":"",)"
                          R"("host":"","schedules":[],"figures":[],"last_batch":{)"
                          R"("age_seconds":1.5,"duration_seconds":0.5,"records":8,"errors":2})" +
                          scheduled + "}}"))
            .lastScheduledBatch;
    return std::to_string(batch.any) + std::to_string(batch.records);
  };
  EXPECT_EQ(records(""), "18");
  EXPECT_EQ(records(R"(,"last_scheduled_batch":null)"), "00");
  EXPECT_EQ(records(R"(,"last_scheduled_batch":{"age_seconds":1.5,"duration_seconds":0.5,)"
                    R"("records":3,"errors":0})"),
            "13");
}

}  // namespace
