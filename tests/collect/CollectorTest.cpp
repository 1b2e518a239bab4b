#include "collect/Collector.h"

#include <sys/resource.h>

#include "collect/Categories.h"
#include "collect/CategoryFlags.h"
#include "collect/cpu/CPUSourceLINUX.h"
#include "collect/device/DeviceSourceLINUX.h"
#include "collect/filesystem/FileSystemSource.h"
#include "collect/modern/ModernFigures.h"
#include "collect/modern/cpu/CpuSource.h"
#include "collect/modern/device/DeviceSource.h"
#include "collect/modern/filesystem/FileSystemSource.h"
#include "collect/modern/network/InterfaceSource.h"
#include "collect/modern/network/ProtocolCounters.h"
#include "collect/modern/nfs/NFSTotals.h"
#include "collect/modern/process/ProcessSource.h"
#include "collect/modern/system/SystemSource.h"
#include "collect/network/InterfaceSourceLINUX.h"
#include "collect/network/ProtocolSourceLINUX.h"
#include "collect/nfs/NFSSource.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "collect/system/SystemSourceLINUX.h"
#include "support/HostProfile.h"
#include "tests/collect/CollectFixture.h"
#include "tests/scripted/Figures.h"

namespace {

class CollectorTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    Os().get_nprocs = [] { return 4; };
    Os().get_nprocs_conf = [] { return 4; };
    host.CopyFrom(FixturePath("6.1"));
  }
  process_tree::HostTree host;
  Collector collector;
};

TEST_F(CollectorTest, TheTableHoldsAllCategoriesInTheirOrder) {
  std::string names;
  CollectionMask flags = 0;
  for (const Category& category : Categories()) {
    names += std::string(category.name == nullptr ? "-" : category.name) + ",";
    EXPECT_EQ(flags & category.flag, 0U) << category.figure;
    flags |= category.flag;
  }
  EXPECT_EQ(names,
            "CPU,Process,Protocol,Messages,Device,Semaphore,Shared Memory,IPC,Message Queues,"
            "System,File System,Interface,Quota,Storage,-,NFS Server,NFS Client,UPI,UPIB,UPD,"
            "UPDB,Pressure,Control Group,Link,Socket,Disk,Memory,CPU Time,Sensor,Process Detail,"
            "Host,Kernel,");
  EXPECT_EQ(flags, 0x7FF77E8FAD3U);
}

TEST_F(CollectorTest, CategoriesOfTheModernProfileAreRunUnderItAlone) {
  constexpr CollectionMask kAllOfThem = ~CollectionMask{0xFFFFFFFF};
  for (const HostProfile profile : {HostProfile::kClassic, HostProfile::kModern}) {
    g_hostProfile = profile;
    EXPECT_EQ(collector.collect(kAllOfThem | COLLECT_CONTINUE_ON_ERROR), nullptr);
    g_hostProfile = HostProfile::kClassic;
    const bool isModern = profile == HostProfile::kModern;
    EXPECT_EQ(Lines("Start Processing"), isModern ? 11U : 0U);
    EXPECT_EQ(collector.GetModern()->processes.empty(), !isModern);
  }
}

/// Sources made up to now, the one that tells it included.
template <class Source>
std::uint32_t Made() {
  return Source().statistics().constructed;
}

template <class... Sources>
std::vector<std::uint32_t> MadeOf() {
  return {Made<Sources>()...};
}

std::vector<std::uint32_t> ClassicMade() {
  return MadeOf<CPUSourceUser, ProcessSourceUser, ProtocolSourceUser, DeviceIOSourceUser,
                SystemSourceUser, FileSystemSourceUser, InterfaceSourceUser,
                NFSServerTotalSourceUser, NFSClientTotalSourceUser>();
}
std::vector<std::uint32_t> ModernMade() {
  return MadeOf<ModernCpuSource, ModernProcessSource, ModernProtocolSource, ModernDeviceSource,
                ModernSystemSource, ModernFileSystemSource, ModernInterfaceSource,
                ModernNFSServerSource, ModernNFSClientSource>();
}

TEST_F(CollectorTest, EachProfileTouchesItsOwnSourcesAlone) {
  for (const HostProfile profile : {HostProfile::kClassic, HostProfile::kModern}) {
    g_hostProfile = profile;
    std::vector<std::uint32_t> classic = ClassicMade();
    std::vector<std::uint32_t> modern = ModernMade();
    EXPECT_EQ(collector.collect(0xFFFFFFFF, 0), nullptr);
    g_hostProfile = HostProfile::kClassic;
    // Of those in force the run made one, besides the one that is asked now.
    const std::uint32_t isModern = profile == HostProfile::kModern ? 1 : 0;
    for (std::size_t i = 0; i < classic.size(); ++i) {
      classic[i] += 2 - isModern;
      modern[i] += 1 + isModern;
    }
    EXPECT_EQ(ClassicMade(), classic) << HostProfileName(profile);
    EXPECT_EQ(ModernMade(), modern) << HostProfileName(profile);
  }
  std::size_t withTwo = 0;
  for (const Category& category : Categories()) {
    withTwo += category.run != nullptr && category.runModern != nullptr ? 1 : 0;
  }
  EXPECT_EQ(withTwo, ModernMade().size()) << "a source is missing in this test";
}

TEST_F(CollectorTest, BitsThatStartNoCategoryReadNothing) {
  for (const std::uint32_t flags : {0U, COLLECT_ACCT, COLLECT_UFSS, COLLECT_CONTINUE_ON_ERROR}) {
    EXPECT_EQ(collector.collect(flags, 0), nullptr);
  }
  EXPECT_EQ(Lines("Processing"), 0U);
  EXPECT_EQ(Lines("Starting the collect routine"), 4U);
  EXPECT_EQ(Lines("Completed the collect routine"), 4U);
  EXPECT_EQ(Lines("Started the function (Collector::collect). (arg1=0x8000000,"), 1U);
}

TEST_F(CollectorTest, NamesAreRenewedWithTheirFilesAndEachHourUnderModernAlone) {
  static std::string g_name;
  static std::time_t g_now = 0;
  static std::time_t g_changed = 0;
  static int g_asked = 0;
  g_now = 1'000'000;
  Os().time = [](std::time_t*) { return g_now; };
  Os().stat = [](const char* path, struct ::stat* status) {
    status->st_ctim.tv_sec = std::string_view(path) == "/etc/passwd" ? g_changed : 0;
    return 0;
  };
  Os().getpwuid = [](uid_t) {
    static ::passwd entry{};
    entry.pw_name = g_name.data();
    ++g_asked;
    return g_name.empty() ? nullptr : &entry;
  };
  const struct {
    HostProfile profile;
    std::uint32_t flags;
    std::time_t seconds;  ///< since the look before
    std::time_t changed;
    std::string name;
    const char* shown;
  } looks[] = {{HostProfile::kClassic, COLLECT_STORAGE, 0, 1, "a", "a"},
               {HostProfile::kClassic, COLLECT_STORAGE, 9999, 2, "b", "a"},
               {HostProfile::kModern, COLLECT_STORAGE, 9999, 3, "c", "c"},
               {HostProfile::kModern, COLLECT_STORAGE, 3599, 3, "d", "c"},
               {HostProfile::kModern, COLLECT_STORAGE, 1, 3, "d", "d"},
               {HostProfile::kModern, COLLECT_ACCT, 1, 4, "e", "d"},
               {HostProfile::kModern, COLLECT_STORAGE, 1, 4, "e", "e"},
               {HostProfile::kModern, COLLECT_STORAGE, -99, 4, "f", "f"},
               {HostProfile::kModern, COLLECT_STORAGE, 3600, 4, "", "f"},
               {HostProfile::kModern, COLLECT_STORAGE, 1, 4, "g", "f"}};
  for (const auto& look : looks) {
    g_hostProfile = look.profile;
    g_now += look.seconds;
    g_changed = look.changed;
    g_name = look.name;
    EXPECT_EQ(Collector().collect(look.flags | COLLECT_CONTINUE_ON_ERROR), nullptr);
    EXPECT_STREQ(UserName(nullptr, 33), look.shown) << &look - looks;
  }
  // One without a name is asked for each minute.
  g_name.clear();
  for (const auto& [seconds, asked] : {std::pair{0, 1}, {58, 0}, {1, 1}, {59, 0}, {1, 1}}) {
    g_asked = 0;
    g_now += seconds;
    EXPECT_EQ(Collector().collect(COLLECT_STORAGE | COLLECT_CONTINUE_ON_ERROR), nullptr);
    EXPECT_EQ(KnownUserName(34), nullptr);
    EXPECT_EQ(g_asked, asked) << seconds;
  }
}

TEST_F(CollectorTest, ReplacesWhatIsAskedForAndKeepsTheRest) {
  ASSERT_EQ(collector.collect(COLLECT_CPU | COLLECT_PROCESS, 0), nullptr);
  EXPECT_EQ(collector.GetCPU()->size(), 4U);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  const auto lines = ScriptedNode::Instance().LinesWith("Processing");
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0].text, "Start Processing CPU Category.");
  EXPECT_EQ(lines[3].text, "Completed Processing Process Category.");

  host.Remove("/proc/92");
  ASSERT_EQ(collector.collect(COLLECT_CPU, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  ASSERT_EQ(collector.collect(COLLECT_PROCESS, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 3U);
  EXPECT_EQ(FigureOf("collect_process_entities"), 3.0);
  EXPECT_GT(FigureOf("collect_process_seconds"), 0.0);
  EXPECT_EQ(FigureOf("collect_process_errors"), 0.0);
}

TEST_F(CollectorTest, TheFirstErrorEndsARunUnlessToldOtherwise) {
  host.Remove("/proc/cpuinfo");
  constexpr std::uint32_t kBoth = COLLECT_CPU | COLLECT_PROCESS;
  {
    const UtlErrorPtr error(collector.collect(kBoth, 0));
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->GetMessage(), "Error in calculating CPU types");
  }
  EXPECT_TRUE(collector.GetProcess()->empty());
  EXPECT_EQ(Lines("Completed"), 0U);

  EXPECT_EQ(collector.collect(kBoth | COLLECT_CONTINUE_ON_ERROR, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  EXPECT_EQ(Lines("Error occured in CPU category collection - Error in calculating CPU types"), 1U);
  EXPECT_EQ(Lines("Completed Processing CPU Category."), 1U);
  EXPECT_EQ(FigureOf("collect_cpu_errors"), 2.0);
  ExpectLevels({{30, "Starting the collect routine"},
                {30, "Start Processing CPU Category."},
                {20, "Error occured in CPU category collection"},
                {20, "Completed Processing CPU Category."},
                {30, "Completed the collect routine"}});
}

TEST_F(CollectorTest, WhatAHostCannotHaveIsAStateAndNoError) {
  const struct {
    const char* figure;
    std::uint32_t category;
    const char* path;
    const char* unsupported;  ///< null takes the file away
    const char* supported;
    bool isBrokenWithout;  ///< a host without the file is at fault
  } cases[] = {
      {"device", COLLECT_DEVICE, "/proc/partitions", "259 0 1 nvme0n1\n", "8 0 1 sda\n", true},
      {"nfs_client", COLLECT_NFS_CLIENT, "/proc/net/rpc/nfs", nullptr, "net 0\n", false}};
  for (const auto& one : cases) {
    const std::string name = one.figure;
    const auto figures = [&] {
      EXPECT_EQ(collector.collect(one.category | COLLECT_CONTINUE_ON_ERROR, 0), nullptr);
      return std::to_string(static_cast<int>(100 * FigureOf("category_" + name + "_supported") +
                                             10 * FigureOf("collect_" + name + "_failed") +
                                             FigureOf("collect_" + name + "_errors")));
    };
    host.Write(one.path, one.unsupported == nullptr ? "" : one.unsupported);
    if (one.unsupported == nullptr) {
      host.Remove(one.path);
    }
    EXPECT_EQ(figures() + figures(), "00") << name;
    EXPECT_EQ(Level(one.category == COLLECT_DEVICE ? "Error occured in Device category"
                                                   : "Error occured in NFS Client category"),
              20);
    host.Write(one.path, one.supported);
    EXPECT_EQ(figures(), "100") << name;
    host.Remove(one.path);
    EXPECT_EQ(figures(), one.isBrokenWithout ? "111" : "0") << name;
  }
}

TEST_F(CollectorTest, AFileBeyondItsLimitFailsItsCategoryAtOnce) {
  g_msgLogLevel = 0;
  Os().get_nprocs = [] { return 1; };
  const auto grow = [this](const char* path, std::uintmax_t size) {
    host.Write(path, "");
    std::filesystem::resize_file(host.Path(path), size);
  };
  const auto fill = [this](const char* path, const std::string& line, int count) {
    std::string text;
    for (int row = 0; row < count; ++row) {
      text += line;
    }
    host.Write(path, text);
  };
  grow("/proc/stat", 3ULL << 30U);
  fill("/proc/net/dev", "  eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n", 1300000);
  fill("/proc/diskstats", "9 9 none 1\n", 16385);
  fill("/etc/mtab", "x /none t rw\n", 131073);
  grow("/proc/net/rpc/nfs", (4U << 20U) + 1);
  const struct {
    std::uint32_t category;
    const char* error;
  } cases[] = {{COLLECT_CPU, "/proc/stat has more than 4194304 bytes"},
               {COLLECT_SYSTEM, "/proc/stat has more than 4194304 bytes"},
               {COLLECT_INTERFACE, "/proc/net/dev has more than 4194304 bytes"},
               {COLLECT_DEVICE, "/proc/diskstats has more than 16384 lines"},
               {COLLECT_FILE_SYSTEM, "/etc/mtab has more than 131072 lines"},
               {COLLECT_NFS_CLIENT, "/proc/net/rpc/nfs has more than 4194304 bytes"}};
  ::rusage before{};
  ::getrusage(RUSAGE_SELF, &before);
  for (const auto& one : cases) {
    const UtlErrorPtr error(collector.collect(one.category, 0));
    ASSERT_NE(error, nullptr) << one.error;
    EXPECT_STREQ(error->GetMessage(), one.error);
  }
  ::rusage after{};
  ::getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 3);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 100 * 1024) << "Kbytes";
  // What lies outside a run is nobody's failure.
  grow("/proc/vmstat", 5U << 20U);
  ProcLib lib;
  EXPECT_NE(UtlErrorPtr(lib.Initialize(kProcVmstat)), nullptr);
  EXPECT_EQ(collector.collect(COLLECT_PROTOCOL, 0), nullptr);
}

TEST_F(CollectorTest, ItsFiguresMayBeReadAfterItHasGone) {
  {
    Collector shortLived;
    ASSERT_EQ(shortLived.collect(COLLECT_CPU, 0), nullptr);
  }
  EXPECT_EQ(FigureOf("collect_cpu_entities"), 4.0);
}

}  // namespace
