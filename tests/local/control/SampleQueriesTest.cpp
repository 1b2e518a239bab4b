#include "local/metrics/MetricText.h"
#include "support/HostProfile.h"
#include "tests/local/control/SampleQueriesFixture.h"

namespace {

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

TEST_F(SampleQueriesTest, AFailedBatchCostsNoOther) {
  Batch(m_now - 50, {1});
  Ask("");
  TakeOne(FAKE, 2, m_now - 40);
  m_store.AbandonBatch();
  Batch(m_now - 30, {3});
  SqlDatabase("records.db", 1000).Execute("CREATE UNIQUE INDEX u ON 'qmt totals' ('Record Time')");
  EXPECT_EQ(Counts(Ask("")), "1 3 ");
  Batch(m_now - 30, {4});
  Batch(m_now - 20, {5});
  EXPECT_EQ(Counts(Ask("")), "1 3 5 ");
  EXPECT_EQ(m_store.LostBatches(), 2U);
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
  for (std::size_t i = 0; i < kRows; ++i) {
    records.emplace_back(i, m_now);
  }
  m_store.TakeTotals({"FAKE", '4', m_now, PointersTo(records)});
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

/// A row, a second with as many of another record as take some turns, and one more.
class LongSearchTest : public SampleQueriesTest {
 protected:
  explicit LongSearchTest(std::chrono::milliseconds longestLook = SampleQueries::kLongestLook)
      : SampleQueriesTest(longestLook) {
    PublishSeldom();
    Batch(m_now - 100, {1});
    TakeOne(SELD, 5, m_now - 100);
    m_store.EndBatch();
    m_store.Database()->Execute(
        "INSERT INTO \"qmt totals\" WITH RECURSIVE numbers(i) AS (SELECT 1 UNION ALL SELECT i + 1 "
        "FROM numbers WHERE i < 100000) SELECT \"Record Time\", Rows FROM numbers, \"qmt totals\" "
        "WHERE rowid = 2");
    Batch(m_now, {7});
  }
  void SpreadOverTime() {
    m_store.Database()->Execute(
        "UPDATE \"qmt totals\" SET \"Record Time\" = \"Record Time\" + rowid "
        "WHERE rowid BETWEEN 2 AND 100002");
  }
};

TEST_F(LongSearchTest, TotalsAreLookedThroughInSmallTurns) {
  EXPECT_EQ(Counts(Ask("")), "1 7 ");
  EXPECT_GT(std::exchange(m_looks, 0), 3) << "behind a row of the same time";
  SpreadOverTime();
  EXPECT_EQ(Counts(Ask(R"(,"since":)" + std::to_string(m_now - 99))), "7 ");
  EXPECT_GT(m_looks, 3) << "from a time on";
}

class HurriedSearchTest : public LongSearchTest {
 protected:
  HurriedSearchTest() : LongSearchTest(std::chrono::milliseconds(0)) {}
};

TEST_F(HurriedSearchTest, WhatTakesLongIsAnsweredOnTheWayAndGoesOnFromThere) {
  const Given first = Ask("");
  EXPECT_EQ(Counts(first), "1 ");
  EXPECT_EQ(Counts(Ask(first.After())), "7 ") << "of one second no place is told on the way";
  SpreadOverTime();
  Given given = Ask(R"(,"since":)" + std::to_string(m_now - 99));
  int empty = 0;
  for (; given.head["more"].Bool() && empty < 1000; ++empty) {
    EXPECT_EQ(given.head["rows"], 0);
    given = Ask(given.After());
  }
  EXPECT_EQ(Counts(given), "7 ");
  EXPECT_GT(empty, 3);
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
