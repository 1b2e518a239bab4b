#include "collect/modern/device/DiskSource.h"

#include "collect/modern/device/BlockDevices.h"
#include "tests/collect/CollectFixture.h"

namespace {

constexpr const char* kUsualFigures = " 11 12 13 1400 15 16 17 1800 19 2000 21000";

class DiskSourceTest : public CollectFixture {
 protected:
  static std::vector<DiskFigures> Read() {
    std::vector<DiskFigures> disks(1);
    ReadDisks(disks);
    return disks;
  }
  /// A line for each: texts, size, errors.
  static std::string Attributes() {
    std::ostringstream out;
    for (const DiskFigures& disk : Read()) {
      out << disk.name << '|' << disk.label << '|' << disk.kind << '|' << disk.model << '|'
          << disk.serial << '|' << disk.scheduler << ' ' << Told({disk.sizeBytes, disk.errors})
          << '\n';
    }
    return out.str();
  }
  void WriteDisk(const std::string& name, const std::string& files) {
    m_host.WriteAll("/sys/block/" + name, files);
  }

  process_tree::HostTree m_host;
};

TEST_F(DiskSourceTest, FiguresOfEachAgeOfTheKernel) {
  const struct {
    const char* more;
    const char* discardsAndFlushes;
  } cases[] = {{"", "- - - - - -"},
               {" 22 23", "- - - - - -"},
               {" 22 23 24 2500", "22 23 12288 2.5 - -"},
               {" 22 23 24 2500 26", "22 23 12288 2.5 - -"},
               {" 22 23 24 2500 26 2700", "22 23 12288 2.5 26 2.7"},
               {" 22 23 24 2500 26 2700 28 29", "22 23 12288 2.5 26 2.7"}};
  for (const auto& one : cases) {
    m_host.Write("/proc/diskstats", std::string("8 0 sda") + kUsualFigures + one.more + '\n');
    const auto disks = Read();
    ASSERT_EQ(disks.size(), 1U);
    const DiskFigures& disk = disks[0];
    EXPECT_EQ(Told({disk.reads, disk.readsMerged, disk.readBytes, disk.readSeconds, disk.writes,
                    disk.writesMerged, disk.writeBytes, disk.writeSeconds, disk.inFlight,
                    disk.inUseSeconds, disk.weightedSeconds}),
              "11 12 6656 1.4 15 16 8704 1.8 19 2 21");
    EXPECT_EQ(Told({disk.discards, disk.discardsMerged, disk.discardBytes, disk.discardSeconds,
                    disk.flushes, disk.flushSeconds}),
              one.discardsAndFlushes)
        << one.more;
    EXPECT_EQ(ReadBlockDevices().at(0).counters.weightedMilliseconds, 21000U);
  }
  m_host.Write("/proc/diskstats", "8 0 sda 1 2 x 4\n");
  EXPECT_EQ(Read().at(0).readsMerged, 2);
  EXPECT_FALSE(IsTold(Read().at(0).readBytes) || IsTold(Read().at(0).writes));
  EXPECT_FALSE(IsTold(Read().at(0).sizeBytes));
}

TEST_F(DiskSourceTest, AttributesOfEachKind) {
  std::string lines;
  for (const char* name : {"sda", "sda1", "sdb", "nvme0n1", "vda", "sr0", "nbd0", "dm-0", "md0",
                           "loop0", "zram0", "mmcblk0", "cciss/c0d0"}) {
    lines.append("8 0 ").append(name).append(" 0 0 0 0 0 0 0 0 0 0 0\n");
  }
  m_host.Write("/proc/diskstats", lines);
  using namespace std::string_literals;
  WriteDisk("sda",
            "size=16|queue/rotational=1|queue/scheduler=none [mq-deadline] bfq|"
            "device/model=WONDER  DISK    |device/ioerr_cnt=0x1f");
  m_host.Write("/sys/block/sda/device/vpd_pg80", "\0\x80\0\x08  S1\0Z7  junk"s);
  WriteDisk("sdb", "size=2|queue/rotational=0|device/ioerr_cnt=31");
  m_host.Write("/sys/block/sdb/device/vpd_pg80", "\0\x83\0\x02S1"s);
  WriteDisk("nvme0n1",
            "size=2|queue/scheduler=[none] mq-deadline|device/model=Fast One   |"
            "device/serial=  N77");
  WriteDisk("vda", "size=2|queue/rotational=1|diskseq=9");
  m_host.Write("/sys/block/vda/serial", "v1");
  WriteDisk("sr0", "size=0");
  WriteDisk("nbd0", "size=garbage");
  WriteDisk("dm-0", "size=2|queue/scheduler=none|dm/name=vg-root");
  WriteDisk("md0", "size=2|queue/scheduler=[none");
  WriteDisk("loop0", "size=2");
  WriteDisk("zram0", "size=2");
  WriteDisk("mmcblk0", "size=2|device/name=SD16G|device/serial=0xab");
  WriteDisk("cciss!c0d0", "size=2|queue/rotational=7");
  EXPECT_EQ(Attributes(),
            "sda||hdd|WONDER  DISK|S1 Z7|mq-deadline 8192 31\n"
            "sdb||ssd||| 1024 -\n"
            "nvme0n1||nvme|Fast One|N77|none 1024 -\n"
            "vda||virtio||v1| 1024 -\n"
            "dm-0|vg-root|dm|||none 1024 -\n"
            "md0||md||| 1024 -\n"
            "mmcblk0||mmc|SD16G|0xab| 1024 -\n"
            "cciss/c0d0||||| 1024 -\n");
  EXPECT_TRUE(ReadBlockDevices().empty()) << "which are all idle";
  // It is asked once for its number as long as it is the same disk.
  m_host.Write("/sys/block/vda/serial", "v2");
  EXPECT_EQ(Read().at(3).serial, "v1");
  m_host.Write("/sys/block/vda/diskseq", "10\n");
  EXPECT_EQ(Read().at(3).serial, "v2");
  m_host.Write("/sys/block/vda/diskseq", "11\n");
  m_host.Remove("/sys/block/vda/serial");
  EXPECT_EQ(Read().at(3).serial, "");
  m_host.Write("/sys/block/vda/serial", "v3");
  EXPECT_EQ(Read().at(3).serial, "v3") << "what could not be read is asked for again";
  m_host.Write("/sys/block/vda/diskseq", "12\n");
  m_host.Write("/sys/block/vda/serial", "");
  EXPECT_EQ(Read().at(3).serial, "");
  m_host.Write("/sys/block/vda/serial", "v4");
  EXPECT_EQ(Read().at(3).serial, "") << "to have none is an answer";
  m_host.Remove("/sys/block/vda/diskseq");
  EXPECT_EQ(Read().at(3).serial, "") << "it would be asked for each time";
}

TEST_F(DiskSourceTest, PathsOfMultipathCountWithTheirDevice) {
  m_host.Write("/proc/diskstats", std::string("259 0 nvme0n1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n") +
                                      "259 1 nvme0c0n1" + kUsualFigures + " 1 2 3 4 5 6\n" +
                                      "259 2 nvme0c1n1" + kUsualFigures + " 1 2 3 4 5 6\n");
  m_host.Write("/sys/block/nvme0n1/size", "8\n");
  const auto disks = Read();
  ASSERT_EQ(disks.size(), 1U);
  EXPECT_EQ(disks[0].reads, 22);
  EXPECT_EQ(disks[0].readsMerged, 24);
  EXPECT_EQ(disks[0].discardBytes, 6 * 512);
  EXPECT_EQ(disks[0].flushSeconds, 0.012);
}

TEST_F(DiskSourceTest, HostileTextsAreNothing) {
  EXPECT_EQ(SerialOfPage(std::string_view("\0\x80\xff\xff"
                                          "AB",
                                          6)),
            "AB");
  EXPECT_EQ(SerialOfPage(std::string_view("\0\x80\0", 3)), "");
  EXPECT_EQ(SchedulerOfDisk("a b]["), "");
  EXPECT_EQ(SchedulerOfDisk("two words"), "");
  for (const char* text : {"", "0x", "1f", "0x1g", "0x-1", "0x11111111111111111"}) {
    EXPECT_FALSE(IsTold(ScsiCount(text))) << text;
  }
}

}  // namespace
