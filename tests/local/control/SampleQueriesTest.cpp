#include "local/control/SampleQueries.h"

#include <cmath>
#include <limits>
#include <random>

#include "local/history/HistoryTables.h"
#include "local/metrics/MetricText.h"
#include "records/RecordLayouts.h"
#include "support/HostProfile.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

/// A record of any layout that holds anything.
class AnyRecord : public CMBRecord {
 public:
  AnyRecord(const RecordLayout& layout, std::int32_t time, std::mt19937& random)
      : m_layout(layout), m_bytes(layout.size) {
    for (const FieldLayout& field : layout.fields) {
      if (std::string(field.label) == kTimeLabel) {
        Put(field, time);
      } else {
        Fill(field, random);
      }
    }
  }
  int operator==(const CMBRecord&) const override { return 0; }
  int operator<(const CMBRecord&) const override { return 0; }
  [[nodiscard]] const char* IsA() const override { return "any"; }
  [[nodiscard]] unsigned char GetDataType() const override { return m_layout.category; }
  [[nodiscard]] int GetRecSize() const override { return m_layout.size; }
  [[nodiscard]] const void* GetRecStart() const override { return m_bytes.data(); }
  [[nodiscard]] const char* GetRecType() const override { return m_layout.name; }
  [[nodiscard]] const FieldDescriptor* GetFieldTypeArray() const override { return nullptr; }
  [[nodiscard]] int GetFieldTypeCount() const override { return 0; }

 private:
  template <class T>
  void Put(const FieldLayout& field, T value) {
    std::memcpy(m_bytes.data() + field.offset, &value, sizeof value);
  }
  void Fill(const FieldLayout& field, std::mt19937& random) {
    const double scale = std::pow(10.0, static_cast<int>(random() % 24) - 8);
    const double real = random() % 8 == 0 ? std::numeric_limits<double>::quiet_NaN()
                                          : static_cast<double>(random()) / 7e9 * scale;
    switch (field.type) {
      case FieldType::kText:
        for (std::size_t i = 0; i < field.width; ++i) {
          static constexpr std::string_view kLetters("//ab\"\\\n\xff\xc3\xa4\0", 11);
          m_bytes[field.offset + i] =
              static_cast<unsigned char>(kLetters[random() % kLetters.size()]);
        }
        break;
      case FieldType::kUshort:
        Put(field, static_cast<std::uint16_t>(random()));
        break;
      case FieldType::kLong:
      case FieldType::kUlong:
        Put(field, static_cast<std::uint32_t>(random()));
        break;
      case FieldType::kFloat:
        Put(field, static_cast<float>(real));
        break;
      case FieldType::kDouble:
        Put(field, real);
        break;
      case FieldType::kUtime:
        Put(field, random() % 1'000'000 << 32U | random() % 2'000'000'000);
        break;
    }
  }

  const RecordLayout& m_layout;
  std::vector<unsigned char> m_bytes;
};

/// The lines of a scrape that are samples, each with a time behind it.
std::string Timed(const std::string& text, std::int64_t time) {
  std::istringstream lines(text);
  std::string timed;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with('#')) {
      timed += line + ' ' + std::to_string(time) + "000\n";
    }
  }
  return timed;
}

class SampleQueriesTest : public ::testing::Test {
 protected:
  struct Given {
    Json head;
    std::string text;
    /// The "next" as the member "after" of the next request.
    [[nodiscard]] std::string After() const { return R"(,"after":)" + JsonText(head["next"]); }
  };

  SampleQueriesTest() {
    PublishFakeRecords();
    m_store.Configure({});
  }
  void Batch(std::int32_t time, std::initializer_list<std::uint32_t> counts) {
    std::vector<FakeRecord> records;
    std::vector<const CMBRecord*> rows;
    for (const std::uint32_t count : counts) {
      records.emplace_back(count, time);
    }
    for (const FakeRecord& record : records) {
      rows.push_back(&record);
    }
    m_store.TakeTotals({"FAKE", '4', time, rows});
    m_store.EndBatch();
  }
  void LookAgain(const std::shared_ptr<FakePeer>& peer) {
    LoopTask look;
    look.run = [this, peer](CMBNode&) {
      peer->answers.empty() ? LookAgain(peer) : EventLoop::RequestStop();
    };
    m_loop.Post(std::move(look));
  }
  Json AskLine(const std::string& line) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    m_queries.Samples(std::make_shared<ControlRequest>(JsonOf(line), peer));
    if (peer->answers.empty()) {
      LookAgain(peer);
      m_loop.Run(m_agent);
    }
    const std::string& answer = peer->answers.at(0);
    const std::size_t end = answer.find('\n');
    m_text = end == std::string::npos ? "" : answer.substr(end + 1);
    return JsonOf(answer.substr(0, end));
  }
  Given Ask(const std::string& members, const std::string& record = "FAKE") {
    const Json answer = AskLine(R"({"records":[")" + record + "\"]" + members + "}");
    EXPECT_EQ(answer["ok"], true) << JsonText(answer);
    const Json& head = answer["samples"];
    EXPECT_EQ(head["bytes"], m_text.size());
    EXPECT_EQ(head["count"], std::count(m_text.begin(), m_text.end(), '\n'));
    return {head, m_text};
  }
  /// The counts in the text, in their order.
  static std::string Counts(const Given& given) {
    std::string counts;
    std::istringstream lines(given.text);
    for (std::string line; std::getline(lines, line);) {
      counts += line.substr(line.find("} ") + 2, line.rfind(' ') - line.find("} ") - 1);
    }
    return counts;
  }

  ScratchDirectory m_folder;
  EventLoop m_loop;
  FakeAgent m_agent;
  std::vector<std::string> m_told;
  HistoryStore m_store{[this](const std::string& text) { m_told.push_back(text); }};
  RequestTurns m_turns{m_loop};
  BatchDesk m_desk;
  LastRows m_rows;
  ScheduleBook m_schedule{m_loop, m_desk, m_rows};
  SampleQueries m_queries{m_turns, m_store, m_schedule};
  std::string m_text;
  const std::int32_t m_now = static_cast<std::int32_t>(std::time(nullptr));
};

TEST_F(SampleQueriesTest, TheSamplesOfKeptRowsAreThoseOfAScrapeOfTheSameRows) {
  std::mt19937 random(21);
  const HostProfile before = g_hostProfile;
  std::size_t records = 0;
  for (const HostProfile profile : {HostProfile::kModern, HostProfile::kClassic}) {
    g_hostProfile = profile;
    PublishLayouts();
    std::vector<RecordListing> listing;
    for (const RecordLayout* layout : LayoutRegistry::Instance().Layouts()) {
      listing.push_back({layout->name, layout->category, true, {}});
    }
    LayoutRegistry::Instance().PublishListing(std::move(listing));
    HistorySettings settings;
    settings.file = profile == HostProfile::kModern ? "modern.db" : "classic.db";
    m_store.Configure(settings);
    for (const RecordLayout* layout : LayoutRegistry::Instance().Layouts()) {
      if (!IsExposable(*layout) || !HasTime(*layout) ||
          LayoutRegistry::Instance().Find(layout->name) != layout) {
        continue;
      }
      std::vector<std::unique_ptr<AnyRecord>> made;
      std::vector<const CMBRecord*> rows;
      for (int i = 0; i < (std::string(layout->name) == "CGRP" ? 600 : 3); ++i) {
        rows.push_back(
            made.emplace_back(std::make_unique<AnyRecord>(*layout, m_now, random)).get());
      }
      rows.push_back(rows.back());  // of two rows with one key the first counts
      const ScheduledRows kept{layout->name, layout->category, m_now, rows};
      // What has grown since the row before is no metric.
      const ScheduledRows grown{layout->name, layout->category, m_now, {rows.data(), 1}};
      HoldsGrowth(*layout) ? m_store.TakeTotals(kept) : m_store.Take(kept);
      if (HoldsGrowth(*layout)) {
        m_store.Take(grown);
      }
      m_store.EndBatch();
      MetricText scrape(MetricFormat::kText);
      scrape.AddRows(MetricsOf(*layout), rows);
      const Given given = Ask(R"(,"samples":100000)", layout->name);
      EXPECT_EQ(given.text, Timed(scrape.Finish(), m_now)) << layout->name;
      EXPECT_EQ(given.head["rows"], rows.size());
      ++records;
    }
  }
  g_hostProfile = before;
  PublishFakeRecords();
  EXPECT_GT(records, 80U);
}

TEST_F(SampleQueriesTest, AnAnswerTellsWhenTheScheduleMakesTheNextRow) {
  EXPECT_EQ(Ask("").head["wait"], SampleQueries::kLongestWait.count());
  m_schedule.Set("OTHER", 5);
  m_schedule.Set("FAKE", 30);
  // A schedule's times are in the middle of seconds.
  EXPECT_NEAR(Ask("").head["wait"].Number(), 30.5, 0.5);
  Batch(m_now - 50, {1, 2});
  Batch(m_now - 40, {1});
  EXPECT_EQ(Ask(R"(,"samples":1)").head["wait"], 0) << "there is more";
}

TEST_F(SampleQueriesTest, RowsComeOnceInTheOrderOfCollectionAlsoWhereTheClockWentBack) {
  Batch(m_now - 50, {1});
  Batch(m_now - 40, {2});
  Batch(m_now - 45, {3});
  const Given all = Ask("");
  EXPECT_EQ(Counts(all), "1 2 3 ");
  EXPECT_EQ(all.head["oldest"], m_now - 50);
  EXPECT_EQ(all.head["more"], false);
  EXPECT_THAT(all.text, HasSubstr("qmt_fake_count_total{label=\"a\xEF\xBF\xBD\"} 1 "));
  const Given nothing = Ask(all.After());
  EXPECT_EQ(nothing.text, "");
  EXPECT_EQ(nothing.head["oldest"], 0);
  EXPECT_EQ(nothing.After(), all.After());
  Batch(m_now - 44, {4});
  const Given fourth = Ask(all.After());
  EXPECT_EQ(Counts(fourth), "4 ");
  Batch(m_now - 44, {14});
  const Given again = Ask(fourth.After());
  EXPECT_EQ(again.text, "") << "a second batch of one second";
  EXPECT_NE(again.After(), fourth.After());
  // Built when the next second had begun, as one look's rows may be.
  const FakeRecord late(5, m_now - 42);
  const CMBRecord* const row = &late;
  m_store.TakeTotals({"FAKE", '4', m_now - 43, {&row, 1}});
  m_store.EndBatch();
  EXPECT_THAT(Ask(again.After()).text, HasSubstr(" 5 " + std::to_string(m_now - 43) + "000\n"));
  EXPECT_EQ(Counts(Ask(R"(,"since":)" + std::to_string(m_now - 40))), "2 3 4 5 ");
  const Given later = Ask(R"(,"since":)" + std::to_string(m_now));
  EXPECT_EQ(later.text, "");
  Batch(m_now, {5});
  EXPECT_EQ(Counts(Ask(later.After())), "5 ") << "a begin is kept in the place to go on from";
}

TEST_F(SampleQueriesTest, AnAnswerIsAStretchOfTimeOfWholeTimes) {
  static constexpr RecordLayout kOther{"IDLE", "recordFake", '4', sizeof(recordFake), kFakeFields};
  LayoutRegistry::Instance().Publish(kOther);
  LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true, {}}, {"IDLE", '4', true, {}}});
  for (int i = 0; i < 10; ++i) {
    Batch(m_now - 100 + 2 * i, {1, 2});
    const FakeRecord other(7, m_now - 99 + 2 * i);
    const CMBRecord* row = &other;
    m_store.Take({"IDLE", '4', m_now, {&row, 1}});
    m_store.EndBatch();
  }
  std::string after;
  std::string text;
  std::int64_t rows = 0;
  int answers = 0;
  for (bool isMore = true; isMore; ++answers) {
    const Given given = Ask(R"(,"samples":3)" + after, R"(IDLE","FAKE)");
    isMore = given.head["more"].Bool();
    rows += given.head["rows"].Whole();
    after = given.After();
    text += given.text;
    EXPECT_LE(given.head["count"].Whole(), 3);
  }
  EXPECT_EQ(rows, 30);
  EXPECT_EQ(answers, 7);
  std::istringstream lines(text);
  std::string former;
  for (std::string line; std::getline(lines, line);) {
    const std::string time = line.substr(line.rfind(' '));
    EXPECT_LT(former, time);
    former = time;
  }
  LayoutRegistry::Instance().Publish(kIdleLayout);
  // One time of one record is given whole, however little is asked for.
  m_store.Database()->Execute("UPDATE \"FAKE totals\" SET Label = rowid");
  EXPECT_EQ(Counts(Ask(R"(,"samples":1)")), "1 2 ");
}

TEST_F(SampleQueriesTest, APlaceThatIsGoneOrAheadIsNotWaitedFor) {
  SqlDatabase* database = m_store.Database();
  Batch(m_now - 30, {1});
  Batch(m_now - 20, {2});
  const Given first = Ask(R"(,"samples":1)");
  EXPECT_EQ(Counts(first), "1 ");
  database->Execute("DELETE FROM \"FAKE totals\" WHERE Count = 1");
  EXPECT_EQ(Counts(Ask(first.After())), "2 ") << "the row has aged, its followers stand";
  const Given second = Ask("");
  database->Execute("DELETE FROM \"FAKE totals\"");
  EXPECT_EQ(Ask(second.After()).After(), second.After());
  Batch(m_now - 10, {3});
  Batch(m_now - 9, {4});
  EXPECT_EQ(Counts(Ask(second.After())), "3 4 ") << "numbers have begun again";
  const std::string far = std::to_string(m_now + 100000);
  EXPECT_EQ(Counts(Ask(R"(,"after":{"FAKE":[)" + far + ",99]}")), "3 4 ") << "it was the clock";
  EXPECT_EQ(Counts(Ask(R"(,"after":{"FAKE":[)" + far + ",1]}")), "3 4 ") << "another row";
  EXPECT_EQ(Counts(Ask(R"(,"since":)" + far)), "");
  m_store.Configure({});
  std::filesystem::rename("records.db", "aside.db");
  Batch(m_now - 5, {5});
  EXPECT_EQ(Counts(Ask(second.After())), "5 ") << "the file is another one";
}

TEST_F(SampleQueriesTest, WhatAFileCanHoldIsToldAsFarAsAFieldCanHoldIt) {
  Batch(m_now - 9, {1});
  SqlDatabase* database = m_store.Database();
  const auto count = [&](const char* value) {
    database->Execute(std::string("UPDATE \"FAKE totals\" SET Count = ") + value);
    return Counts(Ask(""));
  };
  EXPECT_EQ(count("4294967295"), "4294967295 ");
  for (const char* none : {"NULL", "-1", "4294967296", "'x'", "1.5", "9e99"}) {
    EXPECT_EQ(count(none), "") << none;
  }
  database->Execute("UPDATE \"FAKE totals\" SET Count = 2, Label = NULL");
  EXPECT_THAT(Ask("").text, HasSubstr("{label=\"\"} 2 "));
  database->Execute("ALTER TABLE \"FAKE totals\" DROP COLUMN Count");
  EXPECT_EQ(Ask("").text, "") << "no layout had that field then";
  EXPECT_EQ(Ask("").head["rows"], 1);
  database->Execute("DROP TABLE \"FAKE totals\"");
  EXPECT_EQ(Ask("").head["rows"], 0);
}

TEST_F(SampleQueriesTest, WhatIsAskedWronglyIsRefused) {
  const std::string many = JsonText(std::vector<std::string>(65, "FAKE"));
  const std::pair<std::string, const char*> rows[] = {
      {"{}", "records"},
      {R"({"records":[]})", "records"},
      {R"({"records":"FAKE"})", "records"},
      {R"({"records":[1]})", "records"},
      {R"({"records":["IDLE"]})", "records"},
      {R"({"records":["BARE"]})", "records"},
      {"{\"records\":" + many + "}", "records"},
      {R"({"records":["FAKE"],"names":"other"})", "names"},
      {R"({"records":["FAKE"],"after":[]})", "after"},
      {R"({"records":["FAKE"],"after":{"FAKE":[1]}})", "after"},
      {R"({"records":["FAKE"],"after":{"FAKE":[1,18446744073709551615]}})", "after"},
      {R"({"records":["FAKE"],"since":0.5})", "since"},
      {R"({"records":["FAKE"],"samples":0})", "samples"},
      {R"({"records":["FAKE"],"samples":100001})", "samples"},
  };
  for (const auto& [line, field] : rows) {
    EXPECT_EQ(AskLine(line)["error"]["field"], field) << line;
  }
  m_store.Configure({.file = ""});
  EXPECT_EQ(AskLine(R"({"records":["FAKE"]})")["error"]["code"], "no-history");
}

}  // namespace
