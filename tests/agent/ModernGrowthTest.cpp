#include <limits>
#include <list>

#include "collect/modern/ModernFigures.h"
#include "records/RecordLayouts.h"
#include "tests/agent/RecordRows.h"
#include "tests/scripted/BuilderFixture.h"

namespace {

constexpr tagPQLAUI kGrowthIntervals{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kGrowthLooks{.realtime = 1, .calcRates = 0};

/// An instance and what its counter stands at.
struct Instance {
  std::string name;
  double count;
};
using Instances = std::vector<Instance>;

/// Puts an instance into a table of figures as a collection would.
template <auto kTable, auto kName, auto kCounter>
void Put(ModernFigures& all, const Instance& instance) {
  auto& figures = (all.*kTable).emplace_back();
  figures.*kName = instance.name;
  std::invoke(kCounter, figures) = instance.count;
}

/// A record of many rows, by one of its counters and what is made of its growth.
struct CountedRecord {
  const char* name;
  unsigned char category;
  UtlError* (RecordBuilder::*build)(CMBRecordRequestEvent*, CMBRecordRequest*);
  const char* key;
  const char* counter;
  const char* rate;
  double rateOfOne;  ///< what the rate is for a growth of 1 in a second
  bool newCountsAll;
  void (*put)(ModernFigures&, const Instance&);
};

double& CpuSecondsOf(ControlGroup& group) { return group.cpu.totalSeconds; }
double& StalledSecondsOf(PressureFigures& row) { return row.text.some.stalledSeconds; }

using Building = RecordBuilder;
using All = ModernFigures;
using Cpu = CpuTimeFigures;
using Press = PressureFigures;
const CountedRecord kGroups{
    "CGRP", '4',           &Building::Build_CGRP,
    "Path", "CPU Seconds", "CPU %",
    100,    true,          Put<&All::groups, &ControlGroup::path, CpuSecondsOf>};
const CountedRecord kLinks{
    "NETD",      '4',        &Building::Build_NETD,
    "Interface", "Bytes In", "Bytes In/sec",
    1,           true,       Put<&All::links, &LinkFigures::name, &LinkFigures::bytesIn>};
const CountedRecord kDisks{
    "DISK",   '4',     &Building::Build_DISK,
    "Device", "Reads", "Reads/sec",
    1,        true,    Put<&All::disks, &DiskFigures::name, &DiskFigures::reads>};
const CountedRecord kPressure{"PRES",
                              '4',
                              &Building::Build_PRES,
                              "Resource",
                              "Some Stalled Seconds",
                              "Some Stalled %",
                              100,
                              false,
                              Put<&All::pressure, &Press::resource, StalledSecondsOf>};
/// Percentages of processors are of their own time.
const CountedRecord kCpus{"CPUX",
                          '4',
                          &Building::Build_CPUX,
                          "Processor",
                          "User Seconds",
                          "User %",
                          0,
                          false,
                          Put<&All::cpuTimes, &Cpu::name, &Cpu::user>};
const CountedRecord kProcesses{
    "PDX",
    '3',
    &Building::BuildPD_PDX,
    "Name",
    "Run Delay Seconds",
    "Run Delay %",
    100,
    false,
    [](ModernFigures& all, const Instance& one) {
      Put<&All::processes, &ProcessDetail::name, &ProcessDetail::runDelaySeconds>(all, one);
      all.processes.back().pid = std::stoi(one.name);
    }};

std::string PrintedName(const ::testing::TestParamInfo<CountedRecord>& info) {
  return info.param.name;
}

class ModernGrowthTest : public BuilderFixture,
                         public ::testing::WithParamInterface<CountedRecord> {
 protected:
  void SetUp() override {
    g_hostProfile = HostProfile::kModern;
    PublishLayouts();
    SetClock(1000);
    Os().gettimeofday = [](timeval* now) {
      *now = s_exact;
      return 0;
    };
    Os().get_nprocs = [] { return 2; };
  }
  static void SetClock(std::time_t now, suseconds_t microseconds = 0) {
    s_now = now;
    s_exact = {now, microseconds};
  }
  void Collect(const CountedRecord& record, const Instances& instances) {
    *m_collector.GetModern() = {};
    for (const Instance& instance : instances) {
      record.put(*m_collector.GetModern(), instance);
    }
  }
  /// Asks anew; the answer before is what the node hands back.
  const std::list<CMBRecord*>& Ask(const CountedRecord& record, Asker& asker) {
    asker.NextAnswer();
    EXPECT_EQ((m_builder.*record.build)(&asker.event, &asker.request), nullptr);
    return asker.event.m_records;
  }
  /// A growth and its rate, in so many seconds.
  static std::string Grown(const CountedRecord& record, const std::string& growth, double seconds) {
    const bool isTold = growth != "-" && seconds > 0;
    const double rate = isTold ? record.rateOfOne * std::stod(growth) / seconds : kNotTold;
    return growth + ' ' + FigureText(rate, FieldType::kFloat);
  }

  inline static timeval s_exact{};
};

using GrowthOfInstancesTest = ModernGrowthTest;

TEST_P(GrowthOfInstancesTest, FollowsWhatComesGoesFallsAndIsNotTold) {
  const CountedRecord& record = GetParam();
  struct Row {
    const char* name;
    const char* growth;
    double seconds;
  };
  // What a row counts that its record can only tell if it begins at 0.
  const bool all = record.newCountsAll;
  const struct {
    const char* what;
    Instances instances;
    std::vector<Row> rows;
  } intervals[] = {
      {"the first", {{"a", 1000}}, {}},
      {"a new one", {{"a", 1002}, {"b", 7}}, {{"a", "2", 10}, {"b", all ? "7" : "-", 10}}},
      {"gone; fallen", {{"a", 3}}, {{"a", "0", 10}}},
      {"back; no figure", {{"a", kNotTold}, {"b", 9}}, {{"a", "-", 10}, {"b", "2", 20}}},
      {"told again", {{"a", 500}, {"b", 10}}, {{"a", "-", 10}, {"b", "1", 10}}},
      {"no row at all", {}, {}},
      {"after that", {{"a", 504}, {"b", 10}}, {{"a", "4", 20}, {"b", "0", 20}}},
      {"gone once", {{"a", 505}}, {{"a", "1", 10}}},
      {"another",
       {{"a", 505}, {"b", 3}},
       {{"a", "0", 10}, {"b", all ? "3" : "0", all ? 10. : 20.}}},
      {"gone again", {{"a", 505}}, {{"a", "0", 10}}},
      {"gone twice", {{"a", 505}}, {{"a", "0", 10}}},
      {"forgotten",
       {{"a", 505}, {"b", 9}},
       {{"a", "0", 10}, {"b", all ? "9" : "6", all ? 10. : 30.}}},
  };
  Asker asker(record.name, record.category, kGrowthIntervals);
  for (const auto& interval : intervals) {
    SCOPED_TRACE(interval.what);
    Collect(record, interval.instances);
    const auto& records = Ask(record, asker);
    ASSERT_EQ(records.size(), interval.rows.size());
    auto built = records.begin();
    for (const Row& row : interval.rows) {
      EXPECT_EQ(FieldText(**built, record.key), row.name);
      EXPECT_EQ(FieldText(**built, record.counter), row.growth) << row.name;
      EXPECT_EQ(FieldText(**built, "Interval"), FigureText(row.seconds, FieldType::kDouble));
      if (record.rateOfOne != 0) {
        EXPECT_EQ(FieldText(**built, record.counter) + ' ' + FieldText(**built, record.rate),
                  Grown(record, row.growth, row.seconds))
            << row.name;
      } else {
        const bool hasTime = std::atof(row.growth) > 0;
        EXPECT_EQ(FieldText(**built, record.rate), hasTime ? "100" : "-") << row.name;
      }
      ++built;
    }
    SetClock(s_now + 10);
  }
}
INSTANTIATE_TEST_SUITE_P(Each, GrowthOfInstancesTest,
                         ::testing::Values(kGroups, kLinks, kDisks, kPressure, kCpus), PrintedName);

TEST_F(ModernGrowthTest, OneCounterThatFellMakesNoOtherOfAnInstance) {
  Asker asker("DISK", '4', kGrowthIntervals);
  std::string growth;
  for (const Instances& disks :
       {Instances{{"sda", 100}, {"sdb", 1}}, {{"sdb", 1}}, {{"sda", 110}, {"sdb", 1}}}) {
    Collect(kDisks, disks);
    m_collector.GetModern()->disks.front().weightedSeconds = 500 - disks.front().count;
    const auto& rows = Ask(kDisks, asker);
    growth = rows.empty() ? "" : FieldText(*rows.front(), kDisks.counter);
    SetClock(s_now + 10);
  }
  EXPECT_EQ(growth, "10");
}

TEST_F(ModernGrowthTest, WhatIsNewCountsNothingUntilRowsHaveBeenBuiltByTheSchedule) {
  for (const CountedRecord& record : {kGroups, kLinks, kDisks}) {
    SCOPED_TRACE(record.name);
    Asker asker(record.name, '4', kGrowthIntervals);
    Asker look(record.name, '4', kGrowthLooks);
    Collect(record, {});
    (void)Ask(record, asker);
    Collect(record, {{"a", 5}});
    (void)Ask(record, look);
    EXPECT_EQ(Ask(record, look).size(), 1U);
    SetClock(s_now + 10);
    const auto& records = Ask(record, asker);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(FieldText(*records.front(), record.counter), "-");
    EXPECT_EQ(FieldText(*records.front(), record.rate), "-");
    EXPECT_EQ(FieldText(*records.front(), "Interval"), "0");
  }
}

TEST_F(ModernGrowthTest, ALookAtSomethingNewTellsNoRate) {
  Asker look("NETD", '4', kGrowthLooks);
  Collect(kLinks, {{"a", 1000}, {"c", 50}});
  (void)Ask(kLinks, look);
  SetClock(s_now + 10);
  Collect(kLinks, {{"a", 1020}, {"b", 30}, {"c", 40}});
  std::string text;
  for (const CMBRecord* record : Ask(kLinks, look)) {
    text += FieldText(*record, "Bytes In") + ' ' + FieldText(*record, "Bytes In/sec") + ' ' +
            FieldText(*record, "Speed In %") + "; ";
  }
  EXPECT_EQ(text, "1020 2 -; 30 - -; 40 0 -; ");
}

TEST_F(ModernGrowthTest, RatesGoByTheClockWithItsFraction) {
  const struct {
    const char* what;
    std::time_t now;
    timeval exact;
    const char* rate;  ///< of 42 reads since 1000.25
    const char* interval;
  } cases[] = {
      {"10.5 seconds", 1010, {1010, 750'000}, "4", "10"},
      {"a half", 1000, {1000, 750'000}, "84", "0"},
      {"the coarse clock lags behind", 1010, {1011, 0}, "3.90698", "10"},
      {"the two clocks differ", 1010, {1012, 0}, "4.30769", "10"},
      {"nothing", 1000, {1000, 250'000}, "-", "0"},
      {"set back", 990, {990, 750'000}, "-", "0"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    Asker interval("DISK", '4', kGrowthIntervals);
    Asker look("DISK", '4', kGrowthLooks);
    RecordBuilder builder{nullptr, &m_collector, "pipe"};
    SetClock(1000, 250'000);
    Collect(kDisks, {{"sda", 100}});
    (void)builder.Build_DISK(&interval.event, &interval.request);
    (void)builder.Build_DISK(&look.event, &look.request);
    look.NextAnswer();
    s_now = one.now;
    s_exact = one.exact;
    Collect(kDisks, {{"sda", 142}});
    (void)builder.Build_DISK(&interval.event, &interval.request);
    (void)builder.Build_DISK(&look.event, &look.request);
    for (const Asker* asker : {&interval, &look}) {
      ASSERT_EQ(asker->event.m_records.size(), 1U);
      EXPECT_EQ(FieldText(*asker->event.m_records.front(), "Reads/sec"), one.rate);
    }
    const CMBRecord& row = *interval.event.m_records.front();
    EXPECT_EQ(FieldText(row, "Reads"), "42");
    EXPECT_EQ(FieldText(row, "Interval"), one.interval);
  }
}

// Each row is 60 seconds after the one before, whatever the clock of the day was set by.
TEST_F(ModernGrowthTest, AClockThatIsSetChangesNoRate) {
  static int s_running = 0;
  s_running = 0;
  Os().clock_gettime = [](clockid_t clock, timespec* now) {
    *now = {s_running, 500'000'000};
    return clock == CLOCK_BOOTTIME ? 0 : -1;
  };
  Asker interval("DISK", '4', kGrowthIntervals);
  Asker look("PDX", '3', kGrowthLooks);
  for (const std::time_t step : {0, -30, -3600, 1800}) {
    SetClock(s_now + 60 + step);
    s_running += 60;
    Collect(kDisks, {{"sda", s_running * 2.0}});
    const auto& disks = Ask(kDisks, interval);
    Collect(kProcesses, {{"12", static_cast<double>(s_running) / 10}});
    const std::string delay = FieldText(*Ask(kProcesses, look).front(), "Run Delay %");
    // The first one has nothing to be compared with.
    ASSERT_EQ(disks.empty(), s_running == 60);
    if (!disks.empty()) {
      EXPECT_EQ(FieldText(*disks.front(), "Reads/sec"), "2") << step;
      EXPECT_EQ(FieldText(*disks.front(), "Interval"), "60") << step;
      EXPECT_EQ(delay, "10") << step;
    }
  }
}

TEST_F(ModernGrowthTest, TimesOfADiskWrapAndThoseOfOneThatStartsAgainDoNot) {
  const struct {
    double reads, weighted;
    const char* queue;
  } cases[] = {{100, 4294960, "-"},
               {200, 100, "10.7296"},
               {210, 4000000, "399990"},
               {50, 99, "0"},
               {60, 98, "0"}};
  Asker interval("DISK", '4', kGrowthIntervals);
  Asker look("DISK", '4', kGrowthLooks);
  for (const auto& one : cases) {
    Collect(kDisks, {{"sda", one.reads}});
    m_collector.GetModern()->disks.front().weightedSeconds = one.weighted;
    EXPECT_EQ(FieldText(*Ask(kDisks, look).front(), "Avg Queue Length"), one.queue);
    const auto& rows = Ask(kDisks, interval);
    ASSERT_EQ(rows.empty(), &one == cases);
    for (const CMBRecord* row : rows) {
      EXPECT_EQ(FieldText(*row, "Avg Queue Length"), one.queue);
    }
    SetClock(s_now + 10);
  }
}

// The kernel takes the idle time of a processor that is off line from another place.
TEST_F(ModernGrowthTest, AllProcessorsGrowByWhatEachHasCounted) {
  const struct {
    const char* what;
    std::vector<double> idle;  // of all, cpu0 and cpu1
    const char* percent;
  } cases[] = {{"first", {2000, 1000, 1000}, "-"},
               {"off line", {1500, 1009}, "10"},
               {"back", {2010, 1018, 500}, "10"},
               {"anew meanwhile", {1509, 1027, 1}, "10"},
               {"as ever", {1525, 1034, 10}, "11.1111"},
               {"anew behind a longer one", {1535, 1043, 2}, "10"}};
  Asker interval("CPUX", '4', kGrowthIntervals);
  Asker look("CPUX", '4', kGrowthLooks);
  double user = 0;
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    const char* const names[] = {"all", "cpu0", "cpu1"};
    Collect(kCpus, {});
    for (std::size_t at = 0; at < one.idle.size(); ++at) {
      auto& figures = m_collector.GetModern()->cpuTimes.emplace_back();
      figures.name = names[at];
      figures.user = at == 0 ? user : 0;
      figures.idle = one.idle[at];
    }
    EXPECT_EQ(FieldText(*Ask(kCpus, look).front(), "CPU %"), one.percent);
    const auto& rows = Ask(kCpus, interval);
    ASSERT_EQ(rows.empty(), &one == cases);
    if (!rows.empty()) {
      EXPECT_EQ(FieldText(*rows.front(), "CPU %"), one.percent);
    }
    user += user == 3 ? 2 : 1;
    SetClock(s_now + 10);
  }
}

// The kernel's own times step back by ticks now and then.
TEST_F(ModernGrowthTest, ALookShowsNoTimeOfAProcessorThatStepsBack) {
  Asker look("CPUX", '4', kGrowthLooks);
  Asker interval("CPUX", '4', kGrowthIntervals);
  const struct {
    double user, guest, idle;
    const char* shown;
  } cases[] = {{9, 2, 50, "7 2 50"},
               {9, 2.01, 49.5, "7 2.01 50"},
               {9.02, 2.01, 51, "7.01 2.01 51"},
               {9.02, 2.01, kNotTold, "7.01 2.01 -"},
               {2, 0, 10, "2 2.01 10"}};
  for (const auto& one : cases) {
    Collect(kCpus, {{"cpu7", one.user}, {"cpu8", 1}});
    auto& figures = m_collector.GetModern()->cpuTimes.front();
    figures.guest = one.guest;
    figures.idle = one.idle;
    const CMBRecord& row = *Ask(kCpus, look).front();
    EXPECT_EQ(FieldText(row, "User Seconds") + ' ' + FieldText(row, "Guest Seconds") + ' ' +
                  FieldText(row, "Idle Seconds"),
              one.shown);
    const auto& rows = Ask(kCpus, interval);
    if (one.idle == 51) {
      ASSERT_FALSE(rows.empty());
      EXPECT_EQ(FieldText(*rows.front(), "Idle Seconds"), "1.5");
    }
  }
}

TEST_F(ModernGrowthTest, RunDelaysAreOfOneProcessAndOneRequest) {
  Asker asker("PDX", '3', kGrowthLooks);
  Asker other("PDX", '3', kGrowthLooks);
  const auto delay = [&](Asker& who) {
    return FieldText(*Ask(kProcesses, who).front(), "Run Delay %");
  };
  const struct {
    std::time_t now;
    double seconds;
    std::uint64_t startTicks;
    const char* percent;
  } looks[] = {{1000, 5, 77, "-"},   {1010, 6, 77, "10"}, {1020, 5.5, 77, "0"},
               {1030, 7, 78, "-"},   {1040, 8, 78, "10"}, {1050, kNotTold, 78, "-"},
               {1060, 9, 78, "-"},   {1050, 10, 78, "-"}, {1060, 10.5, 78, "5"},
               {1060, 10.5, 78, "-"}};
  for (const auto& look : looks) {
    SCOPED_TRACE(&look - looks);
    SetClock(look.now);
    Collect(kProcesses, {{"12", look.seconds}});
    m_collector.GetModern()->processes.front().startTicks = look.startTicks;
    EXPECT_EQ(delay(asker), look.percent);
  }
  EXPECT_EQ(delay(other), "-");
}

TEST_F(ModernGrowthTest, AUserWithoutANameIsAskedForOnceABuild) {
  static int g_asked = 0;
  Os().getpwuid = [](uid_t) -> ::passwd* { return ++g_asked, nullptr; };
  Collect(kProcesses, {{"12", 5}, {"13", 5}});
  for (ProcessDetail& process : m_collector.GetModern()->processes) {
    process.uid = 4711;
  }
  Asker asker("PDX", '3', kGrowthLooks);
  EXPECT_EQ(FieldText(*Ask(kProcesses, asker).back(), "User"), "4711");
  EXPECT_EQ(g_asked, 1);
}

TEST_F(ModernGrowthTest, OfALongPathTheEndIsKeptAndTwoStayTwo) {
  const std::string end(497, 'e');
  Collect(kGroups, {{std::string(511, 'p'), 1},
                    {"/one of long names" + end, 1},
                    {"/another long name" + end, 1}});
  Asker look("CGRP", '4', kGrowthLooks);
  const auto& records = Ask(kGroups, look);
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(FieldText(*records.front(), "Path"), std::string(511, 'p'));
  const std::string one = FieldText(**std::next(records.begin()), "Path");
  const std::string other = FieldText(*records.back(), "Path");
  EXPECT_EQ(one.size(), 511U);
  EXPECT_EQ(one.substr(14), end);
  EXPECT_EQ(other.substr(14), end);
  EXPECT_NE(one, other);
}

using CostOfRowsTest = ModernGrowthTest;

// Rows come back in the opposite order, so that none stands where a search would begin.
TEST_P(CostOfRowsTest, GrowsWithTheNumberOfRows) {
  const CountedRecord& record = GetParam();
  const auto cost = [&](int count) {
    Instances instances;
    for (int number = 0; number < count; ++number) {
      instances.push_back({std::to_string(number), 10.0 + number});
    }
    Asker asker(record.name, record.category, kGrowthIntervals);
    Asker look(record.name, record.category, kGrowthLooks);
    RecordBuilder builder{nullptr, &m_collector, "pipe"};
    std::clock_t spent = 0;
    for (int time = 0; time < 2; ++time) {
      SetClock(s_now + 10);
      Collect(record, instances);
      for (Asker* const one : {&asker, &look}) {
        one->NextAnswer();
        const std::clock_t start = std::clock();
        (void)(builder.*record.build)(&one->event, &one->request);
        spent += std::clock() - start;
        EXPECT_EQ(one->event.m_records.size(),
                  one == &look || time > 0 ? static_cast<std::size_t>(count) : 0U);
      }
      std::reverse(instances.begin(), instances.end());
    }
    EXPECT_EQ(FieldText(*look.event.m_records.back(), record.rate),
              record.rateOfOne != 0 ? "0" : "-");
    return static_cast<double>(spent);
  };
  constexpr int kMany = 10'000;
  double few = std::numeric_limits<double>::max();
  double many = few;
  for (int time = 0; time < 3; ++time) {
    few = std::min(few, cost(kMany / 10));
    many = std::min(many, cost(kMany));
  }
  // Ten times the rows no longer fit into the caches; searches would make it a hundred times.
  EXPECT_LT(many, 50 * few) << "seconds: " << many / CLOCKS_PER_SEC;
}
INSTANTIATE_TEST_SUITE_P(Each, CostOfRowsTest, ::testing::Values(kGroups, kLinks, kDisks, kCpus),
                         PrintedName);

}  // namespace
