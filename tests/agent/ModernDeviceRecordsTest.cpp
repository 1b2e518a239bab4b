#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"
#include "tests/scripted/ScriptedNode.h"

namespace {

constexpr tagPQLAUI kIntervals{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kLooks{.realtime = 1, .calcRates = 0};

std::time_t g_clock = 1'700'000'000;

class ModernDeviceRecordsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_hostProfile = HostProfile::kModern;
    g_clock = 1'700'000'000;
    Os().time = [](std::time_t*) { return g_clock; };
  }
  void TearDown() override {
    Os() = m_realCalls;
    g_hostProfile = HostProfile::kClassic;
  }

  void Collect() { ASSERT_EQ(m_collector.collect(COLLECT_DEVICE, 0), nullptr); }
  template <class Row>
  std::vector<Row> Build(Asker& asker) {
    const auto builder = std::is_same_v<Row, recordPI_DEVD> ? &RecordBuilder::Build_DEVD
                                                            : &RecordBuilder::Build_DEVS;
    EXPECT_EQ((m_builder.*builder)(&asker.event, asker.event.m_requests.front()), nullptr);
    std::vector<Row> rows = asker.Rows<Row>();
    asker.NextAnswer();
    return rows;
  }

  /// Collects one disk: so many reads, sectors, and milliseconds in use, which its reads took too.
  void CollectDisk(std::uint64_t reads, std::uint64_t sectors, std::uint64_t milliseconds) {
    const std::string time = std::to_string(milliseconds);
    m_host.Write("/proc/diskstats", "8 0 sda " + std::to_string(reads) + " 0 " +
                                        std::to_string(sectors) + ' ' + time + " 0 0 0 0 0 " +
                                        time + ' ' + time + '\n');
    Collect();
  }

  const OsCalls m_realCalls = Os();
  const process_tree::HostTree m_host;
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
  Asker m_each{"DEVD", '4', kIntervals};
  Asker m_sum{"DEVS", '4', kIntervals};
};

TEST_F(ModernDeviceRecordsTest, TenSecondsOfManyDisks) {
  const std::filesystem::path fixture =
      std::filesystem::path(QMT_TEST_DIR) / "fixtures/modern-disks";
  m_host.CopyFrom(fixture / "first");
  Collect();
  EXPECT_TRUE(Build<recordPI_DEVD>(m_each).empty());
  EXPECT_TRUE(Build<recordPI_DEVS>(m_sum).empty());
  g_clock += 10;
  m_host.CopyFrom(fixture / "second");
  Collect();
  const auto rows = Build<recordPI_DEVD>(m_each);
  const struct {
    const char *name, *type;
    std::uint32_t ops;
    float busy;
  } expected[] = {
      {"cciss/c0d0", "disk", 1, 0.01F}, {"dm-0 cryptroot", "dm", 504, 40},
      {"drbd0", "disk", 20, 0.2F},      {"md0", "md", 200, 0},
      {"mmcblk0", "ssd", 0, 0},         {"mmcblk0boot0", "ssd", 0, 0},
      {"nbd0", "ssd", 2, 0.04F},        {"nvme0n1", "ssd", 500, 2},
      {"nvme1n1", "ssd", 200, 1},       {"rbd0", "ssd", 0, 0},
      {"sda", "disk", 150, 9.99F},      {"sr0", "cdrm", 0, 0},
      {"vda", "disk", 404, 40},         {"xvda1", "ssd", 10, 100},
  };
  ASSERT_EQ(rows.size(), std::size(expected));
  for (std::size_t at = 0; at < rows.size(); ++at) {
    EXPECT_STREQ(rows[at].deviceName.c_str(), expected[at].name);
    EXPECT_STREQ(rows[at].deviceType.c_str(), expected[at].type) << expected[at].name;
    EXPECT_EQ(rows[at].totalIoOps, expected[at].ops) << expected[at].name;
    EXPECT_FLOAT_EQ(rows[at].busyPercent, expected[at].busy) << expected[at].name;
  }
  ExpectGolden(&rows[7], sizeof rows[7], fixture / "DEVD-nvme0n1.tsv");
  ExpectGolden(&rows[10], sizeof rows[10], fixture / "DEVD-sda.tsv");
  ExpectGolden(&rows[12], sizeof rows[12], fixture / "DEVD-vda.tsv");
  const recordPI_DEVS total = Build<recordPI_DEVS>(m_sum).at(0);
  ExpectGolden(&total, sizeof total, fixture / "DEVS.tsv");
}

TEST_F(ModernDeviceRecordsTest, CountersThatWrapGoOnAndOnesThatRestartCountNothing) {
  constexpr std::uint64_t kEnd = std::uint64_t{1} << 32U;
  const struct {
    std::uint64_t reads, sectors, milliseconds;  // 1000 reads, 2048000 sectors and 400 ms before
    std::uint64_t readsAfter, sectorsAfter, millisecondsAfter;
    std::uint32_t growth;
    float mbytes;
    tagUTIME time;
  } cases[] = {
      {kEnd - 10, 8 * kEnd, kEnd - 400, kEnd + 10, 8 * kEnd + 2048, 100, 20, 1, {0, 500'000}},
      {1000, 2'048'000, 4000, 3, 24, 2, 0, 0, {0, 0}},
      {1000, 2'048'000, 4000, 1001, 2'048'002, 3999, 1, 1.0F / 1024, {0, 0}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    Asker look("DEVD", '4', kLooks);
    CollectDisk(one.reads, one.sectors, one.milliseconds);
    (void)Build<recordPI_DEVD>(m_each);
    (void)Build<recordPI_DEVS>(m_sum);
    (void)Build<recordPI_DEVD>(look);
    g_clock += 10;
    CollectDisk(one.readsAfter, one.sectorsAfter, one.millisecondsAfter);
    const auto row = Build<recordPI_DEVD>(m_each).at(0);
    EXPECT_EQ(row.readOps, one.growth);
    EXPECT_FLOAT_EQ(row.ioMbytes, one.mbytes);
    EXPECT_EQ(row.totalBusyTime, one.time);
    EXPECT_EQ(row.waitLengthTime, one.time);
    const auto sum = Build<recordPI_DEVS>(m_sum).at(0);
    EXPECT_EQ(sum.totalIoOps, one.growth);
    EXPECT_EQ(sum.totalWaitTime, one.time);
    g_clock += 10;
  }
}

TEST_F(ModernDeviceRecordsTest, LooksCompareMilliseconds) {
  Asker look("DEVD", '4', kLooks);
  Asker sumLook("DEVS", '4', kLooks);
  CollectDisk(1000, 2048, 4'294'967'200);
  EXPECT_FLOAT_EQ(Build<recordPI_DEVD>(look).at(0).busyPercent, 0);
  (void)Build<recordPI_DEVS>(sumLook);
  g_clock += 1;
  CollectDisk(1008, 2048, 304);  // 400 ms later
  const auto row = Build<recordPI_DEVD>(look).at(0);
  EXPECT_FLOAT_EQ(row.busyPercent, 40);
  EXPECT_EQ(row.avgServiceTime, (tagUTIME{0, 50'000}));
  EXPECT_EQ(row.avgWaitTime, (tagUTIME{0, 50'000}));
  const auto sum = Build<recordPI_DEVS>(sumLook).at(0);
  EXPECT_FLOAT_EQ(sum.busyPercent, 40);
  EXPECT_EQ(sum.waitLengthTime, (tagUTIME{0, 400'000}));
  CollectDisk(3, 8, 5);
  EXPECT_TRUE(Build<recordPI_DEVD>(look).empty());
  EXPECT_TRUE(Build<recordPI_DEVS>(sumLook).empty());
}

TEST_F(ModernDeviceRecordsTest, NamesAreCutAndMayChange) {
  const std::string own(60, 'n');
  m_host.Write("/sys/block/dm-1/dm/name", own + "\n");
  m_host.Write("/proc/diskstats", "253 1 dm-1 5 0 40 2 0 0 0 0 0 2 2\n");
  Collect();
  (void)Build<recordPI_DEVD>(m_each);
  EXPECT_TRUE(Build<recordPI_DEVS>(m_sum).empty()) << "no physical device";
  g_clock += 10;
  Collect();
  EXPECT_EQ(Build<recordPI_DEVD>(m_each).at(0).deviceName.view(), "dm-1 " + own.substr(0, 34));
  m_host.Write("/sys/block/dm-1/dm/name", "new\tname\n");
  g_clock += 10;
  Collect();
  const auto row = Build<recordPI_DEVD>(m_each).at(0);
  EXPECT_STREQ(row.deviceName.c_str(), "dm-1 new");
  EXPECT_EQ(row.readOps, 0U) << "it is the same device";
}

}  // namespace
