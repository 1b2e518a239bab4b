#include "local/control/RowChoices.h"

#include <deque>
#include <limits>

#include "local/control/RowSelection.h"
#include "local/history/FieldValue.h"
#include "tests/local/ServedControl.h"

namespace {

struct ChoiceRow {
  char label[8];
  float rate;
  std::int32_t when;
  char arguments[8];
  std::int32_t hollow;
};

constexpr std::array kChoiceFields{
    FieldLayout{"Label", FieldType::kText, 0, 8, FieldMeaning::key},
    FieldLayout{"Rate", FieldType::kFloat, 8, 4, FieldMeaning::rate},
    FieldLayout{"Start Time", FieldType::kLong, 12, 4, FieldMeaning::key},
    FieldLayout{"Argument List", FieldType::kText, 16, 8, FieldMeaning::text},
    FieldLayout{"Hollow", FieldType::kLong, 24, 4, FieldMeaning::gauge, "", "", false, "", false}};
constexpr RecordLayout kChoiceLayout{"CHOICE", "choice", '4', sizeof(ChoiceRow), kChoiceFields};

std::span<const unsigned char> BytesOf(const ChoiceRow& row) {
  return {reinterpret_cast<const unsigned char*>(&row), sizeof row};
}

/// The rows that are left, as text behind their number, or the error's field and words.
std::string ChosenRows(const char* message) {
  static constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  static const std::array<ChoiceRow, 4> kRows{{{"a", 2, 86400, "-x", 7},
                                               {"b\xff", kNan, 0, "-y", 7},
                                               {"B", 10, 90000, "-x", 7},
                                               {"a", 10, 0, "", 7}}};
  const auto choices = RowChoices::Read(JsonOf(message), &kChoiceLayout);
  if (const auto* error = std::get_if<ControlError>(&choices)) {
    return error->field + ": " + error->message;
  }
  std::vector<std::span<const unsigned char>> rows;
  for (const ChoiceRow& row : kRows) {
    rows.push_back(BytesOf(row));
  }
  const auto& read = std::get<RowChoices>(choices);
  std::string texts[2];
  for (const bool isOneGo : {true, false}) {
    RowSelection selection(read, kChoiceLayout, rows);
    int stretches = 1;
    while (selection.GoOn(std::chrono::hours(isOneGo ? 1 : 0))) {
      ++stretches;
    }
    EXPECT_TRUE(!isOneGo || stretches == 1) << message;
    std::string& text = texts[isOneGo ? 0 : 1];
    text = std::to_string(selection.Total()) + ":";
    for (const auto bytes : selection.Take()) {
      text += ' ' + JsonText(read.RowJson(kChoiceLayout, bytes));
    }
  }
  EXPECT_EQ(texts[0], texts[1]) << message;
  return texts[0];
}

TEST(RowChoicesTest, RowsAndFieldsAreChosen) {
  ::setenv("TZ", "UTC", 1);
  const std::pair<const char*, std::string> cases[] = {
      {R"({"columns":["start time","Label","Label"],"limit":1})",
       R"(4: {"Start Time":86400,"Label":"a"})"},
      {R"({"where":["Label=a","Rate>2"]})",
       R"(1: {"Label":"a","Rate":10.0,"Start Time":0,"Argument List":"","Hollow":null})"},
      {R"({"where":["Start Time>1970-01-02"],"columns":["Label"],"sort":["Label"]})",
       R"(1: {"Label":"B"})"},
      {"{\"where\":[\"Label~b\xEF\xBF\xBD\"],\"columns\":[\"Rate\"]}", R"(1: {"Rate":null})"},
      {R"({"where":["Hollow!=7"],"columns":["Hollow"],"limit":2})",
       R"(4: {"Hollow":null} {"Hollow":null})"},
      {R"({"sort":["Rate","-Label"],"columns":["Label"]})",
       "4: {\"Label\":\"a\"} {\"Label\":\"B\"} {\"Label\":\"a\"} {\"Label\":\"b\xEF\xBF\xBD\"}"},
      {R"({"sort":["+Rate"],"columns":["Start Time"],"limit":3})",
       R"(4: {"Start Time":86400} {"Start Time":90000} {"Start Time":0})"},
      {R"({"arguments":false,"columns":["Argument List","Label"],"limit":1})",
       R"(4: {"Argument List":null,"Label":"a"})"},
      {R"({"arguments":false,"where":["Argument List=-x"]})", "where: \"Argument List\" holds"},
      {R"({"arguments":false,"sort":["-argument list"]})", "sort: \"Argument List\" holds"},
      {R"({"arguments":0})", "arguments: arguments must be"},
      {R"({"columns":["None"]})", "columns: CHOICE has no label \"None\""},
      {R"({"columns":"Label"})", "columns: columns must be"},
      {R"({"where":["Rate=x"]})", "where: \"Rate\" is compared with a number"},
      {R"({"where":["Rate"]})", "where: \"Rate\" compares nothing"},
      {R"({"sort":["*Rate"]})", "sort: CHOICE has no label"},
      {R"({"sort":[1]})", "sort: sort must be"},
      {R"({"limit":0})", "limit: "},
      {R"({"limit":100001})", "limit: "},
      {R"({"limit":18446744073709551615})", "limit: "},
      {R"({"limit":1.5})", "limit: "},
  };
  for (const auto& [message, expected] : cases) {
    const std::string chosen = ChosenRows(message);
    // Of an error's words the begin will do.
    EXPECT_EQ(expected.ends_with('}') ? chosen : chosen.substr(0, expected.size()), expected)
        << message;
  }
}

TEST(RowChoicesTest, RequestsAreBoundedAndManyRecordsHaveNoChoice) {
  for (const char* name : {"columns", "where", "sort"}) {
    const Json many{{name, Json(std::vector<std::string>(257, "Label"))}};
    const Json large{{name, Json::Array({std::string(1025, 'x')})}};
    for (const Json& message : {many, large, Json{{name, Json::Array()}}}) {
      const bool isSmall = message[name].Size() == 0;
      const auto choices = RowChoices::Read(message, isSmall ? nullptr : &kChoiceLayout);
      ASSERT_TRUE(std::holds_alternative<ControlError>(choices)) << name;
      EXPECT_EQ(std::get<ControlError>(choices).field, name);
    }
  }
  const std::string stars = "Label~" + std::string(8, '*');
  const std::pair<Json, bool> conditions[] = {
      {std::vector<std::string>(16, stars), true},
      {std::vector<std::string>(17, "Label=a"), false},
      {Json::Array({stars + '*'}), false},
      {Json::Array({"Label=" + std::string(251, 'x')}), false}};
  for (const auto& [texts, isTaken] : conditions) {
    const auto choices = RowChoices::Read(Json{{"where", texts}}, &kChoiceLayout);
    EXPECT_EQ(std::holds_alternative<RowChoices>(choices), isTaken) << JsonText(texts);
  }
  const auto hidden = RowChoices::Read(Json{{"arguments", false}}, nullptr);
  const ChoiceRow row{"a", 1, 2, "-x", 7};
  EXPECT_EQ(std::get<RowChoices>(hidden).RowJson(kChoiceLayout, BytesOf(row))["Argument List"],
            nullptr);
}

TEST(RowChoicesTest, ManyRowsAreChosenSoon) {
  std::vector<ChoiceRow> kept(10000);
  std::vector<std::span<const unsigned char>> rows;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    kept[i] = {"a", static_cast<float>(i * 7919 % 10007), static_cast<std::int32_t>(i), "-x", 7};
    rows.push_back(BytesOf(kept[i]));
  }
  const auto choices = RowChoices::Read(
      JsonOf(R"({"where":["Label~*a*","Rate>=0"],"sort":["Rate","Label"]})"), &kChoiceLayout);
  RowSelection selection(std::get<RowChoices>(choices), kChoiceLayout, rows);
  EXPECT_FALSE(selection.GoOn(std::chrono::seconds(5)));
  EXPECT_EQ(selection.Total(), kept.size());
  EXPECT_EQ(selection.Take().size(), kept.size());
}

TEST(RowChoicesTest, ValuesToSortByAreBoundedForAllSelectionsTogether) {
  constexpr std::uint16_t kWidth = 60000;
  static constexpr std::array kFields{
      FieldLayout{"Text", FieldType::kText, 0, kWidth, FieldMeaning::key}};
  static constexpr RecordLayout kLayout{"WIDE", "wide", '4', kWidth, kFields};
  const std::vector<unsigned char> row(kWidth, 'a');
  const std::size_t half = RowSelection::kMaxKeyBytes / kWidth / 2;
  const std::vector<std::span<const unsigned char>> rows(half + 1, row);
  const auto all = RowChoices::Read(JsonOf(R"({"sort":["Text"]})"), &kLayout);
  const auto one = RowChoices::Read(JsonOf(R"({"sort":["Text"],"limit":1})"), &kLayout);
  RowSelection first(std::get<RowChoices>(all), kLayout, rows);
  EXPECT_FALSE(first.GoOn(std::chrono::hours(1)));
  RowSelection second(std::get<RowChoices>(one), kLayout, rows);
  EXPECT_FALSE(second.GoOn(std::chrono::hours(1)));
  RowSelection third(std::get<RowChoices>(all), kLayout, rows);
  EXPECT_THROW((void)third.GoOn(std::chrono::hours(1)), std::bad_alloc);
}

class ChosenRowsTest : public ::testing::Test, protected ServedControl {
 protected:
  ChosenRowsTest() { schedule.Set("FAKE", 3600); }
};

TEST_F(ChosenRowsTest, OperationsTakeTheChoices) {
  const FakeRecord few(1);
  const FakeRecord many(5);
  const CMBRecord* const records[] = {&few, &many};
  lastRows.Take({"FAKE", '4', 9, records});
  const auto ask = [&](const std::string& members) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    operations.Handle("{\"op\":" + members + "}", peer);
    return peer->answers.empty() ? std::string("later") : peer->answers[0];
  };
  const std::string all =
      R"(,"columns":["Count"],"where":["Count>0"],"sort":["-Record Time"],"limit":1,"arguments":true)";
  EXPECT_EQ(ask(R"("last","records":["FAKE"])" + all),
            R"({"ok":true,"results":[{"record":"FAKE","category":"4","time":9,"rows_total":2,)"
            R"("rows":[{"Count":1}]}]})");
  EXPECT_EQ(ask(R"("get","records":["FAKE"])" + all), "later");
  EXPECT_EQ(ask(R"("get","records":["FAKE"],"named":["a","7"])"), "later");
  EXPECT_THAT(ask(R"("get","records":["FAKE"],"named":[7])"), HasSubstr(R"("field":"named")"));
  EXPECT_THAT(ask(R"("history","record":"FAKE")" + all), HasSubstr("no-history"));
  EXPECT_THAT(ask(R"("history","record":"FAKE","columns":["Count"],"points":5,"by":[])"),
              HasSubstr("no-history"));
  EXPECT_THAT(ask(R"("last","records":["FAKE"],"arguments":false)"),
              testing::Not(HasSubstr("rows_total")));
  EXPECT_THAT(ask(R"("last","records":["FAKE","FAKE"],"limit":1)"),
              HasSubstr(R"("field":"limit")"));
  EXPECT_THAT(ask(R"("last","records":["NONE"],"where":["x"])"), HasSubstr("unknown-record"));
}

TEST_F(ChosenRowsTest, EachRecordOfARequestHasItsOwnChoices) {
  const FakeRecord few(1);
  const FakeRecord many(5);
  const CMBRecord* const records[] = {&few, &many};
  lastRows.Take({"FAKE", '4', 9, records});
  agent.onBatch = [](CMBMultipleRecordRequestEvent& batch) {
    for (auto* event : batch.m_events) {
      event->m_records.push_back(new FakeRecord(1));
      event->m_records.push_back(new FakeRecord(5));
    }
    return kNotifyDone;
  };
  const std::pair<std::string, std::vector<const char*>> cases[] = {
      {R"([{"record":"FAKE","columns":["Count"],"sort":["Count"]},"NONE",)"
       R"({"record":"FAKE","category":"4","columns":["count","CPU"],"where":["Count<5"]},"FAKE"])",
       {R"("rows_total":2,"rows":[{"Count":5},{"Count":1}]},{"record":"NONE","error")",
        R"("rows_total":1,"rows":[{"Count":1,"CPU":12.5}]},{"record":"FAKE")",
        R"(,"rows":[{"Record Type":"FAKE")"}},
      {R"([{"record":"FAKE","limit":1},{"record":"NONE","columns":["x"]}],"arguments":false)",
       {R"("rows_total":2,"rows":[{"Record Type")", "unknown-record"}},
      {R"([{"record":"FAKE","columns":["Count"]}],"limit":1)",
       {R"("rows_total":2,"rows":[{"Count":1}]}]})"}},
      {R"(["FAKE",{"record":"FAKE","sort":["None"]}])",
       {R"("message":"choices of FAKE: FAKE has no label)", R"("field":"sort")"}},
      {R"(["FAKE",{"record":"FAKE","limit":0}])",
       {R"("message":"choices of FAKE: limit must be)", R"("field":"limit")"}},
      {R"(["FAKE",{"record":"FAKE","limits":1}])", {R"(unknown member \"limits\")"}},
      {R"([{"record":"FAKE","limit":1}],"limit":1)", {R"(both in records and beside it)"}},
      {R"([{"record":"FAKE"},{"record":"FAKE","limit":2}],"limit":1)", {"with one record only"}},
      {R"([{"record":"FAKE"},{"record":"FAKE","arguments":true}],"arguments":false)",
       {R"(both in records and beside it)", R"("field":"arguments")"}},
      {R"([{"record":"NONE","limit":1}],"limit":1)", {R"("field":"limit")"}}};
  for (const auto& [text, parts] : cases) {
    for (const std::string op : {"last", "get"}) {
      const auto peer = std::make_shared<FakePeer>(Rights::kRead);
      operations.Handle("{\"op\":\"" + op + "\",\"records\":" + text + "}", peer);
      // On a busy machine it takes more than one turn.
      std::function<void(CMBNode&)> look = [&](CMBNode&) {
        if (peer->answers.empty()) {
          loop.Post({look, {}, false});
        } else {
          EventLoop::RequestStop();
        }
      };
      if (peer->answers.empty()) {
        loop.Post({look, {}, false});
        loop.Run(agent);
      }
      ASSERT_EQ(peer->answers.size(), 1U) << op << text;
      for (const char* part : parts) {
        EXPECT_THAT(peer->answers[0], HasSubstr(part)) << op << text;
      }
    }
  }
}

TEST_F(ChosenRowsTest, OthersAreServedWhileManyRowsAreChosen) {
  constexpr std::uint32_t kRows = 4000;
  agent.onBatch = RowsForEach(kRows);
  std::deque<FakeRecord> made;
  std::vector<const CMBRecord*> records;
  for (std::uint32_t count = 0; count < kRows; ++count) {
    records.push_back(&made.emplace_back(count));
  }
  const std::vector<const CMBRecord*> others(kRows, records[0]);
  const Json wanted{{"record", "FAKE"},
                    {"where", std::vector<std::string>(16, "Label!~*b*b*[c-d]*")},
                    {"columns", Json::Array({"Count"})},
                    {"sort", Json::Array({"Count"})},
                    {"limit", 2}};
  Json message{{"records", Json::Array({wanted, wanted})}};
  for (const std::string op : {"last", "get"}) {
    for (const std::string end : {"answer", "gone", "stop"}) {
      lastRows.Take({"FAKE", '4', 9, records});
      const auto peer = std::make_shared<FakePeer>(Rights::kRead);
      int between = 0;
      std::function<void(CMBNode&)> other = [&](CMBNode&) {
        if (!peer->answers.empty() || end == "stop") {
          EventLoop::RequestStop();
          return;
        }
        ++between;
        // They take no memory that the rows at work stand in.
        lastRows.Take({"FAKE", '4', 10, others});
        peer->isGone = end == "gone";
        loop.Post({other, {}, false});
      };
      message["op"] = op;
      operations.Handle(JsonText(message), peer);
      loop.Post({other, {}, false});
      loop.Run(agent);
      ASSERT_EQ(peer->answers.size(), 1U) << op << end;
      if (end == "answer") {
        const std::string rows = R"("rows_total":4000,"rows":[{"Count":3999},{"Count":3998}])";
        EXPECT_THAT(peer->answers[0], HasSubstr(rows + "},{\"record\":\"FAKE\""));
        EXPECT_THAT(peer->answers[0], EndsWith(rows + "}]}"));
        EXPECT_GT(between, 0) << op;
      } else {
        EXPECT_THAT(peer->answers[0], HasSubstr(end == "stop" ? "stopping" : "")) << op;
        EXPECT_EQ(between, end == "gone" ? 1 : 0) << op;
      }
    }
  }
}

}  // namespace
