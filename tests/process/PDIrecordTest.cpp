#include "process/PDIrecord.h"

#include "tests/process/ProcessRecordFixture.h"

namespace {

/// Hundredths of a second.
tagUTIME Centis(int centis) { return {centis / 100, centis % 100 * 10000}; }

/// A row with cumulative figures; all counters are alike.
recordPD_PDI Total(const char* program, std::int32_t startTime, std::int32_t now, int userCentis,
                   int systemCentis, std::uint32_t counters, float kbytes) {
  recordPD_PDI row = NewRow<recordPD_PDI>(now);
  row.pid = 7;
  row.program = program;
  row.startTime = startTime;
  row.userCpu = Centis(userCentis);
  row.systemCpu = Centis(systemCentis);
  for (const auto counter : PDIFigures::kCounters) {
    row.*counter = counters;
  }
  row.totalIoKbytes = kbytes;
  return row;
}

struct DeltaCase {
  const char* name;
  const char* program;
  bool died;
  int start;               // old: 100
  int user, system;        // old: 1080, 400
  std::uint32_t counters;  // old: 1000
  float oldKbytes, kbytes;
  std::uint32_t interval;  // from here on what is expected
  int userDelta, systemDelta;
  std::uint32_t countersDelta;
  float kbytesDelta;
  std::size_t left;  // old rows not taken
};

TEST(DeltaPD_PDITest, Table) {
  const DeltaCase cases[] = {
      {"same", "sh", true, 100, 1250, 500, 1003, 8, 10.5F, 10, 170, 100, 3, 2.5F, 0},
      {"reused", "sh", true, 505, 200, 100, 6, 8, 3, 5, 200, 100, 6, 3, 1},
      {"negative user CPU", "sh", true, 100, 900, 500, 1000, 0, 0, 10, 0, 0, 0, 0, 0},
      {"negative system CPU", "sh", true, 100, 1200, 399, 1000, 0, 0, 10, 0, 0, 0, 0, 0},
      {"wrapped counters", "sh", true, 100, 1080, 400, 4, 0, 0, 10, 0, 0, 4294966300U, 0, 0},
      {"wrapped I/O", "sh", true, 100, 1080, 400, 1000, 4e6F, 2.5e6F, 10, 0, 0, 0, 2694304, 0},
      {"fallen I/O", "sh", true, 100, 1080, 400, 1000, 4e6F, 2097152, 10, 0, 0, 0, 0, 0},
      {"defunct", "<defunct>", true, 505, 1200, 500, 1000, 1, 2, 10, 120, 100, 0, 1, 0},
      {"bare defunct", "<defunct> sh", false, 505, 1200, 500, 1002, 1, 2, 10, 0, 0, 2, 0, 0},
  };
  for (const DeltaCase& one : cases) {
    SCOPED_TRACE(one.name);
    PDIRows oldRows;
    PDIRows newRows;
    oldRows.Add(Total("sh", 100, 500, 1080, 400, 1000, one.oldKbytes));
    recordPD_PDI row =
        Total(one.program, one.start, 510, one.user, one.system, one.counters, one.kbytes);
    const recordPD_PDI delta = DeltaPD_PDI(row, oldRows, newRows, one.died);
    EXPECT_EQ(delta.interval, one.interval);
    EXPECT_EQ(static_cast<tagUTIME>(delta.userCpu), Centis(one.userDelta));
    EXPECT_EQ(static_cast<tagUTIME>(delta.systemCpu), Centis(one.systemDelta));
    for (const auto counter : PDIFigures::kCounters) {
      EXPECT_EQ(delta.*counter, one.countersDelta);
    }
    EXPECT_FLOAT_EQ(delta.totalIoKbytes, one.kbytesDelta);
    EXPECT_EQ(delta.startTime, one.died ? one.start : 100);
    EXPECT_EQ(oldRows.Size(), one.left);
    EXPECT_EQ(newRows.Size(), 1U) << "kept for the next interval";
    row.endTime = 600;
    (void)DeltaPD_PDI(row, oldRows, newRows, one.died);
    EXPECT_EQ(newRows.Size(), 1U) << "one that has ended is not kept";
  }
}

class PDIrecordTest : public ProcessRecordFixture {
 protected:
  void Build(Asker& asker) {
    Collect();
    EXPECT_EQ(m_builder.BuildPD_PDI(&asker.event, &asker.request), nullptr);
  }
};

TEST_F(PDIrecordTest, TwoIntervalsByteForByte) {
  Asker schedule("PDI", '3', {.realtime = 0, .calcRates = 1});
  AddProcess(Server(300, 1, 1000, 500));
  AddProcess(Server(20, 1, 1000, 500));
  Build(schedule);
  ExpectTable(RowOf<recordPD_PDI>(schedule, 20), "PDI/first.tsv");

  // A look on demand in between moves nothing.
  s_now += 4;
  AddProcess(Server(20, 1, 1100, 500));
  Asker look("PDI", '3', {.realtime = 1, .calcRates = 1});
  Build(look);
  EXPECT_EQ(RowOf<recordPD_PDI>(look, 20).interval, 1004U);

  schedule.NextAnswer();
  s_now += 6;
  AddProcess(Server(20, 1, 1200, 600));
  m_host.Remove("/proc/300");
  Build(schedule);
  EXPECT_EQ(schedule.event.m_records.size(), 1U);
  ExpectTable(RowOf<recordPD_PDI>(schedule, 20), "PDI/second.tsv");
  EXPECT_EQ(Lines("process 300 of start time 1699999000"), 3U) << "new, at the look, and old";
  EXPECT_EQ(Lines("BuildPD_PDI: oldProcessList"), 3U);

  AddProcess(Server(300, 1, 1000, 500));
  Build(schedule);
  EXPECT_EQ(RowOf<recordPD_PDI>(schedule, 300).interval, 1010U) << "its old row was freed";
}

TEST_F(PDIrecordTest, LooksKeepTotalsAndCompareWithTheLastAnswer) {
  for (const bool withRates : {true, false}) {
    s_now = 1'700'000'000;
    Asker look("PDI", '3', {.realtime = 1, .calcRates = withRates ? 1 : 0});
    const auto takeLook = [&](std::uint32_t reads, std::int32_t userSeconds) {
      look.NextAnswer();
      m_collector.GetProcess()->clear();
      Process& process = AddToList(5, 1'699'999'900);
      process.reads = reads;
      process.blockOps = reads;
      process.ioKbytes = 2 * reads;
      process.userTime = {userSeconds, 0};
      EXPECT_EQ(m_builder.BuildPD_PDI(&look.event, &look.request), nullptr);
      return RowOf<recordPD_PDI>(look, 5);
    };
    const recordPD_PDI first = takeLook(200, 50);
    EXPECT_EQ(first.interval, withRates ? 100U : 0U);
    EXPECT_FLOAT_EQ(first.readsPerSec, withRates ? 2.0F : 200.0F);
    EXPECT_FLOAT_EQ(first.cpuPercentEach, 50.0F);
    s_now += 10;
    const recordPD_PDI second = takeLook(230, 51);
    EXPECT_EQ(second.reads, 230U);
    EXPECT_EQ(second.interval, withRates ? 10U : 0U);
    EXPECT_FLOAT_EQ(second.readsPerSec, withRates ? 3.0F : 230.0F);
    EXPECT_FLOAT_EQ(second.throughputPerSec, withRates ? 6.0F : 460.0F);
    EXPECT_FLOAT_EQ(second.avgIoKbytes, 2.0F);
    EXPECT_FLOAT_EQ(second.cpuPercentEach, 10.0F);
    const recordPD_PDI third = takeLook(230, 51);
    EXPECT_FLOAT_EQ(third.readsPerSec, withRates ? 0.0F : 230.0F) << "in the same second";
    EXPECT_EQ(third.cpuPercent, 0.0F);
  }
}

}  // namespace
