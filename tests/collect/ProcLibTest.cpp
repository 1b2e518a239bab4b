#include "collect/ProcLib.h"

#include <cstdio>

#include "collect/process/ProcessSourceLINUX.h"
#include "tests/collect/CollectFixture.h"

namespace {

class ProcLibTest : public CollectFixture {
 protected:
  /// A library on /proc/stat with this text.
  void Open(ProcLib& lib, std::string_view text) {
    host.Write("/proc/stat", text);
    const UtlErrorPtr error(lib.Initialize(kProcStat));
    EXPECT_EQ(error, nullptr);
  }
  static std::string ValueOf(const ProcLib& lib, const char* key) {
    ProcLine value{};
    return lib.GetProcMapValue(key, value) == 0 ? value.data() : "(none)";
  }
  process_tree::HostTree host;
};

TEST_F(ProcLibTest, TellsNumbersAndNumberedNames) {
  for (const char* text : {"", "0", "0012"}) {
    EXPECT_EQ(ProcLib::IsNumeric(text), 0) << text;
  }
  for (const char* text : {"-1", "1a", " 1", "self"}) {
    EXPECT_EQ(ProcLib::IsNumeric(text), -1) << text;
  }
  for (const char* name : {"kswapd0", "kswapd12", "kswapd100"}) {
    EXPECT_EQ(ProcLib::IsNumberedName(name, "kswapd"), 0) << name;
  }
  for (const char* name : {"kswapd", "kswapd01", "kswapd00", "kswapdx", "xkswapd0", "kswa", ""}) {
    EXPECT_EQ(ProcLib::IsNumberedName(name, "kswapd"), -1) << name;
  }
}

TEST_F(ProcLibTest, AnOpenFailureNamesTheFile) {
  ProcLib lib;
  const UtlErrorPtr missing(lib.Initialize(kProcVmstat));
  ASSERT_NE(missing, nullptr);
  EXPECT_STREQ(missing->GetMessage(),
               "ProcLib::Initialize(file=/proc/vmstat): fopen(/proc/vmstat) failed! errno: 2");
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/vmstat"), 1U);
  EXPECT_NE(UtlErrorPtr(lib.Initialize(99)), nullptr);
  EXPECT_EQ(lib.BuildProcMap(" "), -1);
  EXPECT_EQ(lib.GetNumLines(), -1);
  EXPECT_EQ(lib.GetProcFp("/proc/none"), nullptr);
  EXPECT_EQ(ScriptedNode::Instance().CountMessages(10100), 1);
}

TEST_F(ProcLibTest, MapsTheFirstWordOfEachLine) {
  ProcLib lib;
  const std::string longKey(40, 'k');
  Open(lib,
       "pagesize 1\npage 2 3\n  cpu1  4 5 \ncpu10 6\nalone\nalone \n\n" + longKey + " v\nlast 789");
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  EXPECT_EQ(lib.GetNumLines(), 9);
  EXPECT_EQ(ValueOf(lib, "cpu1"), " 4 5 ");
  EXPECT_EQ(ValueOf(lib, "cpu10"), "6");
  // The first key that contains the word, whatever comes later.
  EXPECT_EQ(ValueOf(lib, "page"), "1");
  EXPECT_EQ(ValueOf(lib, "alone"), "(none)");
  EXPECT_EQ(ValueOf(lib, longKey.substr(0, 31).c_str()), "v");
  EXPECT_EQ(ValueOf(lib, longKey.substr(0, 32).c_str()), "(none)");
  // Without a line end the last character goes.
  EXPECT_EQ(ValueOf(lib, "last"), "78");
}

TEST_F(ProcLibTest, MapsNoMoreLinesThanItCountedFirst) {
  ProcLib lib;
  Open(lib, "a 1\nb 2\n");
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  std::FILE* file = std::fopen(host.Path("/proc/stat").c_str(), "w");
  ASSERT_NE(file, nullptr);
  std::fputs("c 3\n", file);
  std::fflush(file);
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  EXPECT_EQ(ValueOf(lib, "a"), "(none)");
  EXPECT_EQ(ValueOf(lib, "c"), "3");
  std::fputs("d 4\ne 5\n", file);
  std::fclose(file);
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  EXPECT_EQ(ValueOf(lib, "d"), "4");
  EXPECT_EQ(ValueOf(lib, "e"), "(none)");
}

TEST_F(ProcLibTest, AnEmptyFileHasNoMap) {
  ProcLib lib;
  Open(lib, "");
  EXPECT_EQ(lib.BuildProcMap(" "), -1);
  EXPECT_EQ(lib.GetNumLines(), -1);
  EXPECT_EQ(Lines("An error occured in a function (ProcLib::GetNumLines).(rc=-1)."), 1U);
  // This one opens, but its first page cannot be read.
  std::filesystem::create_symlink("/proc/self/mem", host.Path("/proc/vmstat"));
  const UtlErrorPtr error(lib.Initialize(kProcVmstat));
  EXPECT_EQ(lib.GetNumLines(), -1);
  EXPECT_EQ(Lines("(ProcLib::GetString) due to OS API (fgets) ."), 1U);
}

TEST_F(ProcLibTest, APipeOrADeviceIsNoFileToRead) {
  ASSERT_EQ(::mkfifo(host.Path("/proc/vmstat").c_str(), 0600), 0);
  std::filesystem::create_symlink("/dev/zero", host.Path("/proc/loadavg"));
  ProcLib lib;
  const UtlErrorPtr pipe(lib.Initialize(kProcVmstat));
  const UtlErrorPtr device(lib.Initialize(kProcLoadavg));
  EXPECT_NE(pipe, nullptr);
  EXPECT_NE(device, nullptr);
}

TEST_F(ProcLibTest, ReadsALongLineInPieces) {
  ProcLib lib;
  Open(lib, "k " + std::string(1 << 20, 'x') + "\nz 1\n");
  // Pieces of 1023 bytes, the last one with the line end.
  EXPECT_EQ(lib.GetNumLines(), (2 + (1 << 20) + 1 + 1022) / 1023 + 1);
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  EXPECT_EQ(ValueOf(lib, "k").size(), 1020U);
  EXPECT_EQ(ValueOf(lib, "z"), "1");
  Open(lib, std::string("\0a 1\n\0\xff 2\nb 3\n", 14));
  ASSERT_EQ(lib.BuildProcMap(" "), 0);
  EXPECT_EQ(ValueOf(lib, "b"), "3");
}

TEST_F(ProcLibTest, CountsProcessorsOnce) {
  Os().get_nprocs = [] { return -1; };
  EXPECT_EQ(ProcLib::GetNumCPUs(), -1);
  EXPECT_EQ(Lines("The error occured by OS API(get_nprocs).(en = "), 1U);
  Os().get_nprocs = [] { return 3; };
  EXPECT_EQ(ProcLib::GetNumCPUs(), 3);
  Os().get_nprocs = [] { return 5; };
  EXPECT_EQ(ProcLib::GetNumCPUs(), 3);
}

TEST_F(ProcLibTest, ReadsTheBootTimeOnceItIsThere) {
  EXPECT_EQ(ProcLib::GetBootTime(), -1);
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/proc/stat, arg2=r) ."), 1U);
  for (const char* text : {"cpu 1 2 3\n", "btime\n", "btime never\n"}) {
    host.Write("/proc/stat", text);
    EXPECT_EQ(ProcLib::GetBootTime(), 0) << text;
  }
  EXPECT_EQ(Lines("The error occured by OS API(sscanf)."), 2U);
  host.Write("/proc/stat", "cpu 1\nbtime 1714521600\n");
  EXPECT_EQ(ProcLib::GetBootTime(), 1714521600);
  host.Write("/proc/stat", "btime 5\n");
  EXPECT_EQ(ProcLib::GetBootTime(), 1714521600);
}

TEST_F(ProcLibTest, AsksTheSystemForTheUpTime) {
  Os().sysinfo = [](struct ::sysinfo* info) {
    info->uptime = 12345;
    return 0;
  };
  EXPECT_EQ(ProcLib::GetUpTime(), 12345);
  Os().sysinfo = [](struct ::sysinfo*) { return -1; };
  EXPECT_EQ(ProcLib::GetUpTime(), -1);
}

TEST_F(ProcLibTest, AnUnreadableProcessorNumberRepeatsTheOneBefore) {
  Os().get_nprocs_conf = [] { return 4; };
  ProcLib lib;
  Open(lib, "processor\t: 7\nmodel name\t: A\nprocessor\t: x\nprocessor\nprocessor\t: 9\nx");
  EXPECT_EQ(lib.GetCPUIds(), (std::vector<std::uint32_t>{7, 7, 7, 9}));
  EXPECT_EQ(Lines("The error occured by OS API(sscanf)."), 2U);
  Open(lib, "processor\t: 7\nmodel name\t: A\nmodel name\t: " + std::string(60, 'B') + "\n");
  EXPECT_EQ(lib.GetCPUTypes(), (std::vector<std::string>{"A", std::string(40, 'B'), "", ""}));
}

TEST_F(ProcLibTest, RemembersNamesButNotTheirAbsence) {
  static int g_asked = 0;
  g_asked = 0;
  Os().getpwuid = [](uid_t uid) -> passwd* {
    static char name[] = "www-data";
    static passwd entry{};
    ++g_asked;
    entry.pw_name = name;
    return uid == 33 ? &entry : nullptr;
  };
  Os().getgrgid = [](gid_t) -> group* { return nullptr; };
  passwd* entry = nullptr;
  EXPECT_STREQ(UserName(&entry, 33), "www-data");
  EXPECT_NE(entry, nullptr);
  EXPECT_STREQ(UserName(&entry, 33), "www-data");
  EXPECT_EQ(g_asked, 1);
  EXPECT_STREQ(UserName(nullptr, 34), "N/A uid = 34");
  EXPECT_STREQ(UserName(nullptr, -2), "N/A uid = -2");
  EXPECT_STREQ(UserName(nullptr, -2), "N/A uid = -2");
  EXPECT_STREQ(UserName(nullptr, -999), "N/S");
  EXPECT_EQ(g_asked, 4);
  EXPECT_STREQ(GroupName(nullptr, 12), "N/A gid = 12");
  EXPECT_STREQ(GroupName(nullptr, -999), "N/S");
  ClearUserNames();
  EXPECT_STREQ(UserName(nullptr, 33), "www-data");
  EXPECT_EQ(g_asked, 5);
}

TEST_F(ProcLibTest, NamesKernelFlags) {
  EXPECT_STREQ(ProcessSourceUser::LoadFlagString(0), "");
  EXPECT_STREQ(ProcessSourceUser::LoadFlagString(1U << 2 | 1U << 22 | 1U << 3),
               "PF_EXITING,PF_ATOMICALLOC");
  EXPECT_STREQ(ProcessSourceUser::LoadFlagString(~0U),
               "PF_ALIGNWARN,PF_STARTING,PF_EXITING,PF_FORKNOEXEC,PF_SUPERPRIV,PF_DUMPCORE,"
               "PF_SIGNALED,PF_MEMALLOC,PF_USEDFPU,PF_ATOMICALLOC");
}

}  // namespace
