#include "client/capture/KeptHistory.h"

#include "client/ask/Errors.h"
#include "json/JsonText.h"
#include "json/RowText.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/TempFolder.h"

namespace {

/// A daemon with PI on its schedule, PD taken off it, PX that it no longer serves, and no history
/// of PN.
Json AnswerOf(const Json& request, bool repeats) {
  const std::string operation = request["op"].Text();
  if (operation == "records") {
    Json records = Json::Array();
    for (const char* name : {"PI", "PD", "PX", "PN"}) {
      records.PushBack({{"record", name}, {"category", "4"}, {"served", name[1] != 'X'}});
    }
    records.PushBack({{"record", "PI"}, {"category", "3"}, {"served", true}});
    return {{"records", records}};
  }
  if (operation == "status") {
    return {{"schedules", Json::Array({Json{{"record", "PI"}, {"category", "4"}}})}};
  }
  const Json* after = request.Find("after");
  const bool isSecond = after != nullptr && !after->IsNull();
  const Json next = isSecond && !repeats ? Json() : Json(Json::Array({7, 1}));
  return {{"history",
           {{"record", request["record"]},
            {"category", request["category"]},
            {"rows", Json::Array({Json{{"Record Time", isSecond ? 8 : 7}}})},
            {"next", next}}}};
}

std::string AnswerLine(const Json& request, bool repeats) {
  if (const Json* record = request.Find("record"); record != nullptr && record->Text() == "PN") {
    return R"({"ok":false,"error":{"code":"no-history","message":"no"},"id":)" +
           std::to_string(request["id"].Whole()) + "}\n";
  }
  return Answer(request, AnswerOf(request, repeats));
}

TEST(KeptHistoryTest, EachServedRecordIsAskedForPageByPage) {
  const TempFolder folder;
  const ScriptedServer server(folder.Path(), "s",
                              [](const Json& request) { return AnswerLine(request, false); });
  Connection connection(server.Path());
  EXPECT_EQ(WriteKeptHistory(connection, folder.Path(), 1, 9), 6U);
  const std::string rows = "{\"Record Time\":7}\n{\"Record Time\":8}\n";
  for (const char* name : {"history/PI.jsonl", "history/PD.jsonl", "history/PI.3.jsonl"}) {
    EXPECT_EQ(folder.Read(name), rows) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "history/PX.jsonl"));
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / "history/PN.jsonl"));
}

TEST(KeptHistoryTest, APageThatComesAgainIsNoEndlessHistory) {
  const TempFolder folder;
  const ScriptedServer server(folder.Path(), "s",
                              [](const Json& request) { return AnswerLine(request, true); });
  Connection connection(server.Path());
  try {
    WriteKeptHistory(connection, folder.Path(), 1, 9);
    ADD_FAILURE() << "no failure";
  } catch (const ClientError& error) {
    EXPECT_STREQ(error.what(), "broken answer: the pages of PI that the daemon gives do not go on");
  }
  EXPECT_LE(server.Requests().size(), 4U);
}

/// A daemon whose pages have no end: each row has 100 bytes, and `next` is what `nextOf` makes of
/// the place before.
std::string EndlessLine(const Json& request, bool hasRows) {
  if (request["op"].Text() == "records") {
    return AnswerLine(request, false);
  }
  const Json* after = request.Find("after");
  const std::int64_t time = after == nullptr || after->IsNull() ? 1 : (*after)[0].Whole() + 1;
  Json rows = Json::Array();
  const Json row{{"Record Time", time}, {"Name", ""}};
  const std::string filled(99 - JsonText(row).size(), 'x');
  if (hasRows) {
    rows.PushBack({{"Record Time", time}, {"Name", filled}});
  }
  return Answer(request, {{"history",
                           {{"record", request["record"]},
                            {"category", request["category"]},
                            {"rows", rows},
                            {"next", Json::Array({time, 1})}}}});
}

TEST(KeptHistoryTest, RowsBeyondTheLimitsAreLeftOutAndTold) {
  const struct {
    HistoryLimits limits;
    bool hasRows;
    std::uint64_t rows;
    std::size_t lines;
    std::string told;
  } cases[] = {
      {{1000, 10000},
       true,
       24,
       4,
       "the rows of PI from " + DateText(7) +
           " on are left out: a capture takes one of a record of 1000 bytes at most\n"},
      {{1000, 1500},
       true,
       9,
       2,
       "the rows of PD from " + DateText(4) +
           " on, and the records behind it, are left out: a capture takes a history of 1500 bytes "
           "at most\n"},
      {{1000, 10000}, false, 0, 4, "the rows of PI from " + DateText(16) + " on are left out"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.told);
    const TempFolder folder;
    const ScriptedServer server(folder.Path(), "s", [&each](const Json& request) {
      return EndlessLine(request, each.hasRows);
    });
    Connection connection(server.Path());
    testing::internal::CaptureStderr();
    EXPECT_EQ(WriteKeptHistory(connection, folder.Path(), 1, 9, each.limits), each.rows);
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr(each.told));
    EXPECT_EQ(std::ranges::count(told, '\n'), each.lines) << told;
    if (each.hasRows) {
      EXPECT_THAT(folder.Read("history/PI.jsonl"), StartsWith(R"({"Record Time":1,)"));
      EXPECT_EQ(folder.Read("history/PI.jsonl").size(), 600U);
    }
  }
}

TEST(KeptHistoryTest, PagesThatDoNotGoOnAreABrokenAnswer) {
  for (const char* next : {"[7,0]", "[6,9]", "[7,1]", "[18446744073709551615,1]"}) {
    SCOPED_TRACE(next);
    const TempFolder folder;
    const ScriptedServer server(folder.Path(), "s", [next](const Json& request) {
      Json answer = AnswerOf(request, true);
      const Json* after = request.Find("after");
      if (after != nullptr && !after->IsNull()) {
        answer["history"]["next"] = JsonOf(next);
      }
      return Answer(request, answer);
    });
    Connection connection(server.Path());
    EXPECT_THROW(WriteKeptHistory(connection, folder.Path(), 1, 9), ClientError);
    EXPECT_EQ(server.Requests().size(), 3U);
  }
}

TEST(KeptHistoryTest, NamesThatLeadElsewhereAreNoRecords) {
  const TempFolder folder;
  std::filesystem::create_directory(folder.Path() / "a");
  Json named;
  const ScriptedServer server(folder.Path(), "s", [&](const Json& request) {
    return request["op"].Text() == "records" ? Answer(request, {{"records", Json::Array({named})}})
                                             : AnswerLine(request, false);
  });
  const std::string longName(65, 'A');
  const std::vector<std::pair<std::string, std::string>> names{
      {"../../outside", "4"},
      {std::string("../../outside\0", 14), "4"},
      {"", "4"},
      {"A/B", "4"},
      {longName, "4"},
      {"PI", "../../outside"},
      {"PI", ""},
      {"PI.4", "4"}};
  for (const auto& [record, category] : names) {
    SCOPED_TRACE(record + ' ' + category);
    named = {{"record", record}, {"category", category}, {"served", true}};
    Connection connection(server.Path());
    EXPECT_THROW(WriteKeptHistory(connection, folder.Path() / "a", 1, 9), ClientError);
    EXPECT_TRUE(std::filesystem::is_empty(folder.Path() / "a/history"));
    std::filesystem::remove(folder.Path() / "a/history");
  }
}

TEST(KeptHistoryTest, ARecordThatIsNamedAgainWritesToNoFileOfAnother) {
  const TempFolder folder;
  const Json one{{"record", "PI"}, {"category", "4"}, {"served", true}};
  const ScriptedServer server(folder.Path(), "s", [&](const Json& request) {
    return request["op"].Text() == "records"
               ? Answer(request, {{"records", Json::Array({one, one, one})}})
               : AnswerLine(request, false);
  });
  Connection connection(server.Path());
  EXPECT_THROW(WriteKeptHistory(connection, folder.Path(), 1, 9), ClientError);
  EXPECT_EQ(folder.Read("history/PI.jsonl"), "{\"Record Time\":7}\n{\"Record Time\":8}\n");
}

}  // namespace
