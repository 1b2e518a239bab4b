#include "collect/modern/process/ProcessSource.h"

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/process/ProcessText.h"
#include "support/HostProfile.h"
#include "support/TextHash.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/ProcessRows.h"
#include "tests/scripted/Figures.h"

namespace {

/// What the kernel would write of one process.
struct HostProcess {
  int pid;
  std::string name;
  std::string state;  ///< its letter and what stands behind it up to the threads
  std::string stat;   ///< from the start time on, up to the pages in memory
  int policy;
  std::string statm;
  std::string status;  ///< from Vm lines on
  std::string io;      ///< empty for none
  std::string arguments;
};

constexpr char kUserMemory[] =
    "VmPeak:\t 9000000 kB\nVmSize:\t 8388608 kB\nVmRSS:\t 5242880 kB\nVmData:\t 6291456 kB\n"
    "VmStk:\t     132 kB\nVmExe:\t     936 kB\nVmLib:\t    1528 kB\nVmPTE:\t      40 kB\n"
    "VmSwap:\t    2048 kB\nThreads:\t4\n";
constexpr char kSwitches[] =
    "voluntary_ctxt_switches:\t4294967300\nnonvoluntary_ctxt_switches:\t7\n";
constexpr char kCallFigures[] =
    "rchar: 6442450944\nwchar: 1048576\nsyscr: 4294967301\nsyscw: 20\nread_bytes: 4096\n"
    "write_bytes: 8192\ncancelled_write_bytes: 0\n";

void WriteProcess(const process_tree::HostTree& host, const std::string& folder,
                  const HostProcess& process) {
  host.Write(folder + "/stat", std::to_string(process.pid) + " (" + process.name + ") " +
                                   process.state + " 0 " + process.stat +
                                   " 18446744073709551615 1 1 1 1 1 0 0 4096 1260 0 0 0 17 2 50 " +
                                   std::to_string(process.policy) + " 0 0 0 1 2 3 4 5 6 7 0\n");
  host.Write(folder + "/statm", process.statm + "\n");
  host.Write(folder + "/status",
             "Name:\tescaped\nUmask:\t0022\nUid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\nGroups:\t \n" +
                 process.status + "Threads:\t1\n" + kSwitches);
  host.Write(folder + "/cmdline", process.arguments);
  if (!process.io.empty()) {
    host.Write(folder + "/io", process.io);
  }
}

class ModernProcessSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    m_host = std::make_unique<process_tree::HostTree>();
    m_host->Write("/proc/stat", "btime 1700000000\n");
  }
  static std::vector<Process> Read() { return ReadProcesses<ModernProcessSource>(); }
  static std::string DumpAll() { return DumpEach(Read(), DumpModern); }
  /// One that lacks nothing: 5 GiB in memory, 8 GiB of addresses.
  static HostProcess Worker(int pid) {
    return {pid,
            "a b (c)",
            "S 3 7 9 34816 -1 4194560 10 0 20 0 150 250 0 0 20 -5 4",
            "12345 8589934592 1310700",
            1,
            "2097152 1310720 1000 1 0 1 0",
            kUserMemory,
            kCallFigures,
            std::string("worker\0-x\t1\0   \0", 16)};
  }

  std::unique_ptr<process_tree::HostTree> m_host;
};

TEST_F(ModernProcessSourceTest, ReadsWhatTheKernelTellsOfEachKindOfProcess) {
  const std::string kernel = "2 0 0 0 -1 69238880 0 0 0 0 0 9 0 0 20 0 1";
  const std::string program = "1 7 7 0 -1 4194304 0 0 0 0 0 9 0 0 -51 0 1";
  HostProcess longStatus = Worker(60);
  longStatus.name = "tab\tand\nline";
  longStatus.status = "Groups:\t" + std::string(11'000, '7') + "\n" + longStatus.status;
  const HostProcess processes[] = {
      Worker(20),
      {30, "kworker/u8:2-events_unbound", "I " + kernel, "50 0 0", 0, "0 0 0 0 0 0 0", "",
       kCallFigures, ""},
      {31, "kswapd0", "D " + kernel, "50 0 0", 0, "0 0 0 0 0 0 0", "", "", ""},
      {40, "t)raced", "t " + program, "60 4096 1", 2, "1 1 1 0 0 0 0", "VmSwap:\t3 kB\n", "",
       "a b"},
      {50, "gone", "X " + program, "60 0 0", 0, "0 0 0 0 0 0 0", "", "", " \t "},
      longStatus,
  };
  for (const HostProcess& process : processes) {
    WriteProcess(*m_host, "/proc/" + std::to_string(process.pid), process);
  }
  const std::string worker =
      "[worker -x 1] S1 flags=1/4194560 policy=1 80 -5 tty=34816 start=1700000123.450000000/12345 "
      "faults=10,20 times=1.500000000,2.500000000 rss=5242880/1073741824 virtual=8388608/0 "
      "total=8390656/0 heap=6291456 data=6291456 lib=1528 stack=132 code=936 swap=2048 "
      "shared=4000 switches=11 io=5,20,25,6292480,6443499520 0 ids=123567\n";
  const std::string noMemory =
      "rss=0/0 virtual=0/0 total=0/0 heap=0 data=0 lib=0 stack=0 code=0 swap=0 shared=0 "
      "switches=11 io=";
  EXPECT_EQ(DumpAll(),
            "1132 20 3 7 9 <a b (c)> " + worker +
                "1132 30 2 0 0 <kworker/u8:2-events_unbound> [] I1 flags=1/69238880 policy=0 80 0 "
                "tty=-1 start=1700000000.500000000/50 faults=0,0 times=0.0,0.90000000 " +
                noMemory +
                "5,20,25,6292480,6443499520 0 ids=123567\n"
                "1132 31 2 0 0 <kswapd0> [] D8 flags=16/69238880 policy=0 80 0 tty=-1 "
                "start=1700000000.500000000/50 faults=0,0 times=0.0,0.90000000 " +
                noMemory +
                "0,0,0,0,0 1 ids=123567\n"
                "1132 40 1 7 7 <t)raced> [a b] t5 flags=1/4194304 policy=2 9 0 tty=-1 "
                "start=1700000000.600000000/60 faults=0,0 times=0.0,0.90000000 rss=4/4096 "
                "virtual=4/4096 total=7/4096 heap=0 data=0 lib=0 stack=0 code=0 swap=3 shared=4 "
                "switches=11 io=0,0,0,0,0 1 ids=123567\n"
                "1132 50 1 7 7 <gone> [] X0 flags=1/4194304 policy=0 9 0 tty=-1 "
                "start=1700000000.600000000/60 faults=0,0 times=0.0,0.90000000 " +
                noMemory +
                "0,0,0,0,0 1 ids=123567\n"
                "1132 60 3 7 9 <tab\tand\nline> " +
                worker);
  EXPECT_EQ(ModernProcessSource::Skipped(), 0U);
}

TEST_F(ModernProcessSourceTest, TellsAGroupWithoutLeaderByItsFirstLiveThread) {
  HostProcess leader = Worker(20);
  leader.state[0] = 'Z';
  leader.stat = "12345 0 0";
  leader.statm = "0 0 0 0 0 0 0";
  leader.status = leader.arguments = "";
  WriteProcess(*m_host, "/proc/20", leader);
  m_host->Write("/proc/20/status",
                "Uid:\t1\t2\t3\t4\nGid:\t5\t6\t7\t8\nThreads:\t4\n"
                "voluntary_ctxt_switches:\t4294967335\nnonvoluntary_ctxt_switches:\t3\n");
  EXPECT_THAT(DumpAll(), StartsWith("1132 20 3 7 9 <a b (c)> [] Z4 "));

  WriteProcess(*m_host, "/proc/20/task/20", leader);
  HostProcess thread = Worker(21);
  thread.name = "helper";
  thread.state = "R 3 7 9 34816 -1 4194560 1 0 1 0 1 1 0 0 20 0 4";
  thread.stat = "99999 8589934592 1310720";
  WriteProcess(*m_host, "/proc/20/task/21", thread);
  EXPECT_EQ(DumpAll(),
            "1132 20 3 7 9 <a b (c)> [worker -x 1] R2 flags=1/4194560 policy=1 80 -5 tty=34816 "
            "start=1700000123.450000000/12345 faults=10,20 times=1.500000000,2.500000000 "
            "rss=5242880/1073741824 virtual=8388608/0 total=8390656/0 heap=6291456 data=6291456 "
            "lib=1528 stack=132 code=936 swap=2048 shared=4000 switches=42 "
            "io=5,20,25,6292480,6443499520 0 ids=123567\n");
  EXPECT_EQ(Read().at(0).GetUserTime(), (tagUTIME{1, 500000}));
}

TEST_F(ModernProcessSourceTest, WhoMayHoldItsReaderHasTheArgumentsOfTheLookBefore) {
  HostProcess process = Worker(20);
  const auto shown = [&](char state, const char* start, const char* arguments) {
    process.state.front() = state;
    process.stat.replace(0, 5, start);
    process.arguments = arguments;
    WriteProcess(*m_host, "/proc/20", process);
    return std::string(Read().at(0).GetCmdline());
  };
  EXPECT_EQ(shown('D', "33333", "a"), "") << "no look before";
  int start = 33400;
  for (const auto& [wchan, arguments] : {std::pair{"kernel_clone", "a"},
                                         {"rpc_wait_bit_killable", ""},
                                         {"vm_mmap_pgoff", ""},
                                         {"folio_wait_bit_common", ""},
                                         {"io_schedule", ""},
                                         {"wait_transaction_locked", ""},
                                         {"0", ""}}) {
    m_host->Write("/proc/20/wchan", wchan);
    EXPECT_EQ(shown('D', std::to_string(++start).c_str(), "a"), arguments) << wchan;
  }
  EXPECT_EQ(shown('S', "33333", "b"), "b");
  EXPECT_EQ(shown('D', "33333", "c"), "b");
  EXPECT_EQ(shown('D', "33333", "c"), "b");
  EXPECT_EQ(shown('D', "44444", "d"), "") << "another process";
  shown('S', "44444", "e");
  m_host->Remove("/proc/20");
  EXPECT_TRUE(Read().empty());
  EXPECT_EQ(shown('D', "44444", "f"), "") << "nothing is kept of who has gone";
}

TEST_F(ModernProcessSourceTest, StartTimesGoByTheBootTimeOfTheWalk) {
  WriteProcess(*m_host, "/proc/20", Worker(20));
  const auto start = [] {
    const std::vector<Process> rows = Read();
    EXPECT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows.at(0).modern.startTicks, 12345U);
    return rows.at(0).startTime;
  };
  EXPECT_EQ(start().seconds, 1'700'000'123);
  m_host->Write("/proc/stat", "cpu  1 2 3 4\nbtime 1700003600\n");  // the clock was set
  EXPECT_EQ(start().seconds, 1'700'003'723);
  EXPECT_EQ(start().nanoseconds, 450'000'000);
  for (const char* lack : {"lacks an entry, so its figure is 0. (/proc/stat: btime)",
                           "has no such file, so its figures are 0. (/proc/stat)"}) {
    m_host->Remove("/proc/stat");
    if (std::string(lack).starts_with("lacks")) {
      m_host->Write("/proc/stat", "cpu  1 2 3 4\nxbtime 5\n");
    }
    for (int walk = 0; walk < 2; ++walk) {
      EXPECT_EQ(start().seconds, 0) << lack;
      EXPECT_EQ(start().nanoseconds, 0) << lack;
    }
    EXPECT_EQ(Lines(lack), 1U) << lack;
    EXPECT_EQ(Level(lack), 20) << lack;
  }
  EXPECT_EQ(Lines("/proc/stat: "), 1U) << "a file that is not there lacks no entry";
}

TEST_F(ModernProcessSourceTest, ReadsLimitsWhereTheyAreAskedFor) {
  g_hostProfile = HostProfile::kModern;
  WriteProcess(*m_host, "/proc/20", Worker(20));
  m_host->Write("/proc/20/limits",
                "Limit                     Soft Limit           Hard Limit           Units     \n"
                "Max cpu time              60                   unlimited            seconds   \n"
                "Max file size             61                   71                   bytes     \n"
                "Max data size             62                   72                   bytes     \n"
                "Max stack size            8589934592           73                   bytes     \n"
                "Max core file size        0                    74                   bytes     \n"
                "Max resident set          9                    9                    bytes     \n"
                "Max open files            65                   75                   files     \n"
                "Max address space         66                   76                   bytes     \n");
  WriteProcess(*m_host, "/proc/21", Worker(21));
  Collector collector;
  ASSERT_EQ(collector.collect(COLLECT_PROCESS | COLLECT_PROCESS_LIMITS, 0), nullptr);
  const std::vector<ProcessLimits>& limits = *collector.GetProcessLimits();
  ASSERT_EQ(limits.size(), 2U);
  std::ostringstream text;
  const ProcessLimits& full = limits[collector.GetProcess()->at(0).GetPid() == 20 ? 0 : 1];
  for (const ProcessLimits::Limit& limit :
       {full.cpuTime, full.fileSize, full.dataSize, full.stackSize, full.coreSize, full.openFiles,
        full.virtualMemSize}) {
    text << std::fixed << limit.soft << '/' << limit.hard << ' ';
  }
  const std::string zero = ".000000";
  EXPECT_EQ(text.str(), "60" + zero + "/18446744073709551616" + zero + " 61" + zero + "/71" + zero +
                            " 62" + zero + "/72" + zero + " 8589934592" + zero + "/73" + zero +
                            " 0" + zero + "/74" + zero + " 65" + zero + "/75" + zero + " 66" +
                            zero + "/76" + zero + " ");
  ASSERT_EQ(collector.collect(COLLECT_PROCESS, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 2U);
  EXPECT_TRUE(limits.empty());
}

TEST_F(ModernProcessSourceTest, TellsFoldersApartByTheirPathsWhereItIsAsked) {
  g_hostProfile = HostProfile::kModern;
  for (const int pid : {20, 21, 22}) {
    WriteProcess(*m_host, "/proc/" + std::to_string(pid), Worker(pid));
  }
  m_host->Link("/proc/20/cwd", "/srv");
  m_host->Write("/proc/21/cwd", "no link");
  const std::string longPath = "/srv/" + std::string(300, 'x');
  m_host->Link("/proc/22/cwd", longPath);
  Collector collector;
  for (const bool isAsked : {true, false}) {
    const std::uint32_t folder = isAsked ? COLLECT_PROCESS_FOLDER : 0U;
    ASSERT_EQ(collector.collect(COLLECT_PROCESS | folder, 0), nullptr);
    ASSERT_EQ(collector.GetProcess()->size(), 3U);
    for (const Process& process : *collector.GetProcess()) {
      const std::string path = process.GetPid() == 20 ? "/srv" : longPath;
      const bool isTold = isAsked && process.GetPid() != 21;
      EXPECT_EQ(process.GetCwdInode(), isTold ? TextHash(path) : 0U) << process.GetPid();
    }
  }
}

TEST_F(ModernProcessSourceTest, TellsOnceWhatTheHostLacks) {
  WriteProcess(*m_host, "/proc/20", Worker(20));
  m_host->Remove("/proc/20/io");
  m_host->Remove("/proc/20/statm");
  m_host->Write("/proc/20/status", "Name:\tx\nUid:\t1\t2\t3\t4\nVmData:\t9 kB\nVmSwap:\t12");
  for (int walk = 0; walk < 2; ++walk) {
    const Process row = Read().at(0);
    EXPECT_EQ(row.GetEuid(), 2);
    EXPECT_EQ(row.modern.heapKB, 9U);
    EXPECT_EQ(row.modern.totalKB, 0U);  // a line without its end may have been cut
    EXPECT_EQ(row.reads, 0U);
    EXPECT_TRUE(row.modern.isIoUnknown);
  }
  for (const char* name :
       {"/proc/PID/io)", "/proc/PID/statm)", "/proc/PID/status: Gid:)",
        "/proc/PID/status: VmSwap:)", "/proc/PID/status: voluntary_ctxt_switches:)"}) {
    EXPECT_EQ(Lines(name), 1U) << name;
    EXPECT_EQ(Level(name), 20) << name;
  }
  EXPECT_EQ(Lines("status: Uid:"), 0U);
  // Another process that has it all: the host lacks nothing, and would be told of again.
  WriteProcess(*m_host, "/proc/21", Worker(21));
  ScriptedNode::Instance().lines.clear();
  EXPECT_EQ(Read().size(), 2U);
  EXPECT_EQ(Lines("/proc/PID/"), 0U);
  m_host->Remove("/proc/21/io");
  EXPECT_EQ(Read().size(), 2U);
  EXPECT_EQ(Lines("/proc/PID/io)"), 1U);
}

TEST_F(ModernProcessSourceTest, SkipsWhatCannotBeReadAndForgetsWhatHasEnded) {
  const std::string huge(1 << 20, '1');
  struct Case {
    const char* path;
    std::function<void(const std::filesystem::path&)> make;  ///< null leaves no file
    std::size_t rows;
    std::uint32_t skipped;
  };
  const auto write = [](const std::string& text) {
    return [text](const std::filesystem::path& path) { std::ofstream(path) << text; };
  };
  const auto pipe = [](const std::filesystem::path& path) { ::mkfifo(path.c_str(), 0600); };
  const auto endless = [](const std::filesystem::path& path) {
    std::filesystem::create_symlink("/dev/zero", path);
  };
  const auto folder = [](const std::filesystem::path& path) {
    std::filesystem::create_directory(path);
  };
  const Case cases[] = {
      {"stat", nullptr, 1, 1},
      {"stat", write(""), 1, 1},
      {"stat", write("20 (x S 1 1 1\n"), 1, 1},
      {"stat", write(") 20 ( S 1 1 1\n"), 1, 1},
      {"stat", write("20 (x) S 1 1 1 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 5 4096\n"), 1, 1},
      {"stat", write("20 (x) S 1 1 1 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 5 4096 1"), 1, 1},
      {"stat", pipe, 1, 1},
      {"stat", endless, 1, 1},
      {"stat", folder, 1, 1},
      {"status", nullptr, 1, 1},
      {"status", pipe, 1, 1},
      {"status", endless, 2, 0},
      {"status", write(huge), 2, 0},
      {"statm", endless, 2, 0},
      {"statm", folder, 2, 0},
      {"io", pipe, 2, 0},
      {"io", write(huge), 2, 0},
      {"cmdline", endless, 2, 0},
      {"cmdline", write(huge), 2, 0},
      {"", nullptr, 1, 0},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.path);
    WriteProcess(*m_host, "/proc/19", Worker(19));
    m_host->Remove("/proc/20");
    WriteProcess(*m_host, "/proc/20", Worker(20));
    const std::string path = std::string("/proc/20/") + test.path;
    m_host->Remove(path);
    if (test.make != nullptr) {
      test.make(m_host->Path(path));
    }
    EXPECT_EQ(Read().size(), test.rows);
    EXPECT_EQ(ModernProcessSource::Skipped(), test.skipped);
  }
  // Names that are no numbers of processes.
  m_host->Write("/proc/99999999999/stat", "1 (x) S\n");
  m_host->Write("/proc/" + std::string(250, '0') + "/stat", "1 (x) S\n");
  EXPECT_EQ(Read().size(), 1U);
  EXPECT_EQ(ModernProcessSource::Skipped(), 0U);
}

/// Takes root's rights from this process for its life.
class WithoutRights {
 public:
  WithoutRights() : m_user(::geteuid()) {
    if (m_user == 0) {
      EXPECT_EQ(::seteuid(65534), 0);
    }
  }
  ~WithoutRights() { EXPECT_EQ(::seteuid(m_user), 0); }
  WithoutRights(const WithoutRights&) = delete;
  WithoutRights& operator=(const WithoutRights&) = delete;

 private:
  ::uid_t m_user;
};

TEST_F(ModernProcessSourceTest, AnIoThatMayNotBeReadIsCounted) {
  WriteProcess(*m_host, "/proc/20", Worker(20));
  WriteProcess(*m_host, "/proc/21", Worker(21));
  std::filesystem::permissions(m_host->Path("/"), std::filesystem::perms{0755});
  std::filesystem::permissions(m_host->Path("/proc/20/io"), std::filesystem::perms{0});
  std::vector<Process> rows;
  {
    const WithoutRights unprivileged;
    rows = Read();
  }
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].reads, 0U);
  EXPECT_TRUE(rows[0].modern.isIoUnknown);
  EXPECT_FALSE(rows[1].modern.isIoUnknown);
  EXPECT_EQ(rows[0].modern.heapKB, 6291456U);
  EXPECT_EQ(rows[1].writes, 20U);
  EXPECT_EQ(FigureOf("collect_process_io_denied"), 1);
  // A process that hides its files is there all the same.
  std::filesystem::permissions(m_host->Path("/proc/20/stat"), std::filesystem::perms{0});
  {
    const WithoutRights unprivileged;
    EXPECT_EQ(Read().size(), 1U);
  }
  EXPECT_EQ(ModernProcessSource::Skipped(), 1U);
  EXPECT_EQ(FigureOf("collect_process_io_denied"), 0);
  EXPECT_EQ(Lines("A process has no row"), 1U);
}

TEST(ModernProcessTextTest, TidiesArguments) {
  struct Case {
    std::string text;
    const char* tidy;
  };
  const Case cases[] = {
      {std::string("a\0b\0", 4), "a b"},
      {"nginx: worker process        ", "nginx: worker process"},
      {std::string("title\0\0\0\0", 9), "title"},
      {std::string("\x1b[31m\x7f\n\xc3\xa4", 9), " [31m  \xc3\xa4"},
      {std::string("\0\0 ", 3), ""},
      {"", ""},
  };
  for (const Case& test : cases) {
    std::string text = test.text;
    text.resize(TidyArguments(text));
    EXPECT_EQ(text, test.tidy);
  }
}

}  // namespace
