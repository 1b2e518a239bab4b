#include "collect/modern/process/ProcessDetail.h"

#include "collect/modern/process/ProcessDetailText.h"
#include "collect/modern/process/ProcessSource.h"
#include "support/Descriptor.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/ProcessRows.h"

namespace {

class ProcessDetailTest : public CollectFixture {
 protected:
  static std::string Dump() {
    std::vector<ProcessDetail> rows(1);
    ReadProcessDetails(rows);
    return DumpRows(rows);
  }
  static std::string DumpRows(std::vector<ProcessDetail>& rows) {
    std::ranges::sort(rows, {}, &ProcessDetail::pid);
    std::string text;
    for (const ProcessDetail& row : rows) {
      text += DumpDetail(row);
    }
    return text;
  }
  static std::string StatOf(int pid, const std::string& name, char state, int startTicks) {
    return std::to_string(pid) + " (" + name + ") " + state +
           " 1 7 9 0 -1 4194560 10 0 20 0 150 250 0 0 20 -5 4 0 " + std::to_string(startTicks) +
           " 8589934592 1310700 18446744073709551615 1 1 1 1 1 0 0 4096 1260 1 0 0 17 63 50 1 0\n";
  }
  void WriteStat(int pid, const std::string& name, char state, int startTicks) const {
    Write(pid, "stat", StatOf(pid, name, state, startTicks));
  }
  void Write(int pid, const std::string& file, std::string_view text) const {
    m_host.Write("/proc/" + std::to_string(pid) + "/" + file, text);
  }
  void WriteWhole(int pid) const {
    WriteStat(pid, "a) b (c", 'S', 12345);
    Write(pid, "status",
          "Name:\tVmHWM:\nUid:\t33\t0\t0\t0\nGroups:\t" + std::string(11'000, '7') +
              "\nVmHWM:\t  9000 kB\nRssAnon:\t 4 kB\nRssFile:\t 8 kB\n"
              "RssShmem:\t 0 kB\nVmSwap:\t 16 kB\nvoluntary_ctxt_switches:\t4294967300\n"
              "nonvoluntary_ctxt_switches:\t7\n");
    Write(pid, "io",
          "rchar: 6442450944\nwchar: 10\nsyscr: 5\nsyscw: 20\nread_bytes: 4096\n"
          "write_bytes: 8192\ncancelled_write_bytes: 9\n");
    Write(pid, "schedstat", "1500000000 250000000 77\n");
    Write(pid, "oom_score", "667\n");
    Write(pid, "oom_score_adj", "-1000\n");
    Write(pid, "wchan", "ep_poll");
    Write(pid, "cgroup", "0::/system.slice/x.service\n");
    Write(pid, "cmdline", std::string_view("worker\0-x\t1\0   \0", 16));
    Write(pid, "fd/0", "");
    Write(pid, "fd/1", "");
    Write(pid, "fd/255", "");
    m_host.Link("/proc/" + std::to_string(pid) + "/exe", "/usr/bin/work er (deleted)");
  }

  process_tree::HostTree m_host;
};

constexpr char kWhole[] =
    "20 <a) b (c> S 12345 1700000123.45 4 1.5 2.5 63 33 4294967300 7 4096 8192 0 16384 9216000 "
    "4096 8192 6442450944 10 5 20 0.25 3 667 -1000 [ep_poll] "
    "[/system.slice/x.service] [/usr/bin/work er (deleted)] [worker -x 1]\n";

TEST_F(ProcessDetailTest, ReadsWhatEachProcessTells) {
  m_host.Write("/proc/stat", "btime 1700000000\n");
  WriteWhole(20);
  WriteStat(30, "zom\nbie", 'Z', 50);
  Write(30, "status", "Name:\tzombie\nUid:\t5\t5\t5\t5\n");
  Write(30, "schedstat", "0 0 0\n");
  Write(30, "cgroup", "0::/\n");
  WriteStat(40, "runs", 'R', 50);
  Write(40, "wchan", "ep_poll");
  Write(40, "io", "");
  Write(40, "oom_score", "12x\n");
  Write(40, "cmdline", std::string(5000, 'x'));
  ASSERT_EQ(::mkfifo(m_host.Path("/proc/40/status").c_str(), 0600), 0);
  m_host.Link("/proc/40/cgroup", "/dev/zero");
  Write(50, "stat", "50 (cut) S 1");
  Write(60, "status", "Name:\tended\n");
  m_host.Write("/proc/70", "no folder");
  m_host.Write("/proc/99999999999/stat", StatOf(1, "x", 'S', 1));
  EXPECT_EQ(Dump(),
            kWhole + std::string("30 <zom bie> Z 50 1700000000.5 4 1.5 2.5 63 5 - - - - - - - - "
                                 "- - - - - - - - - [] [/] [] []\n"
                                 "40 <runs> R 50 1700000000.5 4 1.5 2.5 63 - - - - - - - - - - "
                                 "- - - - - - - - [] [] [] [" +
                                 std::string(1023, 'x') + "]\n"));
  m_host.Remove("/proc");
  EXPECT_EQ(Dump(), "");
}

TEST_F(ProcessDetailTest, GoesByTheRowsOfAWalkAndDropsANumberUsedAgain) {
  m_host.Write("/proc/stat", "btime 1700000000\n");
  WriteWhole(20);
  for (const int pid : {30, 40}) {
    WriteStat(pid, "other", 'S', 500);
    Write(pid, "status", "Uid:\t1\t1\t1\t1\n");
  }
  const std::vector<Process> walked = ReadProcesses<ModernProcessSource>();
  ASSERT_EQ(walked.size(), 3U);
  WriteStat(30, "again", 'S', 501);
  m_host.Remove("/proc/40");
  WriteStat(50, "new", 'S', 502);
  // The clock has been set: the times of both lists still agree.
  m_host.Write("/proc/stat", "btime 1800000000\n");
  std::vector<ProcessDetail> rows(1);
  ReadProcessDetails(walked, rows);
  EXPECT_EQ(DumpRows(rows), kWhole);
  ReadProcessDetails(std::span<const Process>(), rows);
  EXPECT_TRUE(rows.empty());
}

TEST_F(ProcessDetailTest, WhoMayHoldItsReaderHasTheArgumentsOfTheLookBefore) {
  for (const auto& [state, arguments, shown] :
       {std::tuple{'D', "a", "[]"}, {'S', "b", "[b]"}, {'D', "c", "[b]"}, {'R', "d", "[d]"}}) {
    WriteStat(20, "x", state, 77);
    Write(20, "status", "Uid:\t1\t1\t1\t1\n");
    Write(20, "cmdline", arguments);
    EXPECT_TRUE(Dump().ends_with(std::string(" ") + shown + '\n')) << arguments;
  }
  WriteStat(20, "x", 'D', 78);
  Write(20, "wchan", "kernel_clone");
  EXPECT_TRUE(Dump().ends_with(" [d]\n")) << "it waits for its child";
}

TEST_F(ProcessDetailTest, ChoosesTheControlGroupThatTellsMost) {
  const std::pair<const char*, const char*> cases[] = {
      {"0::/a:b/c.scope\n", "/a:b/c.scope"},
      {"0::/\n", "/"},
      {"9:name=systemd:/s\n4:cpuacct,cpu:/c\n3:memory:/m\n0::/\n", "/m"},
      {"4:cpuacct,cpu:/c\n9:name=systemd:/s\n", "/c"},
      {"3:memory:/\n9:name=systemd:/s.service\n0::/\n", "/s.service"},
      {"3:memory:/m\n0::/u\n", "/u"},
      {"3:memory:/\n", "/"},
      {"8:pids:/p\n5:cpuset:/p\n", ""},
      {"0::/whole\n3:memory:/cut", "/whole"},
      {"0:/x\n::\n:\n0::relative\n\n", ""},
      {"", ""},
  };
  for (const auto& [text, group] : cases) {
    EXPECT_EQ(ControlGroupOf(text), group) << text;
  }
}

TEST_F(ProcessDetailTest, KnowsThreadsOfTheKernel) {
  ProcessDetail detail;
  EXPECT_TRUE(TakeStatDetail(StatOf(2, "kthreadd", 'S', 1), 0, detail));
  EXPECT_FALSE(detail.isOfKernel);
  std::string kernel = StatOf(2, "kthreadd", 'S', 1);
  kernel.replace(kernel.find("4194560"), 7, "2129984");
  EXPECT_TRUE(TakeStatDetail(kernel, 0, detail));
  EXPECT_TRUE(detail.isOfKernel);
}

TEST_F(ProcessDetailTest, WaitChannelsAreNames) {
  EXPECT_EQ(WaitChannelOf("do_wait\n"), "do_wait");
  for (const std::string& text : {std::string("0"), std::string(), std::string("a b"),
                                  std::string("\xff"), std::string(500, 'w')}) {
    EXPECT_EQ(WaitChannelOf(text), "") << text;
  }
}

TEST(ProcessDetailLiveTest, TellsOfItsOwnProcess) {
  const auto own = [] {
    std::vector<ProcessDetail> rows;
    ReadProcessDetails(rows);
    const auto row = std::ranges::find(rows, ::getpid(), &ProcessDetail::pid);
    return row == rows.end() ? ProcessDetail{} : *row;
  };
  const ProcessDetail before = own();
  const Descriptor files[] = {Descriptor(::open("/dev/null", O_RDONLY)),
                              Descriptor(::open("/dev/null", O_RDONLY)),
                              Descriptor(::open("/dev/null", O_RDONLY))};
  const ProcessDetail after = own();
  EXPECT_EQ(after.openFiles, before.openFiles + std::size(files));
  EXPECT_EQ(after.threads, 1);
  EXPECT_EQ(after.state, 'R');
  EXPECT_EQ(after.uid, ::getuid());
  EXPECT_GT(after.anonBytes, 0);
  EXPECT_GE(after.peakBytes, after.anonBytes);
  EXPECT_GE(after.callReadBytes, before.callReadBytes);
  EXPECT_EQ(after.startTicks, before.startTicks);
  EXPECT_TRUE(after.executable.ends_with("collect_test")) << after.executable;
  EXPECT_NE(after.commandLine.find("collect_test"), std::string::npos) << after.commandLine;
  EXPECT_EQ(after.controlGroup.substr(0, 1), "/");
}

}  // namespace
