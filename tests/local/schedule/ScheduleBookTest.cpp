#include "local/schedule/ScheduleBook.h"

#include "tests/local/FakeAgent.h"
#include "tests/support/Testing.h"

namespace {

class ScheduleBookTest : public ::testing::Test {
 protected:
  ScheduleBookTest() { PublishFakeRecords(); }

  void Load(const std::vector<ScheduleLine>& lines) {
    book.Load("./qmtagt.ini", lines, [this](const std::string& text) { problems.push_back(text); });
  }

  EventLoop loop;
  BatchDesk desk;
  LastRows lastRows;
  ScheduleBook book{loop, desk, lastRows};
  FakeAgent agent;
  std::vector<std::string> problems;
};

TEST_F(ScheduleBookTest, ABadLineIsReportedWithItsPlaceAndLeftOut) {
  Load({{"FAKE", "60", 3},
        {"IDLE", "0", 4},
        {"IDLE", "86401", 5},
        {"IDLE", "5s", 6},
        {"IDLE", "", 7},
        {"FAKE", "30", 8},
        {"BARE", "86400", 9},
        {"fake", "60", 10}});
  ASSERT_EQ(problems.size(), 6U);
  EXPECT_EQ(
      problems[0],
      "./qmtagt.ini:4: the seconds of IDLE must be a whole number from 1 to 86400, not \"0\"");
  EXPECT_EQ(problems[4],
            "./qmtagt.ini:8: the record FAKE has a line already; this one is left out");
  EXPECT_EQ(problems[5], "./qmtagt.ini:10: no record \"fake\"; did you mean \"FAKE\"?");
  EXPECT_TRUE(book.Holds("FAKE", '4'));
  EXPECT_TRUE(book.Holds("BARE", '4'));
  EXPECT_FALSE(book.Holds("IDLE", '3'));
}

TEST_F(ScheduleBookTest, UnknownRecordsAreToldByNameTenTimesAndNeverAskedFor) {
  std::vector<ScheduleLine> lines;
  for (std::size_t i = 1; i <= 20000; ++i) {
    lines.push_back({"NO" + std::to_string(i), i % 2 == 0 ? "1" : "x", i});
  }
  Load(lines);
  ASSERT_EQ(problems.size(), 11U);
  EXPECT_EQ(problems[9], "./qmtagt.ini:10: no record \"NO10\"");
  EXPECT_EQ(problems[10],
            "./qmtagt.ini:20000: this line and 19989 others above it name records that don't exist "
            "either");
  EXPECT_TRUE(book.Entries().empty());
}

TEST_F(ScheduleBookTest, TotalsHaveTheTimeOfTheRowsWithRates) {
  struct TotalsSink : RecordSink {
    void Take(const ScheduledRows& rows) override {
      times.push_back(rows.time);
      EXPECT_TRUE(rows.lacksFigures);
    }
    void TakeTotals(const ScheduledRows& rows) override { times.push_back(rows.time); }
    std::vector<std::time_t> times;
  } sink;
  ScheduleBook kept(loop, desk, sink);
  kept.KeepTotals({"FAKE"});
  kept.Load("./qmtagt.ini", {{"FAKE", "60", 1}}, [](const std::string&) {});
  agent.onBatch = [](CMBMultipleRecordRequestEvent& batch) {
    // A second begins between the two.
    std::int32_t time = 1700000000;
    for (CMBRecordRequestEvent* event : batch.m_events) {
      event->m_records.push_back(new FakeRecord(1, time++));
      event->m_lacksFigures = true;
    }
    EventLoop::RequestStop();
    return kNotifyDone;
  };
  kept.Start();
  loop.Run(agent);
  kept.Stop();
  EXPECT_THAT(sink.times, ElementsAre(1700000000, 1700000000));
}

TEST_F(ScheduleBookTest, DueRequestsTravelTogetherAndLateTimesAreSkippedAndCounted) {
  Load({{"FAKE", "1", 1}, {"IDLE", "2", 2}});
  std::vector<std::string> batches;
  std::vector<std::size_t> previousRows;
  agent.onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    std::string names;
    for (CMBRecordRequestEvent* event : batch.m_events) {
      names += std::string(event->m_requests.at(0)->GetRecordType()) + " ";
      EXPECT_EQ(event->IsRealtime(), 0);
      EXPECT_EQ(event->ShouldCalcRates(), 1);
    }
    batches.push_back(names);
    CMBRecordRequestEvent& fake = *batch.m_events.at(0);
    previousRows.push_back(fake.PreviousRecords().size());
    fake.m_records.push_back(new FakeRecord(static_cast<std::uint32_t>(batches.size())));
    if (batches.size() == 1) {
      // Longer than the longest schedule: both are overdue, once each or more, when this ends.
      const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(3600);
      while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        loop.Yield(0);
      }
    }
    if (batches.size() == 2) {
      EventLoop::RequestStop();
    }
    return kNotifyDone;
  };
  book.Start();
  loop.Run(agent);
  book.Stop();

  // What fell due during the first batch did not pile up behind it.
  EXPECT_EQ(batches.front(), "FAKE IDLE ");
  EXPECT_EQ(batches.size(), 2U);
  EXPECT_THAT(previousRows, ElementsAre(0U, 1U));
  const ScheduleBook::Entry& fake = *book.Entries().at(0);
  EXPECT_EQ(fake.runs, 2U);
  EXPECT_GE(fake.skipped, 2U);
  EXPECT_LE(fake.skipped, 6U);
  EXPECT_EQ(fake.lastTime, 1700000000);
  EXPECT_GE(book.Entries().at(1)->skipped, 1U);
  EXPECT_EQ(lastRows.Find("FAKE", '4')->rows.size(), 1U);
  EXPECT_EQ(lastRows.Find("IDLE", '3')->time, 0);
  EXPECT_EQ(desk.Last()->records - desk.Last()->errors, 1U);
}

TEST(BatchDeskTest, OfARecordThatWasNeverBuiltFewCopiesMayBeAskedFor) {
  const std::vector<std::shared_ptr<RecordAsker>> askers(
      1024, std::make_shared<RecordAsker>("FAKE", '4', RecordAsker::Look::kOnDemand, false));
  EXPECT_TRUE(BatchDesk().MayHold({askers.data(), 8}));
  EXPECT_FALSE(BatchDesk().MayHold(askers));
}

}  // namespace
