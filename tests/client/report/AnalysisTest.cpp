#include "client/report/Analysis.h"

#include <cmath>
#include <optional>

#include "client/report/EventParts.h"
#include "client/report/Uses.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kStart = 1'795'000'000;

/// One bucket a day, which holds one value each.
std::vector<Bucket> Daily(const std::vector<double>& values) {
  std::vector<Bucket> buckets;
  for (const double value : values) {
    buckets.push_back(
        {kStart + kDay * static_cast<std::int64_t>(buckets.size()), value, value, value});
  }
  return buckets;
}

TEST(ReportAnalysisTest, GrowthIsTheSlopeOfALineAndTellsTheDaysLeft) {
  const struct {
    const char* what;
    std::vector<double> values;
    double available;
    std::optional<double> growth;
    std::optional<double> days;
  } cases[] = {
      {"steady", {10, 20, 30, 40}, 100, 10, 10},
      {"with noise", {0, 12, 18, 30}, 48, 9.6, 5},
      {"shrinks", {40, 30, 20}, 100, -10, {}},
      {"stands still", {7, 7, 7}, 100, 0, {}},
      {"is full", {1, 2, 3}, 0, 1, 0},
      {"too few", {1, 2}, 100, {}, {}},
      {"none", {}, 100, {}, {}},
      {"space unknown", {1, 2, 3}, std::nan(""), 1, {}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    const auto growth = GrowthADay(Daily(row.values));
    ASSERT_EQ(growth.has_value(), row.growth.has_value());
    if (growth) {
      EXPECT_NEAR(*growth, *row.growth, 1e-9);
    }
    const auto days = DaysLeft(growth, row.available);
    ASSERT_EQ(days.has_value(), row.days.has_value());
    if (days) {
      EXPECT_NEAR(*days, *row.days, 1e-9);
    }
  }
  EXPECT_FALSE(GrowthADay({{5, 1, 1, 1}, {5, 2, 2, 2}, {5, 3, 3, 3}})) << "all at one time";
  const auto growthOver = [](std::int64_t seconds) {
    return GrowthADay({{0, 1, 1, 1}, {seconds / 2, 2, 2, 2}, {seconds, 3, 3, 3}});
  };
  EXPECT_FALSE(growthOver(6 * 3600 - 2)) << "hours tell nothing of days";
  ASSERT_TRUE(growthOver(6 * 3600));
  EXPECT_NEAR(*growthOver(6 * 3600), 8, 1e-9);
}

TEST(ReportAnalysisTest, ExtentsHaveTheTimesOfTheFirstOfTheirEnds) {
  EXPECT_FALSE(ExtentOf({}));
  const auto extent = ExtentOf({{10, 2, 3, 4}, {20, 1, 5, 9}, {30, 1, 1, 9}});
  ASSERT_TRUE(extent);
  EXPECT_EQ(extent->least, 1);
  EXPECT_EQ(extent->leastTime, 20);
  EXPECT_EQ(extent->greatest, 9);
  EXPECT_EQ(extent->greatestTime, 20);
}

TEST(ReportAnalysisTest, PeaksAreApartAndTheHighestComesFirst) {
  const std::vector<Peak> moments{{0, 5},   {10, 9},  {15, 8},  {100, 7},
                                  {200, 9}, {300, 0}, {400, -1}};
  const auto timesOf = [&](std::size_t count, std::int64_t apart) {
    std::vector<std::int64_t> times;
    for (const Peak& peak : PeaksOf(moments, count, apart)) {
      times.push_back(peak.time);
    }
    return times;
  };
  EXPECT_EQ(timesOf(3, 20), (std::vector<std::int64_t>{10, 200, 100}));
  EXPECT_EQ(timesOf(3, 1), (std::vector<std::int64_t>{10, 200, 15}));
  EXPECT_EQ(timesOf(9, 20), (std::vector<std::int64_t>{10, 200, 100})) << "no moment of nothing";
  EXPECT_EQ(timesOf(9, 10), (std::vector<std::int64_t>{10, 200, 100, 0}));
}

TEST(ReportAnalysisTest, HolesLieBetweenBucketsAndAtTheEdges) {
  const struct {
    const char* what;
    std::vector<std::int64_t> times;
    std::vector<Span> holes;
  } cases[] = {
      {"no rows at all", {}, {{1000, 1100}}},
      {"none missing", {1000, 1010, 1020, 1030, 1040, 1050, 1060, 1070, 1080, 1091}, {}},
      {"in the middle", {1000, 1010, 1060, 1070, 1080, 1091}, {{1010, 1060}}},
      {"one bucket", {1000, 1020, 1030, 1040, 1050, 1060, 1070, 1080, 1091}, {{1000, 1020}}},
      {"at both edges", {1040, 1050}, {{1000, 1040}, {1050, 1100}}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(HolesOf(row.times, 1000, 1100, 10), row.holes);
  }
  EXPECT_FALSE(IsGap(90, 60)) << "late, not missing";
  EXPECT_TRUE(IsGap(91, 60));
}

TEST(ReportAnalysisTest, StartsWhoseTimesWaverAreOne) {
  EXPECT_EQ(StartsOf({500, 100, 160, 101, 0, 700}, 60), (std::vector<std::int64_t>{100, 500, 700}));
  EXPECT_EQ(StartsOf({}, 60), std::vector<std::int64_t>{});
}

TEST(ReportAnalysisTest, StartsOfOneProgramAreThoseThatDoNotOverlap) {
  EXPECT_EQ(ChainedStarts({{10, 20}, {15, 40}, {50, 55}, {57, 200}}, 100),
            (std::vector<std::int64_t>{15, 50, 100}));
  EXPECT_EQ(ChainedStarts({{100, 200}}, 100), std::vector<std::int64_t>{100}) << "the present one";
}

TEST(ReportAnalysisTest, GapsThatRecordsShareAreOne) {
  const auto gaps = SharedGapsOf(
      {{"PI", 1, {{10, 20}, {30, 40}}, false}, {"FSL", 1, {{5, 20}, {30, 40}}, false}});
  ASSERT_EQ(gaps.size(), 3U);
  EXPECT_EQ(gaps[0].span, (Span{5, 20}));
  EXPECT_EQ(gaps[1].records, "PI");
  EXPECT_EQ(gaps[2].records, "PI, FSL");
}

Use UseAt(std::int64_t time, const std::string& name, double cpu, double memory,
          std::optional<double> io) {
  return {time, std::nullopt, name, "root", cpu, memory, io};
}

std::vector<std::string> NamesOf(const std::vector<UseTotal>& totals) {
  std::vector<std::string> names;
  for (const UseTotal& total : totals) {
    names.push_back(total.name);
  }
  return names;
}

TEST(ReportUsesTest, UsesOfANameAreSummedAndMemoryIsThatOfOneTime) {
  UseSums sums(3);
  sums.Add(UseAt(10, "cc", 1, 100, {}));
  sums.Add(UseAt(10, "cc", 2, 150, {}));
  sums.Add(UseAt(10, "db", 1, 240, 7));
  sums.Add(UseAt(20, "cc", 4, 120, {}));
  sums.Add(UseAt(20, "db", 1, 200, 5));
  sums.Add(UseAt(20, "idle", 0, 0, 0));
  sums.Add(UseAt(20, "beyond", 99, 99, 99));
  EXPECT_EQ(NamesOf(sums.Top(UseMeasure::kCpu, 5)), (std::vector<std::string>{"cc", "db"}));
  EXPECT_EQ(NamesOf(sums.Top(UseMeasure::kMemory, 1)), (std::vector<std::string>{"cc"}));
  EXPECT_EQ(NamesOf(sums.Top(UseMeasure::kIo, 5)), (std::vector<std::string>{"db"}));
  const UseTotal cc = sums.Top(UseMeasure::kCpu, 1).front();
  EXPECT_EQ(cc.cpuSeconds, 7);
  EXPECT_EQ(cc.mostMemory, 250);
  EXPECT_EQ(cc.mostMemoryTime, 10);
  EXPECT_EQ(cc.mostAtOnce, 2U);
  EXPECT_FALSE(cc.ioBytes) << "without a source it is not 0";
  EXPECT_EQ(sums.Omitted(), 1U);
}

TEST(UseBatchesTest, WhatIsNotOfTheTimeBetweenBatchesIsLeftOut) {
  const struct {
    std::int64_t time;
    double seconds;
    bool isKept;
    const char* why;
  } cases[] = {{100, 10, false, "nothing tells what came before"},
               {100, 10, false, "another row of that batch"},
               {110, 10, true, "the time since the batch before"},
               {110, 10, true, "another row of that batch"},
               {122, 12, true, "a batch that was late"},
               {172, 10, false, "the agent was away"},
               {175, 10, false, "an agent that was started anew at once"},
               {185, 10, true, "and goes on"}};
  UseBatches batches;
  for (const auto& row : cases) {
    Use use{row.time, row.seconds, "cc", "", 5.0, 7.0, 9.0};
    batches.Judge(use);
    EXPECT_EQ(use.cpuSeconds.has_value(), row.isKept) << row.why;
    EXPECT_EQ(use.ioBytes.has_value(), row.isKept) << row.why;
    EXPECT_TRUE(use.memoryBytes) << "memory is of the moment";
  }
}

}  // namespace
