#include "collect/modern/process/TaskSource.h"

#include <sys/mman.h>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "collect/modern/process/KeptParts.h"
#include "collect/modern/process/ProcessCount.h"
#include "collect/modern/process/TaskIterator.h"
#include "support/Descriptor.h"
#include "support/HostProfile.h"
#include "support/ProductOptions.h"
#include "support/TextHash.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/ProcessRows.h"
#include "tests/collect/modern/TaskFile.h"
#include "tests/scripted/Figures.h"
#include "tests/support/WithoutDescriptors.h"

namespace {

constexpr const char* kIterator = "/iterator";

/// A tree whose /proc and whose iterator a test writes; both are read as those of a host.
class TaskSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    g_hostProfile = HostProfile::kModern;
    m_host = std::make_unique<process_tree::HostTree>();
    m_host->Write("/proc/stat", "btime 1700000000\n");
    ::setenv("QMT_TASK_ITERATOR", m_host->Path(kIterator).c_str(), 1);
    TaskIterator::Instance().Reset();
    KeptParts::Instance().Clear();
    Choose("auto", "1000");
  }
  void TearDown() override {
    ::unsetenv("QMT_TASK_ITERATOR");
    Choose("auto", "10");
    KeptParts::Instance().Clear();
    CollectFixture::TearDown();
  }
  static void Choose(const char* source, const char* refresh) {
    ProductOptions::Instance().Set("Host", "Process Source", source);
    ProductOptions::Instance().Set("Host", "Process Refresh", refresh);
  }
  void WriteTasks(const std::vector<TaskFigures>& tasks) const {
    m_host->Write(kIterator, StreamOf(tasks));
  }
  /// A file of another identity, as a helper makes that has loaded again.
  void ReplaceTasks(const std::vector<TaskFigures>& tasks) const {
    m_host->Write("/iterator.new", StreamOf(tasks));
    std::filesystem::rename(m_host->Path("/iterator.new"), m_host->Path(kIterator));
  }
  /// What the iterator lacks of a process, and a name of its stat that tells its source.
  void WriteParts(int pid, const std::string& arguments, int startTicks = 100,
                  const std::string& name = "of-proc", const std::string& ticks = "0 0") const {
    const std::string folder = "/proc/" + std::to_string(pid);
    m_host->Write(folder + "/stat", std::to_string(pid) + " (" + name +
                                        ") S 1 1 1 0 -1 0 0 0 0 0 " + ticks + " 0 0 20 0 1 0 " +
                                        std::to_string(startTicks) + " 0 0\n");
    m_host->Write(folder + "/status", "Name:\tx\nUid:\t7\t7\t7\t7\nGroups:\t" +
                                          std::string(11'000, '7') + "\nVmExe:\t 12 kB\n");
    m_host->Write(folder + "/cmdline", arguments);
  }
  std::vector<Process> Collect(CollectionMask more = 0) {
    EXPECT_EQ(m_collector.collect(COLLECT_PROCESS | more), nullptr);
    return *m_collector.GetProcess();
  }
  /// "NUMBER<NAME>[ARGUMENTS]" of each row.
  std::string Names() {
    std::string text;
    for (const Process& row : Collect()) {
      text += std::to_string(row.pid) + '<' + row.GetName() + ">[" + std::string(row.GetCmdline()) +
              ']';
    }
    return text;
  }
  static std::string Fact(const std::string& name) {
    for (const ::Fact& fact : FigureRegistry::Instance().Facts()) {
      if (fact.name == name) {
        return fact.text;
      }
    }
    return "none";
  }

  std::unique_ptr<process_tree::HostTree> m_host;
  Collector m_collector;
};

/// A program with something in all that a row has of it.
TaskFigures Program(int pid) {
  TaskFigures task = MakeTask(pid, pid);
  task.ppid = 3;
  task.pgrp = 4;
  task.session = 5;
  task.ttyNumber = 34816;
  task.uid = 1;
  task.euid = 2;
  task.suid = 3;
  task.gid = 5;
  task.egid = 6;
  task.sgid = 7;
  task.flags = 4194560;
  task.priority = 15;
  task.nice = -5;
  task.policy = 1;
  task.startTime = 123'459'999'999;
  task.utime = 1'000;
  task.stime = 1'000;
  task.runTime = 5'039'999'999;
  task.minorFaults = 10;
  task.majorFaults = 20;
  task.voluntarySwitches = 4294967300;
  task.otherSwitches = 7;
  task.readChars = 6442450944;
  task.writeChars = 1048576;
  task.readCalls = 4294967301;
  task.writeCalls = 20;
  task.virtualPages = 2097152;
  task.anonymousPages = 1309720;
  task.filePages = 900;
  task.sharedPages = 100;
  task.swapPages = 512;
  task.dataPages = 1572864;
  task.stackPages = 33;
  task.execPages = 616;
  return task;
}

TEST_F(TaskSourceTest, GivesTheRowsOfAWalk) {
  WriteTasks({Program(20), MakeTask(21, 21)});
  WriteParts(20, std::string("worker\0-x\t1\0   \0", 16), 12345, "x", "252 251");
  WriteParts(21, "");
  m_host->Write("/proc/20/limits", "Max open files            65                   75\n");
  m_host->Link("/proc/20/cwd", "/nobody/may/look");
  const std::vector<Process> rows = Collect(COLLECT_PROCESS_FOLDER | COLLECT_PROCESS_LIMITS);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(DumpModern(rows[0]),
            "1132 20 3 4 5 <task> [worker -x 1] S1 flags=1/4194560 policy=1 75 -5 tty=34816 "
            "start=1700000123.450000000/12345 faults=10,20 times=2.520000000,2.510000000 "
            "rss=5242880/1073741824 virtual=8388608/0 total=8390656/0 heap=6291456 data=6291456 "
            "lib=2452 stack=132 code=12 swap=2048 shared=4000 switches=11 "
            "io=5,20,25,6292480,6443499520 0 ids=123567\n");
  EXPECT_EQ(rows[0].cwdInode, TextHash("/nobody/may/look"));
  EXPECT_EQ(rows[1].cwdInode, 0U);
  const std::vector<ProcessLimits>& limits = *m_collector.GetProcessLimits();
  ASSERT_EQ(limits.size(), 2U);
  EXPECT_EQ(limits[0].openFiles.hard, 75);
  EXPECT_EQ(limits[1].openFiles.hard, 0);
  EXPECT_EQ(Fact("process_source"), "iterator");
  EXPECT_EQ(Fact("process_source_reason"), "");
  EXPECT_EQ(Lines("from the kernel's task iterator."), 1U);
  // Neither is read where nobody asks for it any more.
  EXPECT_EQ(Collect().at(0).cwdInode, 0U);
  EXPECT_TRUE(limits.empty());
}

TEST_F(TaskSourceTest, APartIsReadOnceForEachImage) {
  TaskFigures task = MakeTask(20, 20);
  task.virtualPages = 1;
  WriteTasks({task});
  WriteParts(20, "first");
  EXPECT_EQ(Names(), "20<task>[first]");
  WriteParts(20, "title");
  EXPECT_EQ(Names(), "20<task>[first]") << "kept";

  task.selfExecId = 1;
  WriteTasks({task});
  EXPECT_EQ(Names(), "20<task>[title]") << "another program";

  task.startTime = 2'000'000'000;
  WriteTasks({task});
  EXPECT_EQ(Names(), "") << "another process, which has ended by now: /proc has a third one";
  WriteParts(20, "other", 200);
  EXPECT_EQ(Names(), "20<task>[other]");

  m_host->Remove("/proc/20");
  EXPECT_EQ(Names(), "20<task>[other]") << "it was whole when its figures were told";
  task.virtualPages = 0;
  WriteTasks({task});
  EXPECT_EQ(Names(), "20<task>[]") << "a zombie has no arguments";
  WriteTasks({});
  EXPECT_EQ(Names(), "");
  EXPECT_EQ(KeptParts::Instance().Count(), 0U);
}

TEST_F(TaskSourceTest, WhatLackedADescriptorIsReadAtTheNextBatch) {
  WriteTasks({Program(7)});
  WriteParts(7, "a b", 12'345);
  const std::string whole = Names();
  ASSERT_THAT(whole, HasSubstr(">[a b]"));
  for (const char* lacking : {"7/stat", "7/status", "7/cmdline"}) {
    KeptParts::Instance().Clear();
    std::vector<TaskGroup>* const groups = TaskIterator::Instance().Read();
    ASSERT_NE(groups, nullptr);
    {
      const WithoutDescriptors lack(lacking);
      std::vector<Process> rows;
      EXPECT_EQ(TaskSource(*groups, {}).readAll(&m_collector, rows), nullptr);
      EXPECT_EQ(rows.size(), 1U);
      EXPECT_EQ(std::exchange(g_lackOfDescriptors, 0), EMFILE) << lacking;
    }
    EXPECT_EQ(Names(), whole) << lacking;
    EXPECT_EQ(m_collector.GetProcess()->front().codeKB, 12U) << lacking;
  }
}

TEST_F(TaskSourceTest, WhoMayHoldItsReaderIsAskedForItsArgumentsLater) {
  TaskFigures task = MakeTask(20, 20);
  task.virtualPages = 1;
  for (const auto& [state, arguments, shown] :
       {std::tuple{2U, "a", "[]"}, {2U, "b", "[]"}, {1U, "c", "[c]"}, {2U, "d", "[c]"}}) {
    task.state = state;
    WriteTasks({task});
    WriteParts(20, arguments);
    EXPECT_EQ(Names(), std::string("20<task>") + shown) << arguments;
  }
  Choose("auto", "1");
  EXPECT_EQ(Names(), "20<task>[c]");
  task.state = 1;
  WriteTasks({task});
  EXPECT_EQ(Names(), "20<task>[d]");
}

TEST_F(TaskSourceTest, ThePaceReadsPartsAnew) {
  std::vector<TaskFigures> tasks;
  for (int pid = 1; pid <= 20; ++pid) {
    tasks.push_back(MakeTask(pid, pid));
    tasks.back().virtualPages = 1;
    WriteParts(pid, "old");
  }
  WriteTasks(tasks);
  for (const auto& [pace, afterOne] : {std::pair{"1", 20U}, {"4", 5U}, {"1000", 0U}}) {
    for (int pid = 1; pid <= 20; ++pid) {
      WriteParts(pid, "old");
    }
    KeptParts::Instance().Clear();
    Choose("auto", pace);
    Collect();
    for (int pid = 1; pid <= 20; ++pid) {
      WriteParts(pid, "new");
    }
    const auto anew = [&] {
      std::size_t count = 0;
      for (const Process& row : Collect()) {
        count += row.GetCmdline() == "new" ? 1 : 0;
      }
      return count;
    };
    EXPECT_EQ(anew(), afterOne) << pace;
    if (std::string_view(pace) == "4") {
      anew();
      anew();
      EXPECT_EQ(anew(), 20U) << "none is left out for longer than its turn";
    }
  }
}

TEST_F(TaskSourceTest, SurroundingsAreReadAnewOfWhoHasRunOrWasMoved) {
  TaskFigures task = MakeTask(20, 20);
  task.virtualPages = 1;
  WriteParts(20, "x");
  int scores = 100;
  const auto isReadAnew = [&] {
    WriteTasks({task});
    m_host->Write("/proc/20/oom_score", std::to_string(++scores) + "\n");
    EXPECT_EQ(m_collector.collect(CollectionMask{COLLECT_PROCESS_DETAIL}), nullptr);
    const std::vector<ProcessDetail>& rows = m_collector.GetModern()->processes;
    EXPECT_EQ(rows.size(), 1U);
    return !rows.empty() && rows[0].oomScore == scores;
  };
  EXPECT_TRUE(isReadAnew());
  EXPECT_FALSE(isReadAnew()) << "it has not run since";
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"it has run", [&] { ++task.runTime; }},
      {"it has waited", [&] { ++task.voluntarySwitches; }},
      {"it had to give way", [&] { ++task.otherSwitches; }},
      {"it was moved", [&] { ++task.controlGroup; }},
      {"it was stopped", [&] { task.state = 4; }},
      {"it has a thread more", [&] { ++task.threads; }},
      {"it is another program", [&] { ++task.selfExecId; }},
      {"it is another process",
       [&] {
         task.startTime += 1'000'000'000;
         WriteParts(20, "x", static_cast<int>(task.startTime / 10'000'000));
       }},
      {"it is named", [&] { m_collector.NameRows({"20"}); }}};
  for (const auto& [what, change] : changes) {
    change();
    EXPECT_TRUE(isReadAnew()) << what;
    m_collector.NameRows({});
    EXPECT_FALSE(isReadAnew()) << "after that " << what;
  }
  Choose("auto", "1");
  EXPECT_TRUE(isReadAnew()) << "its turn";
}

TEST_F(TaskSourceTest, WhatFewBatchesAskForHasItsTurnsAmongThese) {
  std::vector<TaskFigures> tasks;
  for (int pid = 1; pid <= 20; ++pid) {
    tasks.push_back(MakeTask(pid, pid));
    WriteParts(pid, "x");
  }
  WriteTasks(tasks);
  Choose("auto", "10");
  const auto score = [&](const char* text) {
    for (int pid = 1; pid <= 20; ++pid) {
      m_host->Write("/proc/" + std::to_string(pid) + "/oom_score", text);
    }
  };
  const auto newScores = [&] {
    EXPECT_EQ(m_collector.collect(CollectionMask{COLLECT_PROCESS_DETAIL}), nullptr);
    return std::ranges::count(m_collector.GetModern()->processes, 2, &ProcessDetail::oomScore);
  };
  score("1\n");
  EXPECT_EQ(newScores(), 0);
  score("2\n");
  for (int batch = 1; batch <= 10; ++batch) {
    for (int other = 0; other < 4; ++other) {
      Collect();
    }
    EXPECT_EQ(newScores(), 2 * batch);
  }
}

TEST_F(TaskSourceTest, APartThatIsAskedForByNameIsReadAnew) {
  TaskFigures task = MakeTask(20, 20);
  task.virtualPages = 1;
  WriteTasks({task});
  WriteParts(20, "old");
  EXPECT_EQ(Names(), "20<task>[old]");
  WriteParts(20, "new");
  for (const char* other : {"2", "200", "tas", ""}) {
    m_collector.NameRows({other});
    EXPECT_EQ(Names(), "20<task>[old]") << other;
  }
  m_collector.NameRows({"other", "task"});
  EXPECT_EQ(Names(), "20<task>[new]");
  WriteParts(20, "newer");
  m_collector.NameRows({});
  EXPECT_EQ(Names(), "20<task>[new]");
  m_collector.NameRows({"20"});
  EXPECT_EQ(Names(), "20<task>[newer]");
}

TEST_F(TaskSourceTest, KeptMemoryIsBoundedAndFreed) {
  std::vector<TaskFigures> tasks;
  for (int pid = 1; pid <= 100; ++pid) {
    tasks.push_back(MakeTask(pid, pid));
    tasks.back().virtualPages = 1;
    WriteParts(pid, std::string(100'000, 'x'));
  }
  WriteTasks(tasks);
  EXPECT_EQ(Collect(COLLECT_PROCESS_LIMITS).at(99).GetCmdline(), std::string(120, 'x'));
  const auto figure = [] { return FigureOf("collect_process_kept_bytes"); };
  EXPECT_GT(figure(), 100 * 1023.0);
  EXPECT_LT(figure(), 100 * 6144.0);
  Choose("proc", "10");
  Collect();
  EXPECT_LT(figure(), 100 * sizeof(void*) + 1.0) << "not in use, nothing kept";
}

TEST_F(TaskSourceTest, ThreadsOfTheKernelHaveTheNameOfTheirStat) {
  TaskFigures worker = MakeTask(20, 20);
  worker.isKernel = 1;
  worker.state = 0x402;
  std::strcpy(worker.name, "kworker/0:1");
  TaskFigures renamed = worker;
  renamed.pid = renamed.tgid = 21;
  TaskFigures program = MakeTask(22, 22);
  WriteTasks({worker, renamed, program});
  WriteParts(20, "", 100, "kworker/0:1-events");
  WriteParts(21, "", 100, "kworker/1:1-events");
  WriteParts(22, "", 100, "taskset");
  EXPECT_EQ(Names(), "20<kworker/0:1-events>[]21<kworker/0:1>[]22<task>[]");
  EXPECT_EQ(Collect().at(0).modern.state, 'I');
}

TEST_F(TaskSourceTest, AGroupWithoutLeaderIsToldByItsFirstLiveThread) {
  TaskFigures leader = MakeTask(20, 20);
  leader.state = 32;
  TaskFigures thread = MakeTask(21, 20);
  thread.virtualPages = 100;
  thread.execPages = 10;
  WriteTasks({leader, thread});
  WriteParts(20, "");
  m_host->Write("/proc/20/status", "Name:\tx\n");
  m_host->Write("/proc/20/task/21/status", "VmExe:\t 8 kB\n");
  m_host->Write("/proc/20/task/21/cmdline", "of thread");
  EXPECT_EQ(Names(), "20<task>[of thread]");
  EXPECT_EQ(Collect().at(0).codeKB, 8U);
  EXPECT_EQ(Collect().at(0).modern.sharedLibKB, 32U);
}

TEST_F(TaskSourceTest, SumsDoNotFallWhenAThreadIsMissed) {
  TaskFigures leader = Program(20);
  WriteParts(20, "x", 12345, "x", "302 301");
  TaskFigures thread = MakeTask(21, 20);
  thread.minorFaults = thread.writeCalls = thread.readChars = 5;
  thread.runTime = 1'000'000'000;
  WriteTasks({leader, thread});
  for (const bool isMissed : {false, true}) {
    const Process row = Collect().at(0);
    EXPECT_EQ(row.minorFaults, 15U) << isMissed;
    EXPECT_EQ(row.writes, 25U) << isMissed;
    EXPECT_EQ(row.modern.ioBytes, 6443499525U) << isMissed;
    EXPECT_EQ(row.GetUserTime(), (tagUTIME{3, 20000})) << isMissed;
    WriteTasks({leader});
  }
  leader.startTime += 1'000'000'000;  // a process of the same number
  WriteParts(20, "x", 12445);
  WriteTasks({leader});
  EXPECT_EQ(Collect().at(0).minorFaults, 10U);
}

TEST_F(TaskSourceTest, TimesGoOnFromThoseThatTheKernelHasTold) {
  TaskFigures task = MakeTask(20, 20);
  WriteParts(20, "", 100, "x", "150 50");
  // All was counted as the system's since the kernel told a part of it as the user's.
  task.stime = 1'000;
  for (const auto& [runTime, system] : {std::pair{2'000, 500'000}, {3'000, 1'500'000}}) {
    task.runTime = std::uint64_t{1'000'000} * static_cast<std::uint64_t>(runTime);
    WriteTasks({task});
    const Process row = Collect().at(0);
    EXPECT_EQ(row.GetUserTime(), (tagUTIME{1, 500000})) << runTime;
    EXPECT_EQ(row.GetSystemTime(), (tagUTIME{system / 1'000'000, system % 1'000'000})) << runTime;
    WriteParts(20, "", 100, "x", "900 900");  // read but once
    task.selfExecId = 1;
  }
}

TEST_F(TaskSourceTest, AProcessThatTheIteratorLacksIsReadFromProc) {
  for (const int pid : {1, 20, 21, 30}) {
    WriteParts(pid, std::to_string(pid));
    m_host->Write("/proc/" + std::to_string(pid) + "/limits",
                  "Max open files  " + std::to_string(pid) + "  75\n");
  }
  m_host->Remove("/proc/21");  // it comes later
  const std::vector<TaskFigures> tasks{MakeTask(20, 20), MakeTask(25, 25)};
  WriteTasks(tasks);
  EXPECT_EQ(CountPresent().processes, 4U) << "25 has ended since";
  EXPECT_EQ(CountPresent().users, 2U);
  const std::string both = "1<of-proc>[1]20<task>[]30<of-proc>[30]";
  EXPECT_EQ(Names(), both);
  Collect(COLLECT_PROCESS_LIMITS);
  const std::vector<ProcessLimits>& limits = *m_collector.GetProcessLimits();
  ASSERT_EQ(limits.size(), 3U);
  EXPECT_EQ(
      limits[0].openFiles.soft + 100 * limits[1].openFiles.soft + 10'000 * limits[2].openFiles.soft,
      302001);
  m_host->Remove("/proc/30");
  WriteParts(21, "21");
  EXPECT_EQ(Names(), "1<of-proc>[1]20<task>[]") << "/proc is not listed each time";
  for (int read = 5; read < 10; ++read) {
    Collect();
  }
  EXPECT_EQ(Names(), "1<of-proc>[1]20<task>[]21<of-proc>[21]");
  WriteTasks({MakeTask(1, 1), MakeTask(20, 20), MakeTask(21, 21)});
  EXPECT_EQ(Names(), "1<task>[]20<task>[]21<task>[]");
}

TEST_F(TaskSourceTest, DetailsTakeTheIteratorsFigures) {
  TaskFigures program = Program(20);
  program.threads = 4;
  program.lastCpu = 3;
  program.peakPages = 10;  // the kernel notes the most when it falls
  program.readBytes = 4096;
  program.writeBytes = 8192;
  program.runDelay = 2'500'000'000;
  TaskFigures zombie = MakeTask(21, 21);
  zombie.state = 32;
  zombie.present = 0;
  WriteTasks({program, zombie});
  WriteParts(20, std::string(2000, 'y'), 12345, "x", "252 251");
  WriteParts(21, "");
  WriteParts(30, "thirty");
  m_host->Write("/proc/20/oom_score", "77\n");
  m_host->Link("/proc/20/exe", "/usr/bin/tool");
  for (const CollectionMask walked : {CollectionMask{COLLECT_PROCESS}, CollectionMask{0}}) {
    ASSERT_EQ(m_collector.collect(walked | COLLECT_PROCESS_DETAIL), nullptr);
    const std::vector<ProcessDetail>& rows = m_collector.GetModern()->processes;
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(DumpDetail(rows[0]),
              "20 <task> S 12345 1700000123.45 4 2.52 2.51 3 1 4294967300 7 5364613120 3686400 "
              "409600 2097152 5368709120 4096 8192 6442450944 1048576 4294967301 20 2.5 - 77 - "
              "[] [] [/usr/bin/tool] [" +
                  std::string(1023, 'y') + "]\n");
    EXPECT_EQ(DumpDetail(rows[1]),
              "21 <task> Z 100 1700000001 0 0 0 0 0 0 0 - - - - - - - - - - - - - - - "
              "[] [] [] []\n");
    EXPECT_EQ(rows[2].name, "of-proc") << "the iterator lacks it";
    KeptParts::Instance().Clear();
    TaskIterator::Instance().Reset();
  }
  Choose("proc", "10");
  ASSERT_EQ(m_collector.collect(CollectionMask{COLLECT_PROCESS_DETAIL}), nullptr);
  EXPECT_EQ(std::ranges::count(m_collector.GetModern()->processes, std::string("task"),
                               &ProcessDetail::name),
            0);
}

TEST_F(TaskSourceTest, AFaultyStreamFallsBackUntilItsFileIsAnother) {
  WriteParts(20, "arguments");
  const std::vector<TaskFigures> good{MakeTask(20, 20)};
  std::string cut = StreamOf(good);
  cut.pop_back();
  m_host->Write(kIterator, cut);
  for (int batch = 0; batch < 5; ++batch) {
    EXPECT_EQ(Names(), "20<of-proc>[arguments]");
  }
  const char* const told = "from /proc and not from the kernel's task iterator.";
  EXPECT_EQ(Lines(told), 1U);
  EXPECT_EQ(Level(told), 10);
  EXPECT_EQ(TaskIterator::Instance().Faults(), 3U) << "it stays faulty, so it is not asked for";
  EXPECT_EQ(Lines("/iterator: it ends within a structure)"), 1U);
  EXPECT_EQ(Fact("process_source"), "proc");
  EXPECT_EQ(Fact("process_source_reason"),
            m_host->Path(kIterator).string() + ": it ends within a structure");
  ReplaceTasks(good);
  EXPECT_EQ(Names(), "20<task>[]");
  EXPECT_EQ(Fact("process_source"), "iterator");
  std::vector<TaskFigures> other = good;
  other[0].size = 12;
  ReplaceTasks(other);
  EXPECT_EQ(Names(), "20<of-proc>[arguments]");
  EXPECT_EQ(Names(), "20<of-proc>[arguments]");
  EXPECT_EQ(Lines(told), 2U);
  EXPECT_EQ(Lines("its structures have 12 bytes"), 1U);
  EXPECT_EQ(TaskIterator::Instance().Faults(), 4U) << "another version is no fault that passes";
}

TEST_F(TaskSourceTest, AFaultThatPassesCostsItsBatchAlone) {
  WriteParts(20, "");
  WriteParts(21, "");
  const Descriptor file(::memfd_create("tasks", MFD_CLOEXEC));
  constexpr std::size_t kBytes = 2 * sizeof(TaskFigures);
  ASSERT_EQ(::ftruncate(file.Get(), kBytes), 0);
  // What is written into its memory leaves it the same file.
  void* const memory = ::mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const tasks = static_cast<TaskFigures*>(memory);
  tasks[0] = MakeTask(20, 20);
  ::setenv("QMT_TASK_ITERATOR", ("/proc/self/fd/" + std::to_string(file.Get())).c_str(), 1);
  // Of each batch whether a task is there twice, and where its rows are from.
  const std::pair<bool, const char*> batches[] = {
      {false, "task"},   {true, "of-proc"}, {true, "of-proc"}, {false, "task"},
      {true, "of-proc"}, {true, "of-proc"}, {false, "task"},   {true, "of-proc"},
      {true, "of-proc"}, {true, "of-proc"}, {false, "of-proc"}};
  for (const auto& [isTwice, from] : batches) {
    tasks[1] = isTwice ? MakeTask(20, 20) : MakeTask(21, 21);
    const std::string name = '<' + std::string(from) + ">[]";
    // A folder tells its entries in any order.
    EXPECT_THAT(Names(), testing::AnyOf("20" + name + "21" + name, "21" + name + "20" + name));
    EXPECT_EQ(Fact("process_source"), std::string_view(from) == "task" ? "iterator" : "proc");
  }
  ::munmap(memory, kBytes);
  EXPECT_EQ(TaskIterator::Instance().Faults(), 7U);
  EXPECT_EQ(Lines("it has a task twice"), 2U) << "the first one, and the last one for good";
  EXPECT_EQ(Lines("Processes are read from the kernel's task iterator."), 2U);
}

TEST_F(TaskSourceTest, TheReasonForProcIsToldOnce) {
  WriteParts(20, "x");
  const std::string file = m_host->Path(kIterator).string();
  struct Case {
    const char* source;
    std::function<void()> prepare;
    std::string reason;
    int level;
  };
  const Case cases[] = {
      {"auto", [&] { m_host->Write("/proc/self/uid_map", "0 1000 1\n"); },
       "the agent has a user name space of its own", 20},
      {"auto",
       [&] {
         m_host->Remove("/proc/self/uid_map");
         m_host->Write("/proc/self/timens_offsets", "monotonic 0 0\nboottime 5 0\n");
       },
       "the agent has a time name space of its own", 20},
      {"auto", [&] { m_host->Remove("/proc/self"); }, file + ": No such file or directory", 20},
      {"iterator", [] {}, file + ": No such file or directory", 10},
      {"iterator", [&] { std::filesystem::create_directory(file); }, file + ": is no regular file",
       10},
      {"iterator",
       [&] {
         std::filesystem::remove(file);
         ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
       },
       file + ": is no regular file", 10},
      {"auto", [] { ::unsetenv("QMT_TASK_ITERATOR"); }, "the host is a tree of files", 20},
      {"iterator", [] {}, "the host is a tree of files", 10},
      {"proc", [] {}, "the setting Process Source is proc", 20},
  };
  for (const Case& test : cases) {
    ScriptedNode::Reset();
    g_msgLogLevel = 40;
    TaskIterator::Instance().Reset();
    Choose(test.source, "10");
    test.prepare();
    EXPECT_EQ(Collect().size(), 1U);
    EXPECT_EQ(Collect().size(), 1U);
    EXPECT_EQ(Lines("(" + test.reason + ")"), 1U) << test.reason;
    EXPECT_EQ(Level("(" + test.reason + ")"), test.level) << test.source << ' ' << test.reason;
    EXPECT_EQ(Fact("process_source_reason"), test.reason);
  }
}

TEST_F(TaskSourceTest, AnEndlessFileEnds) {
  std::filesystem::create_symlink("/dev/zero", m_host->Path(kIterator));
  EXPECT_EQ(TaskIterator::Instance().Read(), nullptr);
  EXPECT_EQ(Lines("is no regular file"), 1U);
}

TEST_F(TaskSourceTest, ProcessesAndUsersAreCountedByTheStream) {
  std::vector<TaskFigures> tasks{MakeTask(20, 20), MakeTask(21, 20), MakeTask(22, 22),
                                 MakeTask(23, 23)};
  tasks[0].uid = tasks[3].uid = 5;
  tasks[1].uid = 99;  // a thread is no process
  WriteTasks(tasks);
  WriteParts(20, "x");
  ProcessCount count = CountPresent();
  EXPECT_EQ(count.processes, 3U);
  EXPECT_EQ(count.users, 2U);
  Choose("proc", "10");
  count = CountPresent();
  EXPECT_EQ(count.processes, 1U);
  EXPECT_EQ(count.users, 1U);
}

}  // namespace
