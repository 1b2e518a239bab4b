#include "local/control/SampleQueries.h"

#include <sqlite3.h>

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

/// FAKE with the number as its count and its label.
class LabelledRecord : public FakeRecord {
 public:
  LabelledRecord(std::size_t number, std::int32_t time)
      : FakeRecord(static_cast<std::uint32_t>(number), time) {
    m_record.label = std::to_string(number).c_str();
  }
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

/// What another program does to the file, which has not this one's limits.
void ChangeAsAnother(const std::string& statement) {
  sqlite3* file = nullptr;
  ASSERT_EQ(::sqlite3_open("records.db", &file), SQLITE_OK);
  EXPECT_EQ(::sqlite3_exec(file, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
  ::sqlite3_close(file);
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
  enum Record { FAKE, SELD };
  /// Publishes another record besides.
  static void PublishSeldom() {
    static constexpr RecordLayout kSeldom{"SELD", "recordFake", '4', sizeof(recordFake),
                                          kFakeFields};
    LayoutRegistry::Instance().Publish(kSeldom);
    LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true, {}}, {"SELD", '4', true, {}}});
  }
  /// A row, or two with the same count.
  void TakeOne(int record, std::uint32_t count, std::int32_t time, std::size_t copies = 1) {
    const FakeRecord row(count, time);
    const LabelledRecord other(count, time);
    const CMBRecord* const rows[] = {&row, &other};
    m_store.TakeTotals(
        {record == FAKE ? "FAKE" : "SELD", '4', time, std::span(rows).first(copies)});
  }
  void LookAgain(const std::shared_ptr<FakePeer>& peer) {
    LoopTask look;
    ++m_looks;
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
  int m_looks = 0;  ///< turns of the loop until answers came
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
}

TEST_F(SampleQueriesTest, OneTimeOfOneRecordIsGivenWholeHoweverLittleIsAskedFor) {
  constexpr std::size_t kRows = 5000;
  std::vector<LabelledRecord> records;
  std::vector<const CMBRecord*> rows;
  for (std::size_t i = 0; i < kRows; ++i) {
    records.emplace_back(i, m_now);
  }
  for (const LabelledRecord& record : records) {
    rows.push_back(&record);
  }
  m_store.TakeTotals({"FAKE", '4', m_now, rows});
  m_store.EndBatch();
  EXPECT_EQ(m_store.Database()->Number("SELECT count(*) FROM \"qmt totals\""), 3);
  const Given all = Ask(R"(,"samples":1)");
  EXPECT_EQ(all.head["rows"], kRows);
  EXPECT_THAT(Counts(all), HasSubstr(" 4998 4999 "));
  EXPECT_EQ(all.head["more"], false);
  // Also where time is up at once.
  TotalsReader reader;
  const TotalsReader::Wanted wanted[] = {{&kFakeLayout, {}}};
  Batch(m_now + 1, {1});
  reader.Seek(*m_store.Database(), wanted, 0, m_now, {});
  ASSERT_TRUE(reader.HasRow());
  EXPECT_EQ(reader.Take().Size(), kRows);
  EXPECT_EQ(reader.Last().row, 3);
  EXPECT_TRUE(reader.HasRow());
  EXPECT_EQ(reader.Take().Size(), 1U);
  EXPECT_FALSE(reader.HasRow());
  EXPECT_EQ(reader.Passed().row, 4);
}

TEST_F(SampleQueriesTest, APlaceThatIsGoneOrAheadIsNotWaitedFor) {
  SqlDatabase* database = m_store.Database();
  Batch(m_now - 30, {1});
  Batch(m_now - 20, {2});
  const Given first = Ask(R"(,"samples":1)");
  EXPECT_EQ(Counts(first), "1 ");
  database->Execute("DELETE FROM \"qmt totals\" WHERE rowid = 1");
  EXPECT_EQ(Counts(Ask(first.After())), "2 ") << "the row has aged, its followers stand";
  const Given second = Ask("");
  database->Execute("DELETE FROM \"qmt totals\"");
  EXPECT_EQ(Ask(second.After()).After(), second.After());
  Batch(m_now - 10, {3});
  Batch(m_now - 9, {4});
  EXPECT_EQ(Counts(Ask(second.After())), "3 4 ") << "numbers have begun again";
  const std::string far = std::to_string(m_now + 100000);
  EXPECT_EQ(Counts(Ask(R"(,"after":{"FAKE":[)" + far + ",99]}")), "3 4 ") << "it was the clock";
  EXPECT_EQ(Counts(Ask(R"(,"after":{"FAKE":[)" + far + ",1]}")), "3 4 ") << "another row";
  EXPECT_EQ(Counts(Ask(R"(,"since":)" + far)), "");
  PublishSeldom();
  const std::string former = R"(,"after":{"FAKE":[1,1],"SELD":[)" + std::to_string(m_now - 99);
  for (const char* row : {",1000]}", ",-1000]}", ",1]}"}) {
    EXPECT_EQ(Ask(former + row, "FAKE\",\"SELD").head["next"]["SELD"][1], -2) << row;
  }
  m_store.Configure({});
  std::filesystem::rename("records.db", "aside.db");
  Batch(m_now - 5, {5});
  EXPECT_EQ(Counts(Ask(second.After())), "5 ") << "the file is another one";
}

TEST_F(SampleQueriesTest, WhatAFileCanHoldIsToldAsFarAsAFieldCanHoldIt) {
  LayoutRegistry::Instance().PublishListing({{"IDLE", '3', true, {}}});
  const FakeRecord idle(1, m_now - 9);
  const CMBRecord* const row = &idle;
  m_store.Take({"IDLE", '3', m_now - 9, {&row, 1}});
  m_store.EndBatch();
  SqlDatabase* database = m_store.Database();
  const auto count = [&](const char* value) {
    database->Execute(std::string("UPDATE IDLE SET Count = ") + value);
    const std::string counts = Counts(Ask("", "IDLE"));
    return counts.substr(0, counts.find(' '));
  };
  EXPECT_EQ(count("4294967295"), "4294967295");
  for (const char* none : {"NULL", "-1", "4294967296", "'x'", "1.5", "9e99"}) {
    EXPECT_EQ(count(none), count("NULL")) << none;
    EXPECT_THAT(m_text, Not(HasSubstr("qmt_idle_count"))) << none;
  }
  database->Execute("UPDATE IDLE SET Count = 2, Label = NULL");
  EXPECT_THAT(Ask("", "IDLE").text, HasSubstr("{label=\"\"} 2 "));
  database->Execute("ALTER TABLE IDLE DROP COLUMN Count");
  EXPECT_THAT(Ask("", "IDLE").text, Not(HasSubstr("qmt_idle_count"))) << "no layout had it then";
  EXPECT_EQ(Ask("", "IDLE").head["rows"], 1);
  database->Execute("DROP TABLE IDLE");
  EXPECT_EQ(Ask("", "IDLE").head["rows"], 0);
}

TEST_F(SampleQueriesTest, TotalsThatAnotherVersionHasKeptAreToldAsFarAsTheirFieldsAreTheSame) {
  static constexpr std::array kFormerFields{
      FieldLayout{"Count", FieldType::kUlong, 0, 4, FieldMeaning::counter},
      FieldLayout{"Rate", FieldType::kDouble, 4, 8, FieldMeaning::rate},
      FieldLayout{"Gone", FieldType::kUlong, 12, 4, FieldMeaning::gauge},
      FieldLayout{"Label", FieldType::kText, 16, 8, FieldMeaning::key},
      FieldLayout{"Record Time", FieldType::kLong, 24, 4, FieldMeaning::time}};
  static constexpr RecordLayout kFormer{"FAKE", "recordFormer", '4', 28, kFormerFields};
  std::mt19937 random(7);
  LayoutRegistry::Instance().Publish(kFormer);
  std::vector<std::unique_ptr<AnyRecord>> former;
  std::vector<const CMBRecord*> rows;
  for (int i = 0; i < 20; ++i) {
    rows.push_back(former.emplace_back(std::make_unique<AnyRecord>(kFormer, m_now, random)).get());
  }
  m_store.TakeTotals({"FAKE", '4', m_now, rows});
  m_store.EndBatch();
  MetricText scrape(MetricFormat::kText);
  static constexpr std::array kCommonFields{kFormerFields[0], kFormerFields[3]};
  static constexpr RecordLayout kCommon{"FAKE", "recordFormer", '4', 28, kCommonFields};
  scrape.AddRows(MetricsOf(kCommon), rows);
  PublishFakeRecords();
  m_store.Configure({});
  Batch(m_now + 1, {5});
  const Given given = Ask("");
  const std::string old = Timed(scrape.Finish(), m_now);
  EXPECT_THAT(old, HasSubstr("qmt_fake_count_total{"));
  EXPECT_EQ(given.text.substr(0, old.size()), old);
  EXPECT_THAT(given.text.substr(old.size()), HasSubstr("count_total{label=\"a\xEF\xBF\xBD\"} 5 "));
  EXPECT_EQ(given.head["rows"], 21);
}

TEST_F(SampleQueriesTest, OfDamagedTotalsTheOthersAreGiven) {
  const std::string head = "(SELECT substr(Rows, 1, 8) FROM \"qmt totals\" WHERE rowid = 2)";
  const std::string rows = "(SELECT substr(Rows, 17) FROM \"qmt totals\" WHERE rowid = 2)";
  const std::string pack = "UPDATE \"qmt totals\" SET Rows = ";
  // A row more than there is.
  const std::string size = "CAST(" + head + " || x'4800000000000000' || " + rows + " AS BLOB)";
  const std::string text = "UPDATE \"qmt totals layouts\" SET Description = ";
  Batch(m_now - 3, {1});
  Batch(m_now - 2, {2});
  Batch(m_now - 1, {3});
  m_store.Configure({});
  std::filesystem::copy("records.db", "whole.db");
  const std::pair<std::string, const char*> cases[] = {
      {pack + "NULL WHERE rowid = 2", "1 3 "},
      {pack + "5 WHERE rowid = 2", "1 3 "},
      {pack + "x'00' WHERE rowid = 2", "1 3 "},
      {pack + "printf('%.2000000c', 'x') WHERE rowid = 2", "1 3 "},
      {pack + "zeroblob(100) WHERE rowid = 2", "1 3 "},
      {pack + "zeroblob(2000000) WHERE rowid = 2", "1 3 "},
      {pack + "substr(Rows, 1, 51) WHERE rowid = 2", "1 3 "},
      {pack + "substr(Rows, 1, 16) WHERE rowid = 2", "1 3 "},
      {pack + size + " WHERE rowid = 2", "1 3 "},
      {pack + "CAST(Rows || Rows AS BLOB) WHERE rowid = 2", "1 2 3 "},
      {pack + "CAST(Rows || x'ffffffffffffffffffffffffffffffff' AS BLOB) WHERE rowid = 2",
       "1 2 3 "},
      {text + "NULL", ""},
      {text + "replace(Description, '36', '37')", ""},
      {"DROP TABLE \"qmt totals layouts\"", ""},
      {"ALTER TABLE \"qmt totals layouts\" RENAME COLUMN Layout TO Number", ""},
      {"DROP TABLE \"qmt totals\"", ""},
      {"ALTER TABLE \"qmt totals\" DROP COLUMN Rows", ""},
  };
  for (const auto& [damage, counts] : cases) {
    std::filesystem::copy("whole.db", "records.db",
                          std::filesystem::copy_options::overwrite_existing);
    ChangeAsAnother(damage);
    EXPECT_EQ(Counts(Ask("")), counts) << damage;
    // What this version knows itself is put right by the next batch.
    Batch(m_now, {4});
    EXPECT_THAT(Counts(Ask("")), EndsWith("4 ")) << damage;
    m_store.Configure({});
  }
}

TEST_F(SampleQueriesTest, ADescriptionThatIsNoneDescribesNothing) {
  Batch(m_now - 3, {1});
  const std::string whole = TotalsLayoutOf(kFakeLayout).description;
  ASSERT_THAT(whole, HasSubstr(R"(["Count","ulong",20,4])"));
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"{", "["},
      {"}", ""},
      {"FAKE", "NONE"},
      {"\"FAKE\"", "5"},
      {"\"size\":36", "\"size\":0"},
      {"\"size\":36", "\"size\":35"},
      {"\"size\":36", "\"size\":65536"},
      {"\"size\":36", "\"size\":-36"},
      {"\"Count\"", "\"Counts\""},
      {"\"ulong\",20", "\"float\",20"},
      {"20,4]", "20]"},
      {"20,4]", "33,4]"},
      {"20,4]", "20,8]"},
      {"20,4]", "4294967295,4]"},
      {"20,4]", "18446744073709551615,4]"},
      {"20,4]", "-1,4]"},
  };
  SqlDatabase& database = *m_store.Database();
  for (const auto& [from, to] : cases) {
    std::string description = whole;
    description.replace(description.find(from), std::strlen(from), to);
    const std::int64_t number = TotalsLayoutNumber(description);
    SqlStatement layout =
        database.Prepare("UPDATE \"qmt totals layouts\" SET Layout = ?1, Description = ?2");
    layout.Bind(1, number);
    layout.Bind(2, std::string_view(description));
    layout.Run();
    SqlStatement pack =
        database.Prepare("UPDATE \"qmt totals\" SET Rows = CAST(?1 || substr(Rows, 9) AS BLOB)");
    pack.Bind(1, std::span(reinterpret_cast<const unsigned char*>(&number), sizeof number));
    pack.Run();
    EXPECT_EQ(Counts(Ask("")), *from == '\0' ? "1 " : "") << description;
  }
}

TEST_F(SampleQueriesTest, ARecordThatIsAskedForLaterBringsNothingOfTheOthersAgain) {
  PublishSeldom();
  std::string expected;
  for (std::int32_t batch = 1; batch <= 9; ++batch) {
    TakeOne(FAKE, static_cast<std::uint32_t>(batch), m_now + batch);
    TakeOne(SELD, static_cast<std::uint32_t>(batch), m_now + batch);
    m_store.EndBatch();
    expected += std::to_string(batch) + ' ';
  }
  Given given = Ask("");
  EXPECT_EQ(Counts(given), expected);
  std::string later;
  const std::string since = R"(,"samples":1,"since":)" + std::to_string(m_now);
  do {
    given = Ask(since + given.After(), "FAKE\",\"SELD");
    EXPECT_THAT(given.text, Not(HasSubstr("fake")));
    later += Counts(given);
  } while (given.head["more"].Bool());
  EXPECT_EQ(later, expected);
  const Given early = Ask(R"(,"samples":1)");
  EXPECT_EQ(Counts(early), "1 ");
  given =
      Ask(R"(,"samples":1,"since":)" + std::to_string(m_now + 5) + early.After(), "FAKE\",\"SELD");
  given = Ask(given.After(), "SELD");
  EXPECT_EQ(Counts(given), "5 6 7 8 9 ") << "it begins where it was told to";
}

TEST_F(SampleQueriesTest, AClockThatWasSetBackCostsNoOtherRecordItsRow) {
  PublishSeldom();
  TakeOne(FAKE, 1, m_now);
  m_store.EndBatch();
  TakeOne(FAKE, 2, m_now + 1);
  m_store.EndBatch();
  const Given first = Ask("", "FAKE\",\"SELD");
  EXPECT_EQ(Counts(first), "1 2 ");
  for (const std::int32_t time : {m_now, m_now + 1}) {
    TakeOne(SELD, 3, time);
    m_store.EndBatch();
    const Given second = Ask(first.After(), "FAKE\",\"SELD");
    EXPECT_EQ(Counts(second), "3 ");
    m_store.Database()->Execute("DELETE FROM \"qmt totals\" WHERE rowid = 3");
  }
}

TEST_F(SampleQueriesTest, OfASecondBatchOfOneSecondNothingIsGiven) {
  Batch(m_now, {1});
  const LabelledRecord other(2, m_now);
  const CMBRecord* const row = &other;
  m_store.TakeTotals({"FAKE", '4', m_now, {&row, 1}});
  m_store.EndBatch();
  EXPECT_EQ(Counts(Ask("")), "1 ");
  PublishSeldom();
  TakeOne(SELD, 5, m_now);
  m_store.EndBatch();
  const Given both = Ask("", "FAKE\",\"SELD");
  EXPECT_EQ(Counts(both), "1 5 ");
  Batch(m_now, {3});
  EXPECT_EQ(Counts(Ask(both.After(), "FAKE\",\"SELD")), "") << "nor behind a row of another record";
}

TEST_F(SampleQueriesTest, TotalsAreLookedThroughInSmallTurns) {
  PublishSeldom();
  const std::string copies =
      "INSERT INTO \"qmt totals\" WITH RECURSIVE numbers(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
      "FROM "
      "numbers WHERE i < 100000) SELECT \"Record Time\", Rows FROM numbers, \"qmt totals\" WHERE "
      "rowid = ";
  Batch(m_now - 100, {1});
  TakeOne(SELD, 5, m_now - 100);
  m_store.EndBatch();
  m_store.Database()->Execute(copies + '2');
  Batch(m_now, {7});
  EXPECT_EQ(Counts(Ask("")), "1 7 ");
  EXPECT_GT(std::exchange(m_looks, 0), 3) << "behind a row of the same time";
  m_store.Database()->Execute(
      "UPDATE \"qmt totals\" SET \"Record Time\" = \"Record Time\" + rowid "
      "WHERE rowid BETWEEN 2 AND 100002");
  EXPECT_EQ(Counts(Ask(R"(,"since":)" + std::to_string(m_now - 99))), "7 ");
  EXPECT_GT(m_looks, 3) << "from a time on";
}

/// Batches of two records, of which one comes but seldom, with questions in between.
class TwoRecordsTest : public SampleQueriesTest, public ::testing::WithParamInterface<bool> {
 protected:
  TwoRecordsTest() { PublishSeldom(); }
  /// Whether there is more.
  bool AskSome() {
    const auto count = std::to_string(1 + m_random() % 5);
    const Given answer = Ask(R"(,"samples":)" + count + m_after, "SELD\",\"FAKE");
    m_after = answer.After();
    std::istringstream lines(answer.text);
    for (std::string line; std::getline(lines, line);) {
      const int record = line.starts_with("qmt_fake_count") ? FAKE : SELD;
      m_given[record].push_back(std::stoul(line.substr(line.find("} ") + 2)));
    }
    m_gap =
        answer.head["next"]["FAKE"][1].Whole() - std::abs(answer.head["next"]["SELD"][1].Whole());
    return answer.head["more"].Bool();
  }
  void MakeBatch(std::uint32_t number, bool isOfBoth) {
    m_time += static_cast<std::int32_t>(m_random() % 3);
    if (GetParam() && m_random() % 15 == 0) {
      m_time -= 3;
    }
    for (const int record : {FAKE, SELD}) {
      if (m_random() % (record == FAKE ? 2 : 20) == 0 && (isOfBoth || record == FAKE)) {
        TakeOne(record, number, m_time, record == FAKE ? 2 : 1);
        const bool isNew = std::exchange(m_lastTimes[record], m_time) != m_time;
        (isNew ? m_wanted : m_optional)[record].push_back(number);
      }
    }
    m_store.EndBatch();
  }

  std::mt19937 m_random{11};
  std::vector<std::size_t> m_wanted[2];
  std::vector<std::size_t> m_optional[2];  ///< of the second of the one before
  std::vector<std::size_t> m_given[2];
  std::int64_t m_gap = 0;

 private:
  std::int32_t m_lastTimes[2]{};
  std::string m_after;
  std::int32_t m_time = m_now - 5000;
};

TEST_P(TwoRecordsTest, EachRecordsTotalsComeOnceWhateverTheOtherDoes) {
  const bool isClockSetBack = GetParam();
  constexpr std::uint32_t kOfBoth = 200;
  for (std::uint32_t batch = 1; batch <= kOfBoth + 30; ++batch) {
    MakeBatch(batch, batch <= kOfBoth);
    if (m_random() % 4 == 0) {
      AskSome();
    }
  }
  while (AskSome()) {
  }
  for (const int record : {FAKE, SELD}) {
    std::vector<std::size_t> given = m_given[record];
    EXPECT_TRUE(std::ranges::is_sorted(given));
    if (isClockSetBack) {
      std::erase_if(given, [&](std::size_t batch) {
        return std::ranges::find(m_optional[record], batch) != m_optional[record].end();
      });
    }
    if (record == FAKE) {
      std::vector<std::size_t> twice;
      for (const std::size_t batch : m_wanted[FAKE]) {
        twice.insert(twice.end(), 2, batch);
      }
      m_wanted[FAKE] = twice;
    }
    EXPECT_EQ(given, m_wanted[record]);
  }
  EXPECT_LE(m_gap, 3) << "the seldom one is looked for from far behind";
}

INSTANTIATE_TEST_SUITE_P(ClockSetBack, TwoRecordsTest, ::testing::Bool());

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
