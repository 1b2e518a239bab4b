#include "records/PIfigures.h"

#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "tests/scripted/BuilderFixture.h"

namespace {

System Host() {
  System system;
  system.freeMemMB = 250.5F;
  system.totalMemMB = 1000.75F;
  system.freeSwapMB = 30;
  system.totalSwapMB = 120;
  return system;
}

recordPI Figures(const System& system, const recordPI& raw = {}, OverviewMemory memory = {}) {
  recordPI row{};
  FillSystemFigures(row, system, raw, 1000, memory);
  return row;
}

TEST(PIfiguresTest, MemoryAndSwap) {
  struct Case {
    const char* name;
    float freeMem, totalMem, freeSwap, totalSwap;
    float expected[4];  // free %, alloc, alloc %, alloc swap %
    std::uint32_t wholeMem;
  };
  const Case cases[] = {
      {"plain",
       250.5F,
       1000.75F,
       30,
       120,
       {100 * 250.5F / 1000.75F, 750.25F, 100 * 750.25F / 1000.75F, 75},
       1000},
      {"free memory below zero", -1, 512.5F, 0, 100, {0, 0, 0, 100}, 512},
      {"less than a Mbyte", 0.25F, 0.75F, 0, 0.5F, {0, 0.5F, 0, 0}, 0},
      {"nothing", 0, 0, 0, 0, {0, 0, 0, 0}, 0},
      {"more than the field holds",
       1,
       1e20F,
       0,
       1e20F,
       {100 / 1e20F, 1e20F, 100, 100},
       4294967295U},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    System system;
    system.freeMemMB = one.freeMem;
    system.totalMemMB = one.totalMem;
    system.freeSwapMB = one.freeSwap;
    system.totalSwapMB = one.totalSwap;
    const recordPI row = Figures(system);
    EXPECT_FLOAT_EQ(row.freeMemMbytes, one.freeMem < 0 ? 0 : one.freeMem);
    EXPECT_FLOAT_EQ(row.freeMemPercent, one.expected[0]);
    EXPECT_FLOAT_EQ(row.allocMemMbytes, one.expected[1]);
    EXPECT_FLOAT_EQ(row.allocMemPercent, one.expected[2]);
    EXPECT_FLOAT_EQ(row.allocSwapPercent, one.expected[3]);
    EXPECT_EQ(row.totalPhysicalMemMbytes, one.wholeMem);
  }
}

TEST(PIfiguresTest, MbytesRunOnFromTheRawRow) {
  System system = Host();
  system.logicalReadBytes = 3 << 20;
  system.logicalWriteBytes = 1 << 20;
  recordPI raw{};
  raw.logicalReadMbytes = 10;
  raw.logicalWriteMbytes = 20;
  OverviewMemory memory;
  memory.lastLogicalReadBytes = 1 << 19;
  memory.lastLogicalWriteBytes = 2 << 20;
  const recordPI row = Figures(system, raw, memory);
  EXPECT_FLOAT_EQ(row.logicalReadMbytes, 12.5F);
  EXPECT_FLOAT_EQ(row.logicalWriteMbytes, 20.0F) << "a counter that fell adds nothing";
}

TEST(PIfiguresTest, TheRunQueueIsAMeanOverSamples) {
  System system = Host();
  system.runQueue = 27.9F;
  OverviewMemory memory;
  recordPI row{};
  FillSystemFigures(row, system, {}, 1000, memory);
  EXPECT_FLOAT_EQ(row.runQueue, 0.0F) << "no sample was taken";
  memory.lastRunQueueSum = 10.5F;
  system.runQueueSamples = 4;
  FillSystemFigures(row, system, {}, 1000, memory);
  EXPECT_FLOAT_EQ(row.runQueue, 4.0F);
  FillSystemFigures(row, system, {}, 1000, memory);
  EXPECT_FLOAT_EQ(row.runQueue, 0.0F);
  system.runQueue = 1e30F;
  system.runQueueSamples = 3;
  FillSystemFigures(row, system, {}, 1000, memory);
  EXPECT_FLOAT_EQ(row.runQueue, -2147483620.0F);
}

TEST(PIfiguresTest, TotalsAreSumsOfLowHalves) {
  System system = Host();
  system.physicalReads = 1;
  system.physicalWrites = 2;
  system.blockReads = 3;
  system.blockWrites = 4;
  system.logicalReads = 5;
  system.logicalWrites = 4294967295U;
  system.majorFaults = 7;
  system.minorFaults = 8;
  system.pagesIn = 0x100000009ULL;
  system.pagesOut = 10;
  system.swapIn = 11;
  system.swapOut = 12;
  const recordPI row = Figures(system);
  EXPECT_EQ(row.physicalIoOps, 3U);
  EXPECT_EQ(row.blockOps, 7U);
  EXPECT_EQ(row.logicalIoOps, 4U);
  EXPECT_EQ(row.faults, 15U);
  EXPECT_EQ(row.pageInOps, 9U);
  EXPECT_EQ(row.totalPageOps, 19U);
  EXPECT_EQ(row.totalSwaps, 23U);
  EXPECT_EQ(row.memIoOps, 30U);
}

TEST(PIfiguresTest, CacheHits) {
  struct Case {
    std::uint32_t logical, block;
    float percent;
  };
  for (const Case& one :
       {Case{200, 50, 75}, Case{200, 0, 100}, Case{50, 50, 0}, Case{50, 60, 0}, Case{0, 0, 0}}) {
    recordPI counts{};
    counts.logicalReads = one.logical;
    counts.blockReads = one.block;
    counts.logicalWrites = one.logical;
    counts.blockWrites = one.logical;  // as many: no hit
    recordPI row{};
    FillCachePercentages(row, counts);
    EXPECT_FLOAT_EQ(row.cacheReadPercent, one.percent) << one.logical << ' ' << one.block;
    EXPECT_FLOAT_EQ(row.cacheWritePercent, 0.0F);
  }
}

/// The agent's builder on figures that a test sets itself.
class PIpacketsTest : public BuilderFixture {
 protected:
  void SetUp() override {
    g_msgLogLevel = 20;
    s_now = 1000;
  }
  void SetPackets(std::uint32_t tcpIn, std::uint32_t otherIn, std::uint32_t otherOut) {
    Protocol& protocol = *m_collector.GetProtocol();
    protocol.tcpIn = tcpIn;
    protocol.otherIn = otherIn;
    protocol.otherOut = otherOut;
    protocol.totalIn = tcpIn + otherIn;
    protocol.totalOut = otherOut;
  }
  recordPI Build(Asker& asker) {
    EXPECT_EQ(m_builder.Build_PI(&asker.event, asker.event.m_requests.front()), nullptr);
    const auto& records = asker.event.m_records;
    return records.empty() ? recordPI{}
                           : *static_cast<const recordPI*>(records.back()->GetRecStart());
  }
};

TEST_F(PIpacketsTest, AFallOfOtherPacketsIsMadeUpForInRowAndRawRow) {
  Asker schedule("PI", '4', {.realtime = 0, .calcRates = 1});
  SetPackets(100, 50, 20);
  (void)Build(schedule);

  s_now += 10;
  SetPackets(200, 30, 15);
  const recordPI row = Build(schedule);
  EXPECT_EQ(row.otherPktsIn, 0U);
  EXPECT_EQ(row.otherPktsOut, 0U);
  EXPECT_EQ(row.totalPktsIn, 100U) << "80 and the 20 that were lost";
  EXPECT_EQ(row.totalPktsOut, 0U);
  EXPECT_EQ(row.totalPkts, 100U);

  // The kept row stands as if nothing had been lost.
  s_now += 10;
  SetPackets(300, 60, 21);
  const recordPI next = Build(schedule);
  EXPECT_EQ(next.otherPktsIn, 10U);
  EXPECT_EQ(next.otherPktsOut, 1U);
  EXPECT_EQ(next.totalPktsIn, 110U);
  EXPECT_EQ(next.totalPkts, 111U);
}

TEST_F(PIpacketsTest, ALookWithoutRatesMakesUpForTheFallSinceItsPredecessor) {
  Asker look("PI", '4', {.realtime = 1, .calcRates = 0});
  SetPackets(100, 50, 20);
  EXPECT_EQ(Build(look).otherPktsIn, 50U);
  look.NextAnswer();
  SetPackets(100, 30, 20);
  const recordPI row = Build(look);
  EXPECT_EQ(row.otherPktsIn, 50U);
  EXPECT_EQ(row.totalPktsIn, 150U);
  EXPECT_EQ(row.totalPktsOut, 20U);
  EXPECT_EQ(row.totalPkts, 170U);
  EXPECT_EQ(row.interval, 1000U);
}

}  // namespace
