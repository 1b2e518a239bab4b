#include "local/control/RowChoices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <limits>

#include "local/control/ControlOperations.h"
#include "local/history/FieldValue.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"

namespace {

using ::testing::HasSubstr;

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
  std::string text = std::to_string(read.Apply(kChoiceLayout, rows)) + ":";
  for (const auto bytes : rows) {
    text += ' ' + JsonText(read.RowJson(kChoiceLayout, bytes));
  }
  return text;
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

TEST(RowChoicesTest, ManyRowsAreChosenInATurn) {
  std::vector<ChoiceRow> kept(10000);
  std::vector<std::span<const unsigned char>> rows;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    kept[i] = {"a", static_cast<float>(i * 7919 % 10007), static_cast<std::int32_t>(i), "-x", 7};
    rows.push_back(BytesOf(kept[i]));
  }
  const auto choices = RowChoices::Read(
      JsonOf(R"({"where":["Label~*a*","Rate>=0"],"sort":["Rate","Label"]})"), &kChoiceLayout);
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(std::get<RowChoices>(choices).Apply(kChoiceLayout, rows), kept.size());
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(took, std::chrono::seconds(5));
  EXPECT_EQ(rows.size(), kept.size());
}

TEST(RowChoicesTest, OperationsTakeTheChoices) {
  PublishFakeRecords();
  EventLoop loop;
  BatchDesk desk;
  LastRows lastRows;
  ScheduleBook schedule(loop, desk, lastRows);
  schedule.Set("FAKE", 3600);
  const FakeRecord few(1);
  const FakeRecord many(5);
  const CMBRecord* const records[] = {&few, &many};
  lastRows.Take({"FAKE", '4', 9, records});
  HistoryStore history{[](const std::string&) {}};
  ControlOperations operations(loop, desk, schedule, lastRows, history);
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
  EXPECT_THAT(ask(R"("history","record":"FAKE")" + all), HasSubstr("no-history"));
  EXPECT_THAT(ask(R"("history","record":"FAKE","columns":["Count"],"points":5,"by":[])"),
              HasSubstr("no-history"));
  EXPECT_THAT(ask(R"("last","records":["FAKE"],"arguments":false)"),
              testing::Not(HasSubstr("rows_total")));
  EXPECT_THAT(ask(R"("last","records":["FAKE","FAKE"],"limit":1)"),
              HasSubstr(R"("field":"limit")"));
  EXPECT_THAT(ask(R"("last","records":["NONE"],"where":["x"])"), HasSubstr("unknown-record"));
}

}  // namespace
