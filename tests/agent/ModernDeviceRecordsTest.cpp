#include "collect/CategoryFlags.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"

namespace {

constexpr tagPQLAUI kIntervals{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kLooks{.realtime = 1, .calcRates = 0};
constexpr tagPQLAUI kAverages{.realtime = 1, .calcRates = 1};

class ModernDeviceRecordsTest : public BuilderFixture {
 protected:
  void SetUp() override { g_hostProfile = HostProfile::kModern; }

  void Collect() { ASSERT_EQ(m_collector.collect(COLLECT_DEVICE, 0), nullptr); }
  template <class Row>
  std::vector<Row> Build(Asker& asker) {
    const auto builder = std::is_same_v<Row, recordPI_DEVD> ? &RecordBuilder::Build_DEVD
                                                            : &RecordBuilder::Build_DEVS;
    return BuildBy<Row>(builder, asker);
  }

  /// Collects at the given time disks of so many reads, which were of 1 Mbyte and took 1 ms each.
  struct DiskReads {
    std::string name;
    std::uint64_t reads;
  };
  void CollectReads(std::time_t when, const std::vector<DiskReads>& disks) {
    s_now = when;
    std::string text;
    for (const auto& [name, reads] : disks) {
      const std::string count = std::to_string(reads);
      text += "8 0 " + name + ' ' + count + " 0 " + std::to_string(reads * 2048) + ' ' + count +
              " 0 0 0 0 0 " + count + ' ' + count + '\n';
    }
    m_host.Write("/proc/diskstats", text);
    Collect();
  }

  /// Collects one disk: so many reads, sectors, and milliseconds in use, which its reads took too.
  void CollectDisk(std::uint64_t reads, std::uint64_t sectors, std::uint64_t milliseconds) {
    const std::string time = std::to_string(milliseconds);
    m_host.Write("/proc/diskstats", "8 0 sda " + std::to_string(reads) + " 0 " +
                                        std::to_string(sectors) + ' ' + time + " 0 0 0 0 0 " +
                                        time + ' ' + time + '\n');
    Collect();
  }

  const process_tree::HostTree m_host;
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
  s_now += 10;
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
    bool isSeen;  // by one who compares with the last look
  } cases[] = {
      {kEnd - 10, 8 * kEnd, kEnd - 400, kEnd + 10, 8 * kEnd + 2048, 100, 20, 1, {0, 500'000}, true},
      {1000, 2'048'000, 4000, 3, 24, 2, 0, 0, {0, 0}, false},
      {1000, 2'048'000, 4000, 1001, 2'048'002, 3999, 1, 1.0F / 1024, {0, 0}, true},
      {1000, 2'048'000, 4000, 1500, 24, 4000, 500, 0, {0, 0}, false},
      {1000, 0, 4000, 3, 2'048'000, 4000, 0, 1000, {0, 0}, false},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    Asker look("DEVD", '4', kLooks);
    Asker sumLook("DEVS", '4', kLooks);
    CollectDisk(one.reads, one.sectors, one.milliseconds);
    (void)Build<recordPI_DEVD>(m_each);
    (void)Build<recordPI_DEVS>(m_sum);
    (void)Build<recordPI_DEVD>(look);
    (void)Build<recordPI_DEVS>(sumLook);
    s_now += 10;
    CollectDisk(one.readsAfter, one.sectorsAfter, one.millisecondsAfter);
    const auto row = Build<recordPI_DEVD>(m_each).at(0);
    EXPECT_EQ(row.readOps, one.growth);
    EXPECT_FLOAT_EQ(row.ioMbytes, one.mbytes);
    EXPECT_EQ(row.totalBusyTime, one.time);
    EXPECT_EQ(row.waitLengthTime, one.time);
    const auto sum = Build<recordPI_DEVS>(m_sum).at(0);
    EXPECT_EQ(sum.totalIoOps, one.growth);
    EXPECT_EQ(sum.totalWaitTime, one.time);
    const auto looks = Build<recordPI_DEVD>(look);
    const auto sumLooks = Build<recordPI_DEVS>(sumLook);
    ASSERT_EQ(looks.size(), one.isSeen ? 1U : 0U);
    ASSERT_EQ(sumLooks.size(), looks.size());
    if (one.isSeen) {
      EXPECT_EQ(looks[0].avgServiceTime, one.time / static_cast<double>(one.growth));
      EXPECT_FLOAT_EQ(looks[0].readPercent, 100);
      EXPECT_EQ(sumLooks[0].avgServiceTimePerOp, looks[0].avgServiceTime);
      EXPECT_FLOAT_EQ(sumLooks[0].readOpsPercent, 100);
    }
    s_now += 10;
  }
}

TEST_F(ModernDeviceRecordsTest, NoTimeOrCountIsTooLongForAnAverage) {
  const auto collect = [this](const std::string& figures) {
    m_host.Write("/proc/diskstats", "8 0 sda " + figures + "8 16 sdb " + figures);
    Collect();
  };
  Asker look("DEVS", '4', kLooks);
  collect("1 0 8 0 0 0 0 0 0 0 0\n");
  (void)Build<recordPI_DEVD>(m_each);
  (void)Build<recordPI_DEVS>(m_sum);
  (void)Build<recordPI_DEVS>(look);
  s_now += 4'000'000;
  collect("7200000000 0 8 3000000000 2400000000 0 8 3000000000 0 3000000000 4000000000\n");
  constexpr tagUTIME kBusy{3'000'000, 0};
  constexpr tagUTIME kWait{6'000'000, 0};
  constexpr tagUTIME kWeighted{4'000'000, 0};
  Asker sinceBoot("DEVD", '4', kAverages);
  Asker sumSinceBoot("DEVS", '4', kAverages);
  s_now = 4'000'000;
  const auto whole = Build<recordPI_DEVD>(sinceBoot).at(1);
  EXPECT_FLOAT_EQ(whole.busyPercent, 75);
  EXPECT_FLOAT_EQ(whole.readPercent, 75);
  EXPECT_FLOAT_EQ(whole.writePercent, 25);
  EXPECT_EQ(whole.avgServiceTime, (tagUTIME{0, 312}));
  EXPECT_EQ(whole.avgWaitTime, (tagUTIME{0, 625}));
  const auto wholeSum = Build<recordPI_DEVS>(sumSinceBoot).at(0);
  EXPECT_FLOAT_EQ(wholeSum.busyPercent, 75);
  EXPECT_FLOAT_EQ(wholeSum.readOpsPercent, 75);
  EXPECT_EQ(wholeSum.avgServiceTimePerOp, (tagUTIME{0, 312}));
  EXPECT_EQ(wholeSum.avgServiceTimePerDevice, kBusy);
  s_now = 1'704'000'000;
  const auto row = Build<recordPI_DEVD>(m_each).at(1);
  EXPECT_EQ(row.totalWaitTime, kWait);
  EXPECT_EQ(row.waitLengthTime, kWeighted);
  EXPECT_EQ(row.avgWaitTime, (tagUTIME{0, 625}));
  for (Asker* const asker : {&m_sum, &look, &sumSinceBoot}) {
    const auto sum = Build<recordPI_DEVS>(*asker).at(0);
    EXPECT_EQ(sum.waitTime, kWait);
    EXPECT_EQ(sum.waitLengthTime, kWeighted);
  }
}

TEST_F(ModernDeviceRecordsTest, ADiskThatGoesOrStartsAgainTakesNothingFromTheOthers) {
  const struct {
    std::vector<DiskReads> disks;
    std::uint32_t growth;
    std::vector<std::uint32_t> growths;
  } intervals[] = {
      {{{"sda", 1000}, {"sdb", 500}, {"sdc", 100}}, 0, {}},
      {{{"sda", 1007}, {"sdc", 103}}, 10, {7, 3}},                            // gone
      {{{"sdc", 104}, {"sda", 1009}, {"sdb", 600}}, 603, {2, 600, 1}},        // another one
      {{{"sda", 4}, {"sdb", 605}, {"sdc", 106}}, 7, {0, 5, 2}},               // starts again
      {{{"sda", 5}, {"sdb", 605}, {"sdb1", 9}, {"sdc", 106}}, 1, {1, 0, 0}},  // with a partition
  };
  for (const auto& interval : intervals) {
    SCOPED_TRACE(&interval - intervals);
    CollectReads(s_now + 10, interval.disks);
    const auto rows = Build<recordPI_DEVD>(m_each);
    std::vector<std::uint32_t> growths;
    for (const recordPI_DEVD& row : rows) {
      growths.push_back(row.totalIoOps);
    }
    EXPECT_EQ(growths, interval.growths);
    for (const recordPI_DEVS& sum : Build<recordPI_DEVS>(m_sum)) {
      EXPECT_EQ(sum.reads, interval.growth);
      EXPECT_DOUBLE_EQ(sum.ioMbytes, interval.growth);
      EXPECT_EQ(sum.totalBusyTime, (tagUTIME{0, static_cast<int>(interval.growth) * 1000}));
    }
  }
}

TEST_F(ModernDeviceRecordsTest, LooksCompareMilliseconds) {
  Asker look("DEVD", '4', kLooks);
  Asker sumLook("DEVS", '4', kLooks);
  CollectDisk(1000, 2048, 4'294'967'200);
  EXPECT_FLOAT_EQ(Build<recordPI_DEVD>(look).at(0).busyPercent, 0);
  (void)Build<recordPI_DEVS>(sumLook);
  s_now += 1;
  CollectDisk(1008, 2048, 304);  // 400 ms later
  const auto row = Build<recordPI_DEVD>(look).at(0);
  EXPECT_FLOAT_EQ(row.busyPercent, 40);
  EXPECT_EQ(row.avgServiceTime, (tagUTIME{0, 50'000}));
  EXPECT_EQ(row.avgWaitTime, (tagUTIME{0, 50'000}));
  const auto sum = Build<recordPI_DEVS>(sumLook).at(0);
  EXPECT_FLOAT_EQ(sum.busyPercent, 40);
  EXPECT_EQ(sum.waitLengthTime, (tagUTIME{0, 400'000}));
  m_host.Write("/proc/diskstats", "8 0 sda 1500001008 0 2048 304 1500000000 0 0 0 0 304 304\n");
  Collect();
  EXPECT_FLOAT_EQ(Build<recordPI_DEVD>(look).at(0).readPercent, 50) << "of 3000000000";
  EXPECT_FLOAT_EQ(Build<recordPI_DEVS>(sumLook).at(0).readOpsPercent, 50);
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
  s_now += 10;
  Collect();
  EXPECT_EQ(Build<recordPI_DEVD>(m_each).at(0).deviceName.view(), "dm-1 " + own.substr(0, 34));
  m_host.Write("/sys/block/dm-1/dm/name", "new\tname\n");
  s_now += 10;
  Collect();
  const auto row = Build<recordPI_DEVD>(m_each).at(0);
  EXPECT_STREQ(row.deviceName.c_str(), "dm-1 new");
  EXPECT_EQ(row.readOps, 0U) << "it is the same device";
}

}  // namespace
