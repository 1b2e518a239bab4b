#include "client/capture/KeptHistory.h"

#include "client/ask/Errors.h"
#include "tests/client/ClientHarness.h"
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
    EXPECT_STREQ(error.what(), "broken answer: the daemon gives the same page of PI again");
  }
  EXPECT_LE(server.Requests().size(), 4U);
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
