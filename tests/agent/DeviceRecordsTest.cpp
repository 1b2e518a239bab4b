#include "collect/CategoryFlags.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"

namespace {

constexpr tagPQLAUI kSchedule{.realtime = 0, .calcRates = 1};
constexpr tagPQLAUI kLook{.realtime = 1, .calcRates = 0};
constexpr tagPQLAUI kLookWithRates{.realtime = 1, .calcRates = 1};

long g_upTime = 0;

/// Figures that grow with `factor`: at 1 it has 60 reads and 40 writes, and was busy for 50 s.
DeviceIO Device(const std::string& name, const std::string& type = "disk", unsigned factor = 1) {
  DeviceIO device;
  name.copy(device.x_deviceio::name.data(), 79);
  type.copy(device.type.data(), 7);
  device.readOps = 60 * factor;
  device.writeOps = 40 * factor;
  device.totalOps = 100 * factor;
  device.reserved1 = 9 * factor;
  device.readMB = 30 * static_cast<float>(factor);
  device.writeMB = 20 * static_cast<float>(factor);
  device.totalMB = 50 * static_cast<float>(factor);
  device.busySeconds = std::uint64_t{50} * factor;
  device.serviceSeconds = std::uint64_t{80} * factor;
  device.queueSeconds = std::uint64_t{160} * factor;
  return device;
}

class DeviceRecordsTest : public BuilderFixture {
 protected:
  void SetUp() override {
    // So that no test meets another one's trace of the last hour.
    static std::time_t later = 0;
    s_now += later += 100'000;
  }

  template <class Row>
  std::vector<Row> Build(Asker& asker, const std::vector<DeviceIO>& devices) {
    *m_collector.GetDevice() = devices;
    return Build<Row>(asker);
  }
  template <class Row>
  std::vector<Row> Build(Asker& asker) {
    const auto builder = std::is_same_v<Row, recordPI_DEVD>   ? &RecordBuilder::Build_DEVD
                         : std::is_same_v<Row, recordPI_DEVS> ? &RecordBuilder::Build_DEVS
                                                              : &RecordBuilder::Build_TAPS;
    return BuildBy<Row>(builder, asker);
  }
};

TEST_F(DeviceRecordsTest, SecondScheduledRowsAreTheOnesWorkedOutByHand) {
  const std::filesystem::path fixture = std::filesystem::path(QMT_TEST_DIR) / "fixtures/devices";
  const process_tree::HostTree host;
  Os().sysinfo = [](struct ::sysinfo* info) {
    info->uptime = g_upTime;
    return 0;
  };
  Asker each("DEVD", '4', kSchedule);
  Asker sum("DEVS", '4', kSchedule);
  s_now = 1'700'000'000;
  g_upTime = 1000;
  host.CopyFrom(fixture / "first");
  ASSERT_EQ(m_collector.collect(COLLECT_DEVICE, 0), nullptr);
  EXPECT_TRUE(Build<recordPI_DEVD>(each).empty());
  EXPECT_TRUE(Build<recordPI_DEVS>(sum).empty());
  EXPECT_EQ(Lines("Created 0 DEVD record(s)."), 1U) << "only what is output counts";
  EXPECT_EQ(Lines("Created 1 DEVS record(s)."), 1U);

  s_now += 10;
  g_upTime += 10;
  host.CopyFrom(fixture / "second");
  ASSERT_EQ(m_collector.collect(COLLECT_DEVICE, 0), nullptr);
  const auto rows = Build<recordPI_DEVD>(each);
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_STREQ(rows[0].deviceName.c_str(), "loop0");
  EXPECT_STREQ(rows[2].deviceName.c_str(), "sdb");
  ExpectGolden(&rows[1], sizeof rows[1], fixture / "DEVD.tsv");
  const recordPI_DEVS total = Build<recordPI_DEVS>(sum).at(0);
  ExpectGolden(&total, sizeof total, fixture / "DEVS.tsv");

  // A second build in the same second skips each row, not the request.
  EXPECT_TRUE(Build<recordPI_DEVD>(each).empty());
  EXPECT_TRUE(Build<recordPI_DEVS>(sum).empty());
  const std::string zero = ": Attempt to calculate rates for a zero second interval. : Record";
  EXPECT_EQ(Lines("Unable to process DEVD record: RecordBuilder::BuildRatesPI_DEVD" + zero), 3U);
  EXPECT_EQ(Lines("Unable to process DEVS record: RecordBuilder::BuildRatesPI_DEVS" + zero), 1U);
  EXPECT_EQ(Lines("Created 0 DEVS record(s)."), 1U);
}

TEST_F(DeviceRecordsTest, WhatGoesBackwardsIsZeroAndIsNotShown) {
  const struct {
    void (*reset)(DeviceIO& device);
    bool countsZero, mbytesZero, sumZero, withheld, sumWithheld;
  } cases[] = {
      {[](DeviceIO&) {}, false, false, false, false, false},
      {[](DeviceIO& d) { d.readOps = 1; }, true, false, true, true, true},
      {[](DeviceIO& d) { d.writeOps = 1; }, true, false, true, true, true},
      {[](DeviceIO& d) { d.totalOps = 1; }, true, false, true, true, true},
      {[](DeviceIO& d) { d.reserved1 = 1; }, true, false, true, true, true},
      {[](DeviceIO& d) { d.totalMB = 1; }, false, true, true, true, true},
      {[](DeviceIO& d) { d.readMB = 1; }, false, true, false, true, false},
      {[](DeviceIO& d) { d.busySeconds = 1; }, false, false, false, true, false},
      {[](DeviceIO& d) { d.serviceSeconds = 1; }, false, false, false, true, false},
      {[](DeviceIO& d) { d.queueSeconds = 1; }, false, false, false, true, false},
  };
  Asker each("DEVD", '4', kSchedule);
  Asker sum("DEVS", '4', kSchedule);
  Asker eachLook("DEVD", '4', kLookWithRates);
  Asker sumLook("DEVS", '4', kLook);
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    const std::vector before{Device("dev8-0 sda")};
    std::vector after{Device("dev8-0 sda", "disk", 2)};
    one.reset(after[0]);
    (void)Build<recordPI_DEVD>(each, before);
    (void)Build<recordPI_DEVS>(sum, before);
    eachLook.NextAnswer();
    sumLook.NextAnswer();
    EXPECT_EQ(Build<recordPI_DEVD>(eachLook, before).size(), 1U);
    EXPECT_EQ(Build<recordPI_DEVS>(sumLook, before).size(), 1U);
    s_now += 100;
    const auto row = Build<recordPI_DEVD>(each, after).at(0);
    EXPECT_EQ(row.seekOps, one.countsZero ? 0U : 9U);
    EXPECT_FLOAT_EQ(row.ioMbytes, one.mbytesZero ? 0.0F : 50.0F);
    EXPECT_EQ(row.totalBusyTime, (tagUTIME{after[0].busySeconds == 1 ? 0 : 50, 0}));
    const auto total = Build<recordPI_DEVS>(sum, after).at(0);
    EXPECT_EQ(total.writes, one.sumZero ? 0U : 40U);
    EXPECT_EQ(total.ioMbytes, one.sumZero ? 0.0 : 50.0);
    EXPECT_EQ(Build<recordPI_DEVD>(eachLook, after).empty(), one.withheld);
    EXPECT_EQ(Build<recordPI_DEVS>(sumLook, after).empty(), one.sumWithheld);
    s_now += 100;
  }
  const std::string fell = "field (io_mbytes) is less than that during previous interval";
  EXPECT_EQ(Lines(fell), 1U) << "once an hour";
  s_now += 3600;
  (void)Build<recordPI_DEVD>(each, {Device("dev8-0 sda", "disk", 0)});
  EXPECT_EQ(Lines(fell + "current Interval Data = 0, Previous interval Data = 100)"), 1U);
}

TEST_F(DeviceRecordsTest, TapesThatGoBackwardsCountNothing) {
  const struct {
    void (*reset)(DeviceIO& device);
    bool isBackwards;
  } cases[] = {
      {[](DeviceIO&) {}, false},
      {[](DeviceIO& d) { d.readOps = 1; }, true},
      {[](DeviceIO& d) { d.writeOps = 1; }, true},
      {[](DeviceIO& d) { d.totalOps = 1; }, true},
      {[](DeviceIO& d) { d.totalMB = 1; }, true},
      {[](DeviceIO& d) { d.reserved1 = 1; }, false},
      {[](DeviceIO& d) { d.serviceSeconds = 1; }, false},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(&one - cases);
    const std::vector before{Device("dev9-0 st", "tape")};
    std::vector after{Device("dev9-0 st", "tape", 2)};
    one.reset(after[0]);
    Asker asker("TAPS", '4', kSchedule);
    Asker look("TAPS", '4', kLook);
    (void)Build<recordPI_TAPS>(asker, before);
    (void)Build<recordPI_TAPS>(look, before);
    s_now += 100;
    const auto row = Build<recordPI_TAPS>(asker, after).at(0);
    EXPECT_EQ(row.reads, one.isBackwards ? 0U : 60U);
    EXPECT_EQ(row.totalIoOps, one.isBackwards ? 0U : 100U);
    EXPECT_EQ(row.ioMbytes, one.isBackwards ? 0U : 50U);
    EXPECT_EQ(Build<recordPI_TAPS>(look, after).empty(), one.isBackwards);
    s_now += 100;
  }
  EXPECT_EQ(Lines("field (io_mbytes) is less than that during previous interval"), 1U);
}

TEST_F(DeviceRecordsTest, LooksWithoutRatesCompareWithTheirLastAnswer) {
  Asker each("DEVD", '4', kLook);
  Asker sum("DEVS", '4', kLook);
  const auto alone = Build<recordPI_DEVD>(each, {Device("dev8-1 sdb"), Device("dev3-0 hda")}).at(0);
  EXPECT_STREQ(alone.deviceName.c_str(), "hda") << "sorted by the name with its numbers";
  EXPECT_EQ(alone.interval, static_cast<std::uint32_t>(s_now));
  EXPECT_FLOAT_EQ(alone.readsPerSec, 60.0F);
  EXPECT_FLOAT_EQ(alone.readPercent + alone.busyPercent, 0.0F);
  EXPECT_EQ(Build<recordPI_DEVS>(sum).at(0).waitTime, tagUTIME{});

  s_now += 200;
  const std::vector later{Device("dev8-1 sdb", "disk", 2), Device("dev3-0 hda", "disk", 2)};
  const auto row = Build<recordPI_DEVD>(each, later).at(0);
  EXPECT_FLOAT_EQ(row.readPercent, 60.0F);
  EXPECT_EQ(row.avgServiceTime, (tagUTIME{0, 500'000}));
  EXPECT_EQ(row.avgWaitTime, (tagUTIME{0, 800'000}));
  EXPECT_FLOAT_EQ(row.busyPercent, 25.0F);
  const auto total = Build<recordPI_DEVS>(sum).at(0);
  EXPECT_FLOAT_EQ(total.writeOpsPercent, 40.0F);
  EXPECT_EQ(total.avgServiceTimePerDevice, (tagUTIME{50, 0}));
  EXPECT_EQ(total.waitLengthTime, (tagUTIME{160, 0}));
  EXPECT_FLOAT_EQ(total.busyPercent, 25.0F);
}

TEST_F(DeviceRecordsTest, NamesDecideWhatCounts) {
  const struct {
    int variant;
    std::string name;
    const char* type;
    std::string shown;  ///< empty: no row
    bool disk;
  } cases[] = {
      {3, "dev7-0 loop0", "disk", "loop0", false},
      {3, "dev71-0 sdz", "disk", "sdz", true},
      {3, "dev72-0 ida", "disk", "ida", false},
      {3, "dev128-2 x y", "disk", "x", true},
      {3, "dev22-0 hdc", "disk", "hdc", true},
      {3, "dev57-0 hdl", "disk", "hdl", true},
      {3, "dev58-0 lvm", "disk", "lvm", false},
      {3, "dev91-0 hdt", "disk", "hdt", true},
      {3, "dev135-0 sdz", "disk", "sdz", true},
      {3, "dev136-0 rd", "disk", "rd", false},
      {3, "dev8-0 st0", "tape", "st0", false},
      {3, "dev8-0", "disk", "", true},
      {3, "dev8 sda", "disk", "", false},
      {3, "dev8 -0 sda", "disk", "", false},
      {3, "dev8- 0 sda", "disk", "sda", true},
      {3, "", "disk", "", false},
      {3, "Unknown", "disk", "", false},
      {2, "dev34-1", "disk", "dev34-1", true},
      {3, "dev8-0 " + std::string(60, 'n'), "disk", std::string(39, 'n'), true},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    g_kernelVariant = one.variant;
    Asker each("DEVD", '4', kLookWithRates);
    Asker sum("DEVS", '4', kLookWithRates);
    const auto rows = Build<recordPI_DEVD>(each, {Device(one.name, one.type)});
    EXPECT_EQ(rows.empty() ? "" : rows[0].deviceName.c_str(), one.shown);
    EXPECT_EQ(Build<recordPI_DEVS>(sum).size(), one.disk ? 1U : 0U);
  }
}

TEST_F(DeviceRecordsTest, TapesWithHugeFigures) {
  std::vector tapes(3, Device("dev9-0 st", "tape"));
  Asker asker("TAPS", '4', kSchedule);
  (void)Build<recordPI_TAPS>(asker, tapes);
  s_now += 10;
  tapes[0] = Device("dev9-0 st", "tape", 2);
  tapes[0].queueLength = 4;
  tapes[1].serviceSeconds = std::uint64_t{1} << 63U;  // has no low 32 bits
  tapes[2].totalMB = 1e30F;
  const auto row = Build<recordPI_TAPS>(asker, tapes).at(0);
  EXPECT_EQ(row.devices, 3U);
  EXPECT_EQ(row.queueLength, 1U);
  EXPECT_EQ(row.ioMbytes, 4294967295U - 150U);
  EXPECT_FLOAT_EQ(row.mbytesXferdPerSec, 429496714.5F);
  EXPECT_EQ(row.avgServiceTimePerOp, (tagUTIME{0, 500'000}));
  EXPECT_EQ(row.totalWaitTime, tagUTIME{});
  EXPECT_FLOAT_EQ(row.readOpsPercent, 60.0F);
}

}  // namespace
