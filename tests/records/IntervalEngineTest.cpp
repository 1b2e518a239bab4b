#include "records/IntervalEngine.h"

#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

using Row = recordPI_CPUP;

constexpr std::array kCounters{CounterField<Row>{&Row::interrupts, "some_interrupts"}};
constexpr std::array kTimes{&Row::userTime};

IntervalFamily<Row> Family(RateFailure failure) {
  return {.counters = kCounters,
          .times = kTimes,
          .sameInstance = [](const Row& a, const Row& b) { return a.processorId == b.processorId; },
          .ratesOperation = "RecordBuilder::BuildRates_XXX",
          .rateFailure = failure};
}

Row RawRow(std::int32_t time, const char* instance, std::uint32_t interrupts,
           std::int32_t userSeconds = 0) {
  Row row = NewRow<Row>(time);
  row.processorId = instance;
  row.interrupts = interrupts;
  row.userTime = tagUTIME{userSeconds, 0};
  return row;
}

class IntervalEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
  }

  /// One build of `rows`; the finished rows.
  std::vector<Row> BuildRows(Asker& asker, bool first, const std::vector<Row>& rows) {
    IntervalBuild<Row> build(m_family, m_rawRows, asker.event, first, 500);
    m_error.reset();
    for (const Row& row : rows) {
      m_error = build.Add(row, [&](Row& finished, const Row* predecessor) {
        m_derivedFrom = finished.interval;
        finished.cpuPercent =
            predecessor == nullptr
                ? -1.0F
                : static_cast<float>(finished.interrupts - predecessor->interrupts);
      });
      if (m_error) {
        break;
      }
    }
    m_count = build.RowCount();
    std::vector<Row> finished;
    for (const CMBRecord* record : asker.event.m_records) {
      finished.push_back(*static_cast<const Row*>(record->GetRecStart()));
    }
    asker.NextAnswer();
    return finished;
  }

  IntervalFamily<Row> m_family = Family(RateFailure::kEndsBuild);
  RawRows<Row> m_rawRows;
  UtlErrorPtr m_error;
  int m_count = 0;
  std::uint32_t m_derivedFrom = 0;  ///< the interval that the last percentages were computed from
};

TEST_F(IntervalEngineTest, AFirstIntervalOnlyPrimesAndLaterOnesDiffer) {
  Asker asker("CPUP", '4', {.realtime = 0, .calcRates = 1});
  EXPECT_TRUE(BuildRows(asker, true, {RawRow(1000, "0", 50, 7)}).empty());
  EXPECT_EQ(m_count, 1);
  // The second instance comes up between the intervals.
  const auto rows = BuildRows(asker, false, {RawRow(1010, "0", 80, 9), RawRow(1010, "1", 101)});
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].interval, 10U);
  EXPECT_EQ(rows[0].interrupts, 30U);
  EXPECT_FLOAT_EQ(rows[0].interruptsPerSec, 3.0F);
  EXPECT_EQ(tagUTIME(rows[0].userTime), (tagUTIME{2, 0}));
  EXPECT_EQ(rows[1].interval, 1010U);
  EXPECT_FLOAT_EQ(rows[1].interruptsPerSec, 0.1F);
  // An instance that was away: its interval spans the gap.
  EXPECT_EQ(BuildRows(asker, false, {RawRow(1020, "1", 111)}).at(0).interval, 10U);
  const auto back = BuildRows(asker, false, {RawRow(1040, "1", 120), RawRow(1040, "0", 90)});
  EXPECT_EQ(back.at(1).interval, 30U);
  EXPECT_EQ(back.at(1).interrupts, 10U);
}

TEST_F(IntervalEngineTest, ABackwardCounterWrapsWithATrace) {
  Asker asker("CPUP", '4', {.realtime = 0, .calcRates = 1});
  (void)BuildRows(asker, true, {RawRow(1000, "0", 50)});
  const auto rows = BuildRows(asker, false, {RawRow(1001, "0", 48)});
  EXPECT_EQ(rows.at(0).interrupts, 4294967294U);
  EXPECT_EQ(ScriptedNode::Instance()
                .LinesWith("Current interval data for field (some_interrupts) is less than that "
                           "during previous intervalcurrent Interval Data = 48, Previous interval "
                           "Data = 50)")
                .size(),
            1U);
}

TEST_F(IntervalEngineTest, RealtimeModesNeverMoveTheRawRows) {
  Asker schedule("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Asker look("CPUP", '4', {.realtime = 1, .calcRates = 0});
  Asker lookWithRates("CPUP", '4', {.realtime = 1, .calcRates = 1});
  (void)BuildRows(schedule, true, {RawRow(1000, "0", 50)});

  const auto first = BuildRows(look, true, {RawRow(1004, "0", 60)});
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(first[0].interval, 1004U);
  EXPECT_EQ(m_derivedFrom, 1004U);
  EXPECT_FLOAT_EQ(first[0].interruptsPerSec, 60.0F);
  EXPECT_FLOAT_EQ(first[0].cpuPercent, -1.0F);
  EXPECT_FLOAT_EQ(BuildRows(look, false, {RawRow(1005, "0", 75)}).at(0).cpuPercent, 15.0F);

  const auto rates = BuildRows(lookWithRates, true, {RawRow(1006, "0", 100)});
  EXPECT_EQ(rates.at(0).interval, 500U);
  EXPECT_FLOAT_EQ(rates.at(0).interruptsPerSec, 0.2F);

  EXPECT_EQ(BuildRows(schedule, false, {RawRow(1010, "0", 110)}).at(0).interrupts, 60U);
}

TEST_F(IntervalEngineTest, AZeroIntervalEndsTheBuildOrSkipsTheRow) {
  Asker asker("CPUP", '4', {.realtime = 0, .calcRates = 1});
  (void)BuildRows(asker, true, {RawRow(1000, "1", 50)});
  const std::vector<Row> sample{RawRow(1000, "0", 1), RawRow(1000, "1", 60), RawRow(1000, "2", 2)};
  EXPECT_EQ(BuildRows(asker, false, sample).size(), 1U);
  ASSERT_NE(m_error, nullptr);
  EXPECT_STREQ(m_error->GetMessage(),
               "RecordBuilder::BuildRates_XXX: Attempt to calculate rates for a zero second "
               "interval.");
  m_family = Family(RateFailure::kSkipsRow);
  m_rawRows = {};
  (void)BuildRows(asker, true, {RawRow(1000, "1", 50)});
  EXPECT_EQ(BuildRows(asker, false, sample).size(), 2U);
  EXPECT_EQ(m_error, nullptr);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("Unable to process CPUP record: ").size(), 1U);
}

TEST_F(IntervalEngineTest, InstancesThatVanishedAreForgottenWhereTheFamilySaysSo) {
  g_msgLogLevel = 0;
  m_family.forgetsAfter = 1;
  Asker asker("CPUP", '4', {.realtime = 0, .calcRates = 1});
  Asker look("CPUP", '4', {.realtime = 1, .calcRates = 0});
  std::int32_t now = 1000;
  for (int build = 0; build < 5000; ++build) {
    ++now;
    std::vector<Row> rows{RawRow(now, "stays", 5)};
    for (int instance = 0; instance < 20; ++instance) {
      rows.push_back(RawRow(now, std::to_string(build * 20 + instance).c_str(), 1));
    }
    (void)BuildRows(asker, true, rows);
  }
  EXPECT_EQ(m_rawRows.Count(), 21U);
  // These don't tell what vanished.
  (void)BuildRows(asker, false, {});
  (void)BuildRows(look, true, {RawRow(now, "stays", 5)});
  (void)BuildRows(asker, false, {RawRow(now, "new", 1), RawRow(now, "stays", 5)});
  EXPECT_NE(m_error, nullptr);
  EXPECT_EQ(m_rawRows.Count(), 22U);
  EXPECT_EQ(BuildRows(asker, false, {RawRow(now + 10, "stays", 9)}).at(0).interrupts, 4U);
  EXPECT_EQ(m_rawRows.Count(), 1U);
  for (const auto& [after, count] :
       std::vector<std::pair<unsigned, std::size_t>>{{0, 2}, {2, 2}, {2, 1}}) {
    m_family.forgetsAfter = after;
    now += 20;
    (void)BuildRows(asker, false, {RawRow(now, "other", 9)});
    (void)BuildRows(look, true, {RawRow(now, "other", 9)});
    EXPECT_EQ(m_rawRows.Count(), count) << now;
  }
}

TEST(PercentOf, IsZeroOfNothing) {
  EXPECT_FLOAT_EQ(PercentOf({1, 500000}, {3, 0}), 50.0F);
  EXPECT_FLOAT_EQ(PercentOf({1, 0}, {0, 0}), 0.0F);
}

TEST(TimeGrowthTest, CountsNothingBackwardsAndGoesOnAcrossTheWrap) {
  const tagUTIME beforeWrap{2147483647, 500000};
  const tagUTIME afterWrap{-2147483647, 250000};
  EXPECT_EQ(TimeGrowth({7, 250000}, {5, 500000}), (tagUTIME{1, 750000}));
  EXPECT_EQ(TimeGrowth({5, 500000}, {5, 510000}), tagUTIME{});
  EXPECT_EQ(TimeGrowth({5, 0}, {90, 0}), tagUTIME{});
  EXPECT_EQ(TimeGrowth(afterWrap, beforeWrap), (tagUTIME{1, 750000}));
  EXPECT_EQ(TimeGrowth(beforeWrap, afterWrap), tagUTIME{});
}

TEST(CounterGrowthTest, CountsNothingBackwardsAndGoesOnAcrossTheWrap) {
  ScriptedNode::Reset();
  g_msgLogLevel = 20;
  EXPECT_EQ(CounterGrowth(9, 5, "c"), 4U);
  EXPECT_EQ(CounterGrowth(10, 4294967290U, "c"), 16U);
  EXPECT_EQ(CounterGrowth(2147483652U, 5, "c"), 2147483647U);
  EXPECT_EQ(CounterGrowth(3000000000U, 0, "c"), 0U) << "more than half of the range";
  EXPECT_TRUE(ScriptedNode::Instance().LinesWith("is less than that").empty());
  EXPECT_EQ(CounterGrowth(5, 9, "c"), 0U);
  EXPECT_EQ(CounterGrowth(5, 2147483652U, "c"), 0U);
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("field (c) is less than that").size(), 2U);
}

TEST_F(IntervalEngineTest, AFamilySaysHowItsTimesAreSubtracted) {
  m_family.timeDelta = TimeGrowth;
  Asker asker("CPUP", '4', {.realtime = 0, .calcRates = 1});
  (void)BuildRows(asker, true, {RawRow(100, "0", 5, 60)});
  const std::vector<Row> rows = BuildRows(asker, false, {RawRow(110, "0", 5, 59)});
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].userTime, tagUTIME{});
}

}  // namespace
