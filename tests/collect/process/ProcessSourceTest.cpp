#include "collect/process/ProcessSourceLINUX.h"

#include <sys/resource.h>

#include <cstdio>
#include <random>

#include "tests/collect/CollectFixture.h"
#include "tests/collect/ProcessRows.h"

namespace {

std::string Time(const tagUTIME& time) {
  return std::to_string(time.seconds) + "+" + std::to_string(time.microseconds);
}

/// A process as text, two lines.
std::string Dump(const Process& row) {
  std::ostringstream out;
  out << row.size << " pid=" << row.GetPid() << " ppid=" << row.GetPpid()
      << " pgrp=" << row.GetPgrp() << " session=" << row.GetSession() << " flags=" << row.GetFlags()
      << " state=" << row.GetState() << " faults=" << row.GetMinorFaults() << '/'
      << row.GetMajorFaults() << " swaps=" << row.GetSwaps() << " nice=" << row.GetNice()
      << " pri=" << row.GetPriority() << " tty=" << static_cast<std::int64_t>(row.GetTty())
      << " ids=" << row.GetRuid() << ',' << row.GetEuid() << ',' << row.GetSuid() << '/'
      << row.GetRgid() << ',' << row.GetEgid() << ',' << row.GetSgid() << "\n  " << row.GetName()
      << " [" << row.GetCmdline() << "] rss=" << row.GetResidentBytes()
      << " stack=" << row.GetStackKB() << " code=" << row.GetCodeKB() << " data=" << row.GetDataKB()
      << " shared=" << static_cast<std::int64_t>(row.GetSharedKB())
      << " total=" << row.GetTotalBytes() << " virtual=" << row.GetVirtualSize()
      << " user=" << Time(row.GetUserTime()) << " system=" << Time(row.GetSystemTime())
      << " cpu=" << Time(row.GetCpuTime()) << " start=" << Time(row.GetStartTime()) << '\n';
  return out.str();
}

class ProcessSourceTest : public CollectFixture {
 protected:
  static std::vector<Process> Read() {
    ProcLib::ResetCaches();
    return ReadProcesses<ProcessSourceUser>();
  }
  static std::string DumpAll() { return DumpEach(Read(), Dump); }
  static std::uint64_t InodeOf(const std::string& path) {
    struct ::stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
  }
};

/// The table has for each kernel its name and two lines for each process.
TEST_F(ProcessSourceTest, ReadsTheProcessesOfEachKernel) {
  std::string text;
  for (const auto& [kernel, variant] : {std::pair{"2.4.21", 2}, {"2.6.9", 3}, {"6.1", 3}}) {
    SetHostRoot(FixturePath(kernel));
    g_kernelVariant = variant;
    text += std::string(kernel) + '\n' + DumpAll();
  }
  EXPECT_EQ(text, FileText(QMT_TEST_DIR "/collect/process/processes.txt"));
}

TEST_F(ProcessSourceTest, ReadsThisHost) {
  const std::time_t begin = std::time(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  EXPECT_EQ(::setpriority(PRIO_PROCESS, static_cast<id_t>(child), 19), 0);
  const std::vector<Process> rows = Read();
  const auto row = std::ranges::find(rows, child, &Process::GetPid);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ASSERT_NE(row, rows.end());
  EXPECT_EQ(row->GetPpid(), ::getpid());
  EXPECT_EQ(row->GetNice(), 19);
  EXPECT_EQ(static_cast<uid_t>(row->GetEuid()), ::geteuid());
  EXPECT_EQ(row->GetPgrp(), ::getpgrp());
  EXPECT_NEAR(static_cast<double>(row->GetStartTime().seconds), static_cast<double>(begin), 2);
}

TEST_F(ProcessSourceTest, TellsWhereAProcessStands) {
  SetHostRoot(FixturePath("6.1"));
  const std::vector<Process> rows = Read();
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[2].GetPid(), 4021);
  EXPECT_EQ(rows[2].GetCwdInode(), InodeOf(FixturePath("6.1/etc")));
  EXPECT_EQ(rows[2].GetRootInode(), InodeOf(FixturePath("6.1")));
  EXPECT_EQ(rows[3].GetCwdInode(), 0U);
  EXPECT_EQ(Lines("(ProcessSourceUser::ReadLink).(rc=0, arg1=/proc/%s/cwd, arg2=4099)"), 1U);

  const process_tree::HostTree host;
  host.CopyFrom(FixturePath("6.1"));
  host.Remove("/proc/1/cwd");
  host.Link("/proc/1/cwd", std::string("/") + std::string(255, 'd'));
  host.Link("/proc/92/cwd", "/gone (deleted)");
  for (const Process& row : Read()) {
    EXPECT_EQ(row.GetCwdInode() != 0, row.GetPid() == 4021) << row.GetPid();
  }
  EXPECT_EQ(Lines("OS API(readlink). (en=36, arg1=/proc/1/cwd, arg2=256"), 1U);
  EXPECT_EQ(Lines("OS API(stat). (en=2, arg1=/gone (deleted)"), 1U);
  ExpectLevels({{30, "OS API(readlink)"}, {30, "OS API(stat)"}, {30, "ReadLink).(rc=0, arg1="}});
}

TEST_F(ProcessSourceTest, SkipsAProcessThatCannotBeRead) {
  struct Case {
    const char* path;
    const char* text;  ///< null takes the file away
    bool skipped;
    int level;
    const char* trace;
  };
  const std::string noCpu(1024, 'x');
  const Case cases[] = {
      {"/proc/1/stat", nullptr, true, 20, "OS API(fopen). (en=2, arg1=/proc/1/stat"},
      {"/proc/1/stat", "", true, 20, "OS API(fgets). (en=0, arg1=/proc/1/stat"},
      {"/proc/1/stat", "1 (a b) S 0 1", true, 20, "Get_Stat_Info). (rc=-1, arg1=1"},
      {"/proc/1/stat", "\x01\xff\x02", true, 20, "Get_Stat_Info). (rc=-1, arg1=1"},
      {"/proc/1/statm", nullptr, false, 30, "OS API(fopen). (en=2, arg1=/proc/1/statm"},
      {"/proc/1/statm", "12", false, 30, "Get_Statm_Info).(rc=-1, arg1=1"},
      {"/proc/1/cmdline", nullptr, false, 30, "OS API(open). (en=2, arg1=/proc/1/cmdline"},
      {"/proc/1/status", nullptr, true, 20, "OS API(fopen). (en=2, arg1=/proc/1/status"},
      {"/proc/1/status", "", true, 20, "OS API(fread). (en=0, arg1=/proc/1/status"},
      {"/proc/1/status", "State:\tS\nPPid:\tName:\n", true, 20, "OS API (strstr)|Get_Status_Info)"},
      {"/proc/1/status", "Name:", true, 20, "Get_Status_Info). (rc=-1, arg1=1"},
      {"/proc/1/status", noCpu.c_str(), true, 20, "Get_Status_Info). (rc=-1, arg1=1"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.trace);
    const process_tree::HostTree host;
    host.CopyFrom(FixturePath("6.1"));
    host.Remove(test.path);
    if (test.text != nullptr) {
      host.Write(test.path, test.text);
    }
    ScriptedNode::Instance().lines.clear();
    EXPECT_EQ(Read().size(), test.skipped ? 3U : 4U);
    const std::string trace(test.trace);
    EXPECT_EQ(Level(trace.substr(trace.find('|') + 1)), test.level);
  }
}

TEST_F(ProcessSourceTest, FailsOnlyWithoutProcOrBootTime) {
  const process_tree::HostTree host;
  const auto failure = [] {
    ProcLib::ResetCaches();
    return FailureOf<ProcessSourceUser, Process>();
  };
  EXPECT_EQ(failure(), "Unable to get Boot Time");
  EXPECT_EQ(Lines("(ProcLib::GetBootTime). (rc=MOND_FAILURE)"), 1U);
  ExpectLevels({{20, "(ProcLib::GetBootTime)"}});
  host.Write("/proc/stat", "cpu 0\n");
  EXPECT_EQ(failure(), "");
  host.Remove("/proc");
  ScriptedNode::Instance().lines.clear();
  EXPECT_EQ(failure(), "Unable to open /proc");
  const std::vector<LoggedLine>& lines = ScriptedNode::Instance().lines;
  ASSERT_GE(lines.size(), 2U);
  EXPECT_NE(lines[0].text.find("(ProcessSourceUser::ProcessSourceUser)"), std::string::npos);
  EXPECT_NE(lines[1].text.find("OS API(opendir). (en=2"), std::string::npos);
  ExpectLevels({{20, "OS API(opendir)"}});
}

TEST_F(ProcessSourceTest, ABlankInTheCommandNameShiftsTheFigures) {
  const process_tree::HostTree host;
  host.AddProcess({.pid = 7, .ppid = 3, .name = "tmux", .commandLine = ""});
  host.Write("/proc/stat", "btime 1000\n");
  host.Write("/proc/7/stat",
             "7 (tmux: server) S 3 7 7 0 -1 4194560 1012 0 14 0 11 22 0 0 20 0 1 0 500 4096 10 1 1 "
             "1 1 1 1 0 0 0 0 0 9 0 17 0\n");
  // The state is read from the name and "server)" is no number.
  EXPECT_TRUE(Read().empty());
  EXPECT_EQ(ProcessSourceUser::Skipped(), 1U);
  host.Write("/proc/7/stat",
             "7 (a 5) S 3 7 7 0 -1 4194560 1012 0 14 0 11 22 0 0 20 0 1 0 500 4096 10 1 1 1 1 1 1 "
             "0 0 0 0 0 9 0 17 0\n");
  EXPECT_TRUE(Read().empty());
  // A name without a blank may hold anything else; the figures of its line stand.
  host.Write("/proc/7/stat",
             "7 (a)S(9) S 3 7 7 0 -1 4194560 1012 0 14 0 11 22 0 0 20 0 1 0 500 4096 10 1 1 1 1 1 "
             "1 0 0 0 0 0 9 0 17 0\n");
  const std::vector<Process> rows = Read();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(ProcessSourceUser::Skipped(), 0U);
  EXPECT_EQ(rows[0].GetPpid(), 3);
  EXPECT_EQ(rows[0].GetSwaps(), 9U);
  EXPECT_STREQ(rows[0].GetName(), "tmux");
}

TEST_F(ProcessSourceTest, FindsStatusKeysAtLineStartsOnly) {
  const process_tree::HostTree host;
  ProcessSourceUser source;
  x_proc record;
  const std::string text = "Name:\tUid:9\nState:\tName: x\nxUid:\t8\t8\t8\nUid:\t1\t2\t3\t4\n" +
                           std::string("Gid:\t5\tx\nUid:\t7\t7\t7\nVmStk:\t 4294967297 kB\n");
  EXPECT_EQ(source.Get_Status_Info(text.c_str(), &record), 0);
  EXPECT_STREQ(record.name.data(), "Uid:9");
  EXPECT_EQ(record.ruid, 1);
  EXPECT_EQ(record.euid, 2);
  EXPECT_EQ(record.suid, 3);
  EXPECT_EQ(record.rgid, 5);
  EXPECT_EQ(record.egid, 0);
  EXPECT_EQ(record.stackKB, 1U);
  EXPECT_EQ(Lines("(strstr). (rc=0, arg1=/proc/PID/status, arg2=VmData:)"), 1U);
  EXPECT_EQ(Lines("(sscanf). (rc=1, arg1=Gid:\t5\tx, arg2=%*s %d %d %d)"), 1U);
  ExpectLevels({{30, "(strstr). (rc=0"}, {30, "(sscanf). (rc=1"}});
  EXPECT_EQ(
      source.Get_Status_Info((std::string("Name:\t") + std::string(300, 'n')).c_str(), &record), 0);
  EXPECT_EQ(std::string(record.name.data()), std::string(255, 'n'));
}

TEST_F(ProcessSourceTest, TakesAKilobyteOfAStatus) {
  const process_tree::HostTree host;
  host.CopyFrom(FixturePath("6.1"));
  const std::string head = "Name:\tx\n";
  const std::string uid = "\nUid:\t8\t8\t8\n";
  for (const std::size_t end : {1024U, 1025U}) {
    host.Write("/proc/1/status", head + std::string(end - head.size() - uid.size() + 1, 'x') + uid);
    EXPECT_EQ(Read().at(0).GetSuid(), end == 1024 ? 8 : 0) << end;
  }
}

TEST_F(ProcessSourceTest, KeepsTheSystemProcessesOfEachKernelApart) {
  SetHostRoot(FixturePath("2.4.21"));
  const auto systemPids = [] {
    std::string pids;
    for (const Process& row : Read()) {
      pids += (row.GetFlags() & kProcessMemMgmt) != 0 ? std::to_string(row.GetPid()) + " " : "";
    }
    return pids;
  };
  for (const auto& [variant, pids] : {std::pair{1, "5 "}, std::pair{2, "5 "}, std::pair{3, ""}}) {
    g_kernelVariant = variant;
    EXPECT_EQ(systemPids(), pids) << variant;
  }
  SetHostRoot(FixturePath("6.1"));
  EXPECT_EQ(systemPids(), "92 ");
}

TEST_F(ProcessSourceTest, CountsOnlyProcesses) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "btime 1000\n");
  host.Write("/proc/99999999999999999999/stat", "1 (x) S\n");
  host.Write("/proc/1x/stat", "1 (x) S\n");
  host.Write("/proc/123456", "a file\n");
  host.Write("/manifest",
             "# comment\n30 10 1 33 S 5 6 7 100 50 httpd /usr/sbin/httpd -k start\n"
             "12 100 10 1000 Z 0 1 95 0 0 sh\n");
  ASSERT_EQ(host.AddProcesses(host.Path("/manifest")), 42);
  const std::vector<Process> rows = Read();
  ASSERT_EQ(rows.size(), 42U);
  EXPECT_EQ(rows[29].GetPid(), 39);
  EXPECT_EQ(rows[29].GetCmdline(), "/usr/sbin/httpd -k start");
  EXPECT_EQ(rows[30].GetState(), kStateZombie);
}

/// The scan of a stat line must be that of the system library with this format.
TEST_F(ProcessSourceTest, ScansAsTheSystemLibraryDoes) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "no boot time\n");
  const ProcessSourceUser source;
  const std::string line =
      "812 (vi) T 640 812 -640 1025 640 0 241 12 305 0 102 31 0 0 9 5 0 0 1240022 3121152 1044 "
      "4294967295 134512640 134893420 3221223760 3221222340 1074623153 0 0 0 1208487679 "
      "3222335104 6 0 17 0\n";
  std::mt19937 random(4711);
  const std::vector<std::string> bits{
      "-", "+", " ",  "\t", "99999999999999999999", "4294967301", "-7",
      ")", "x", "\n", "",   "18446744073709551615"};
  g_msgLogLevel = 0;
  int matched = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text = line;
    for (auto edits = random() % 3; edits > 0; --edits) {
      text.replace(random() % text.size(), random() % 4, bits[random() % bits.size()]);
    }
    char state = 0;
    int ppid = 0, pgrp = 0, session = 0, tty = 0, priority = 0, nice = 0;
    unsigned long flags = 0, minor = 0, major = 0, user = 0, system = 0, start = 0, size = 0,
                  resident = 0, swaps = 0;
    const std::string first = text.substr(0, text.find('\n'));
    const bool match =
        std::sscanf(first.c_str(),
                    "%*d %*s %c %d %d %d %d %*d %lu %lu %*d %lu %*d %lu %lu %*d %*d %d %d %*d "
                    "%*d %lu %lu %lu %*d %*d %*d %*d %*d %*d %*d %*d %*d %*d %*d %lu",
                    &state, &ppid, &pgrp, &session, &tty, &flags, &minor, &major, &user, &system,
                    &priority, &nice, &start, &size, &resident, &swaps) == 16;
    x_proc record;
    ASSERT_EQ(source.Get_Stat_Info(text.c_str(), &record) == 0, match) << text;
    if (!match) {
      continue;
    }
    ++matched;
    const auto low = [](unsigned long value) { return static_cast<std::uint32_t>(value); };
    ASSERT_EQ(record.ppid, ppid) << text;
    ASSERT_EQ(record.pgrp, pgrp) << text;
    ASSERT_EQ(record.session, session) << text;
    ASSERT_EQ(record.tty, tty == 0 ? ~0UL : low(static_cast<unsigned long>(tty))) << text;
    ASSERT_EQ(record.minorFaults, low(minor)) << text;
    ASSERT_EQ(record.majorFaults, low(major)) << text;
    ASSERT_EQ(record.userTime.seconds, static_cast<std::int32_t>(user / 100)) << text;
    ASSERT_EQ(record.systemTime.nanoseconds, static_cast<std::int32_t>(system % 100 * 10000000));
    ASSERT_EQ(low(static_cast<unsigned long>(record.priority - 60)),
              low(static_cast<unsigned long>(priority)));
    ASSERT_EQ(record.nice, nice) << text;
    ASSERT_EQ(record.startTime.seconds, static_cast<std::int32_t>(start / 100)) << text;
    ASSERT_EQ(record.virtualSize, low(size)) << text;
    ASSERT_EQ(record.residentBytes, low(resident * 4096)) << text;
    ASSERT_EQ(record.swaps, low(swaps)) << text;
    ASSERT_EQ(record.state, state == 'T' ? 5U : record.state) << text;
  }
  EXPECT_GT(matched, 1000);
}

TEST_F(ProcessSourceTest, TakesAnyBytes) {
  const std::vector<std::string> texts{std::string(1 << 20, '1'), std::string(1 << 20, ' '),
                                       std::string("\0\xff\n\x80 1", 6), std::string(5000, '\n'),
                                       std::string("Name:\t") + std::string(1 << 20, '\xff')};
  for (const std::string& text : texts) {
    const process_tree::HostTree host;
    host.CopyFrom(FixturePath("6.1"));
    host.Write("/proc/stat", text);
    host.Write("/proc/1/stat", text);
    host.Write("/proc/4021/status", text);
    for (const char* file : {"/proc/92/statm", "/proc/92/cmdline", "/proc/4099/cmdline"}) {
      host.Write(file, text);
    }
    EXPECT_GE(Read().size(), 2U);
  }
  // A full field has no terminator of its own.
  const process_tree::HostTree host;
  host.CopyFrom(FixturePath("6.1"));
  host.Write("/proc/1/cmdline", std::string(60, 'a') + std::string(1, '\0') + std::string(90, 'b'));
  EXPECT_EQ(Read().at(0).GetCmdline(), std::string(60, 'a') + " " + std::string(59, 'b'));
}

}  // namespace
