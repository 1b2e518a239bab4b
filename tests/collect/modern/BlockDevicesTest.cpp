#include "collect/modern/device/BlockDevices.h"

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/HostFile.h"
#include "collect/system/SystemSourceLINUX.h"
#include "support/HostProfile.h"
#include "support/UtlError.h"
#include "tests/collect/CollectFixture.h"

namespace {

class BlockDevicesTest : public CollectFixture {
 protected:
  /// "name" or, of a device of devices, "name+".
  static std::vector<std::string> Found() {
    std::vector<std::string> names;
    for (const BlockDevice& device : ReadBlockDevices()) {
      names.push_back(device.name + (device.isPhysical ? "" : "+"));
    }
    return names;
  }
};

TEST_F(BlockDevicesTest, SysTellsWhatIsWhole) {
  SetHostRoot(FixturePath("modern-disks/first"));
  EXPECT_EQ(Found(), (std::vector<std::string>{"nvme0n1", "nvme1n1", "vda", "sda", "sr0", "dm-0+",
                                               "md0+", "mmcblk0", "mmcblk0boot0", "xvda1",
                                               "cciss/c0d0", "nbd0", "rbd0", "drbd0+"}));
  const BlockDevice old = ReadBlockDevices().at(1);
  EXPECT_EQ(old.counters.reads, 40U) << "its paths' where it has none";
  EXPECT_EQ(old.counters.sectorsWritten, 480U);
  EXPECT_EQ(old.counters.weightedMilliseconds, 50U);
  // Worked out from the lines of the devices without "+" above.
  const PhysicalOps ops = ReadPhysicalOps();
  EXPECT_EQ(ops.reads, 4295560916U);
  EXPECT_EQ(ops.writes, 813809U);
}

TEST_F(BlockDevicesTest, OneRunReadsThemOnce) {
  static const process_tree::HostTree* s_host = nullptr;
  const process_tree::HostTree host;
  s_host = &host;
  host.Write("/proc/vmstat", "pgpgin 4\n");
  host.Write("/proc/diskstats",
             "8 0 sda 4294967301 0 8 1 7 0 8 1 0 1 1\n8 16 sdb 1 0 8 1 1 0 8 1 0 1 1\n"
             "253 0 dm-0 5 0 8 1 7 0 8 1 0 1 1\n");
  // Asked by the host's own figures, which come after the devices.
  Os().getpagesize = [] {
    s_host->Write("/proc/diskstats", "8 0 sda 9 0 8 1 9 0 8 1 0 1 1\n");
    return 4096;
  };
  g_hostProfile = HostProfile::kModern;
  Collector collector;
  EXPECT_EQ(collector.collect(COLLECT_DEVICE | COLLECT_SYSTEM, 0), nullptr);
  EXPECT_EQ(collector.GetSystem()->physicalReads, 6U);
  EXPECT_EQ(collector.GetSystem()->pageInOps, 4294967302U);
  EXPECT_EQ(collector.GetSystem()->physicalWrites, 8U);
  EXPECT_EQ(collector.collect(COLLECT_SYSTEM, 0), nullptr);
  EXPECT_EQ(collector.GetSystem()->physicalReads, 9U) << "the devices are of an earlier run";
  g_hostProfile = HostProfile::kClassic;
}

TEST_F(BlockDevicesTest, WithoutSysTheNamesTell) {
  const process_tree::HostTree host;
  host.CopyFrom(FixturePath("modern-disks/first"));
  const auto all = Found();
  host.Remove("/sys");
  EXPECT_EQ(Found(), all);
  EXPECT_EQ(Found(), all);
  EXPECT_EQ(Lines("The host has no such file, so its figures are 0. (/sys/block)"), 1U);
  host.Write("/proc/diskstats",
             "202 0 xvda 1 0 0 0 0 0 0 0 0 0 0\n202 1 xvda1 1 0 0 0 0 0 0 0 0 0 0\n");
  EXPECT_EQ(Found(), std::vector<std::string>{"xvda"});
  host.Write("/sys/block/xvda1/size", "8\n");
  EXPECT_EQ(Found(), std::vector<std::string>{"xvda1"}) << "which is asked first";
  host.Remove("/proc/diskstats");
  EXPECT_TRUE(Found().empty());
  EXPECT_EQ(Lines("(/proc/diskstats)"), 1U);
}

TEST_F(BlockDevicesTest, LinesThatAreNotWholeAreToldAndBoundTheirFigures) {
  const process_tree::HostTree host;
  const std::string huge(64, '9');
  host.Write("/proc/diskstats", "garbage\n\n8 0\n8 0 " + std::string(64, 'n') +
                                    " 1 0 0 0 0 0 0 0 0 0 0\n" + "8 16 sdb 5 0 40 2 7\n8 32 sdc " +
                                    huge + " 0 " + huge + " 0 1 0 0 0 0 0 0");
  const auto devices = ReadBlockDevices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0].counters.writes, 7U);
  EXPECT_EQ(devices[0].counters.sectorsWritten, 0U);
  EXPECT_EQ(devices[1].counters.reads, ~std::uint64_t{0});
  EXPECT_EQ(Lines("The host's file lacks an entry, so its figure is 0. (/proc/diskstats: sdb)"),
            1U);
  std::string many;
  for (int line = 0; line <= 16384; ++line) {
    many += "8 0 sd 1 0 0 0 0 0 0 0 0 0 0\n";
  }
  host.Write("/proc/diskstats", many);
  EXPECT_LE(ReadBlockDevices().size(), 16384U);
  EXPECT_NE(TakeHostFileError(), nullptr);
}

TEST_F(BlockDevicesTest, NamesFollowTheKernelsRules) {
  const struct {
    const char *name, *parent, *multipath;
  } cases[] = {
      {"sda", "", ""},
      {"sda12", "sda", ""},
      {"sdap1", "sdap", ""},
      {"nvme0n1p2", "nvme0n1", ""},
      {"mmcblk0boot0", "mmcblk0boot", ""},
      {"p1", "p", ""},
      {"7", "", ""},
      {"nvme12c3n4", "nvme12c3n", "nvme12n4"},
      {"nvme12c3n4p1", "nvme12c3n4", ""},
      {"nvmec3n4", "nvmec3n", ""},
      {"nvme1cn4", "nvme1cn", ""},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(PartitionedName(one.name), one.parent) << one.name;
    EXPECT_EQ(MultipathName(one.name), one.multipath) << one.name;
  }
  EXPECT_TRUE(IsStackedDisk("md_home"));
  EXPECT_FALSE(IsStackedDisk("md"));
  EXPECT_FALSE(IsPseudoDisk("ramdisk"));
}

}  // namespace
