#include "collect/device/DeviceSourceLINUX.h"

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "tests/collect/CollectFixture.h"

namespace {

/// The entries in which a kernel differs from another one, with equal neighbours as one range.
std::string Differences(int kernelVariant, int other) {
  std::ostringstream out;
  for (int major = 0, first = 0; major < MajorTable::kMajors; first = ++major) {
    const int entry = MajorTable::Entry(kernelVariant, major);
    const bool differs = entry != MajorTable::Entry(other, major);
    while (major + 1 < MajorTable::kMajors &&
           entry == MajorTable::Entry(kernelVariant, major + 1) &&
           differs == (entry != MajorTable::Entry(other, major + 1))) {
      ++major;
    }
    if (differs) {
      out << first << (major == first ? "" : "-" + std::to_string(major)) << ':' << entry << ' ';
    }
  }
  return out.str();
}

TEST(MajorTableTest, HoldsTheDisksOfEachKernel) {
  EXPECT_EQ(
      Differences(3, 0),
      "1-2:1 3:64 4:1 7:1 8:16 9:1 11-12:1 13-14:64 15-20:1 21-22:64 23-27:1 28:16 29-32:1 "
      "33-34:64 35:1 36:64 37:1 40-41:1 43:1 44-45:16 46-47:1 48-55:8 56-57:64 58-59:1 64:1 "
      "65-87:16 88-91:64 92:1 93:16 94:4 96:16 97-99:1 101-102:16 103:1 104-111:16 112:8 113:1 "
      "114:16 115:1 116:16 117:1 128-135:16 136-143:8 144-147:1 152:1 153:16 160-161:32 180:8 "
      "199:1 201:1 ");
  EXPECT_EQ(Differences(2, 3), "4:0 94:0 95:4 96:1 147:0 153:0 160-161:0 180:0 ");
  EXPECT_EQ(Differences(1, 2), "64:0 94:4 95:1 96:0 114-117:0 128-146:0 152:0 ");
  EXPECT_EQ(Differences(0, 4), "");
  EXPECT_EQ(MajorTable::Entry(3, -1) + MajorTable::Entry(3, 256) + MajorTable::Entry(4, 8), 0);
}

/// One line a row: name, type, Mbytes, operations, queue length, seconds.
std::string Dump(const std::vector<DeviceIO>& rows) {
  std::ostringstream out;
  for (const DeviceIO& row : rows) {
    out << '[' << row.GetName() << "] [" << row.GetType() << "] " << row.readMB << '+'
        << row.writeMB << '=' << row.totalMB << ' ' << row.readOps << '+' << row.writeOps << '='
        << row.totalOps << ' ' << row.queueLength << ' ' << row.serviceSeconds << ' '
        << row.queueSeconds << ' ' << row.busySeconds << '\n';
  }
  return out.str();
}

constexpr const char* kEmpty = "[] [] 0+0=0 0+0=0 0 0 0 0\n";

class DeviceSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    SetUptime<2>();
  }
  template <long kSeconds>
  static void SetUptime() {
    Os().sysinfo = [](struct ::sysinfo* info) {
      info->uptime = kSeconds;
      return 0;
    };
  }
  static std::string Read(int kernelVariant) {
    g_kernelVariant = kernelVariant;
    Collector collector;
    const UtlErrorPtr error(collector.collect(COLLECT_DEVICE, 0));
    return error != nullptr ? error->GetMessage() : Dump(*collector.GetDevice());
  }
};

TEST_F(DeviceSourceTest, ReadsTheDisksOfEachKernel) {
  SetHostRoot(FixturePath("2.4.9"));
  EXPECT_EQ(Read(1),
            "[dev3-0] [disk] 102.107+295.156=397.264 21033+19089=40122 275 550 151250 202\n");
  SetHostRoot(FixturePath("2.4.21"));
  EXPECT_EQ(Read(2),
            "[dev3-0] [disk] 248.641+500.336=748.977 51033+37087=88120 556 1113 618828 402\n");
  SetHostRoot(FixturePath("2.6.9"));
  EXPECT_EQ(Read(3),
            "[dev8-0 sda] [disk] 2002.06+4492.36=6494.42 210233+820114=1030347 10956 21913 "
            "240078828 1902\n"
            "[dev8-1 sdb] [disk] 478.57+483.458=962.028 51022+112034=163056 670 1340 897800 420\n");
  // The majors of today that stand beyond the table are told and left out.
  SetHostRoot(FixturePath("6.1"));
  EXPECT_EQ(Read(3),
            "[dev8-0 sda] [disk] 3965.01+1963.43=5928.43 120334+30221=150555 60 120 7200 60\n");
  EXPECT_EQ(Lines("(ProcLib::GetNumDevices) invalid major number found. (major=259) "
                  "(file=/proc/partitions)"),
            3U);
}

TEST_F(DeviceSourceTest, GivesAnEmptyRowWhereADiskCannotBeRead) {
  const process_tree::HostTree host;
  const std::string figures = " 1 0 2048 3000 2 0 4096 5000 0 6000 7000\n";
  host.Write("/proc/partitions",
             "major minor\n8 16 1 sdb\n8 17 1 sdb1\n-8 0 1 sdx\n8 0 1 sda\n7 3 1 loop3\n");
  host.Write("/proc/diskstats", "8 0 sda" + figures + "8 16 sdb" + figures + "7 3 loop3" + figures);
  // No figures in the old place; in the new one a disk that stands too early ends the search.
  EXPECT_EQ(Read(2), std::string(kEmpty) + kEmpty + kEmpty);
  EXPECT_EQ(Lines("function (sscanf).(rc=0, arg1=8 0 1 sda\n, arg2=%*u %*u %*u %*63s %lu"), 1U);
  EXPECT_EQ(Lines("Get_Device_Stat).(rc=-1, arg1=8 0 1 sda"), 1U);
  const std::string second = "[dev8-1 sdb] [disk] 1+2=3 1+2=3 3 8 24 6\n";
  EXPECT_EQ(Read(3), second + kEmpty + kEmpty);
  EXPECT_EQ(Lines("Check_Part_Device_Diskstats).(rc=-1, arg1=, arg2=8, arg3=0)."), 1U);

  // An uptime of 0 counts as 1; a line too long is read in pieces.
  SetUptime<0>();
  host.Write("/proc/diskstats", std::string(2000, 'x') + "\n8 16 sdb" + figures + "8 0 sda 1 2\n");
  EXPECT_EQ(Read(3), "[dev8-1 sdb] [disk] 1+2=3 1+2=3 7 8 56 6\n" + std::string(kEmpty) + kEmpty);
  host.Remove("/proc/diskstats");
  EXPECT_EQ(Read(3), std::string(kEmpty) + kEmpty + kEmpty);
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/diskstats, arg2=r)"), 1U);
  ExpectLevels({{30, "(sscanf).(rc=0, arg1=8 0 1 sda"},
                {30, "Get_Device_Stat).(rc=-1"},
                {30, "Get_Device_Stat_Diskstats).(rc=-1"},
                {30, "Check_Part_Device_Diskstats).(rc=-1"},
                {20, "(fopen). (en=2, arg1=/proc/diskstats"}});
}

TEST_F(DeviceSourceTest, FailsOnlyWithoutDisksOrUptime) {
  const process_tree::HostTree host;
  EXPECT_EQ(Read(3), "Error in calculating number of devices");
  EXPECT_EQ(Lines("(ProcLib::GetNumDevices). (rc=-1)"), 1U);
  host.Write("/proc/partitions", "major minor\n\n8\n8 1\n253 0\n300 0\n");
  EXPECT_EQ(Read(2), "Error in calculating number of devices");
  EXPECT_EQ(Lines("(ProcLib::GetNumDevices). (rc=0)"), 1U);
  host.Write("/proc/partitions", "8 0");
  Os().sysinfo = [](struct ::sysinfo*) {
    errno = EFAULT;
    return -1;
  };
  EXPECT_EQ(Read(3), "Error in calculating the uptime");
  ExpectLevels({{20, "invalid major number found. (major=300)"},
                {20, "(fopen). (en=2, arg1=/proc/partitions"},
                {20, "(ProcLib::GetNumDevices). (rc=0)"},
                {20, "(ProcLib::GetUpTime). (rc=-1)"}});
}

TEST_F(DeviceSourceTest, ScansLinesOfAnyShape) {
  struct Case {
    std::string line;
    int partitions;
    int diskstats;
    std::uint32_t reads;
  };
  const std::string ten = " 1 1 1 1 1 1 1 1 1 1";
  const Case cases[] = {
      {"", -1, -1, 0},
      {"8 0 1 sda 7" + ten, 0, -1, 7},
      {"8 0 sda 7" + ten, -1, 0, 7},
      {"8 0 sda 7 1 1 1 1 1 1 1 1 1", -1, -1, 0},
      // Counters beyond 32 bits keep the low ones.
      {"8 0 sda 9223372036854775808" + ten, -1, 0, 0},
      {"8 0 sda 4294967303" + ten, -1, 0, 7},
      {"8 0 sda -1" + ten, -1, 0, 4294967295U},
      // A name beyond its limit runs on into the first figure.
      {"8 0 1 " + std::string(63, 'x') + "25 7" + ten, 0, -1, 25},
      {"8 0 " + std::string(80, 'x') + " 7" + ten, -1, -1, 0},
      {"8 0 \xff\x01%n%s 7" + ten, -1, 0, 7},
      {std::string(1000, '9'), -1, -1, 0},
  };
  DeviceIOSourceUser source;
  for (const Case& one : cases) {
    SCOPED_TRACE(one.line);
    x_deviceio old;
    x_deviceio work;
    EXPECT_EQ(source.Get_Device_Stat(one.line.c_str(), &old, 0), one.partitions);
    EXPECT_EQ(source.Get_Device_Stat_Diskstats(one.line.c_str(), &work, 1), one.diskstats);
    EXPECT_EQ(old.readOps + work.readOps, one.reads);
  }

  // The longest name that is read, and what the row has room for.
  const process_tree::HostTree host;
  host.Write("/proc/partitions", "199 4294967\n");
  host.Write("/proc/diskstats", "199 4294967 " + std::string(79, 'n') + " 0" + ten);
  EXPECT_THAT(Read(3), testing::StartsWith("[dev199-4294967 " + std::string(64, 'n') + "] [disk]"));
}

}  // namespace
