#include "process/ExpandProcessList.h"

#include <random>

#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

Acct Ended(const char* name, std::int32_t seconds, tagUTIME user) {
  Acct acct;
  acct.uid = 33;
  acct.gid = 34;
  acct.beginTime = 100;
  acct.elapsedTime = {seconds, 250000};
  acct.userTime = user;
  acct.io = 2560;
  acct.rw = 6;
  std::copy_n(name, std::min<std::size_t>(std::strlen(name), 8), acct.comm.begin());
  return acct;
}

TEST(ExpandProcessListTest, AnEndedProcessIsKnownByStartUserAndGroup) {
  struct Case {
    const char* name;  // of the old entry
    std::int32_t user, group, start;
    std::int32_t userMicroseconds;  // of the ended one; the old entry's are 500000
    bool found;
  };
  const Case cases[] = {
      {"long-named-job", 33, 34, 100, 509999, true},
      {"long-named-job", 33, 34, 100, 510000, false},
      {"sh", 33, 34, 100, 510000, true},
      {"<defunct>", 33, 34, 100, 500000, true},
      {"<defunct>", 33, 34, 100, 510000, false},
      {"<defunct>", 33, 34, 101, 500000, false},
      {"long-named-job", 32, 34, 100, 500000, false},
      {"long-named-job", 33, 33, 100, 500000, false},
  };
  const std::vector<Process> snapshot(2);
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.name) + ' ' + std::to_string(&one - cases));
    Process known;
    known.pid = 70;
    known.euid = one.user;
    known.egid = one.group;
    known.startTime = {one.start, 120'000'000};
    known.userTime = {0, 500'000'000};
    known.reads = 4;
    std::copy_n(one.name, std::strlen(one.name), known.x_proc::name.begin());
    known.snapshotTime = 500;
    const std::vector<Process> old{known};
    const std::vector<Acct> ended{Ended("long-named-job", 20, {0, one.userMicroseconds})};
    ProcessList list(snapshot);
    tagUTIME last{99, 0};
    ExpandProcessList(list, old, ended, last);
    ASSERT_EQ(list.rows.size(), 3U);
    const Process& process = *list.rows.back();
    EXPECT_EQ(process.pid, one.found ? 70 : -1);
    EXPECT_STREQ(process.GetName(), one.found ? one.name : "long-nam");
    EXPECT_EQ(process.reads, one.found ? 4U : 0U);
    EXPECT_EQ(process.euid, 33);
    EXPECT_EQ(process.snapshotTime, 0);
    EXPECT_EQ(process.GetUserTime().microseconds, one.userMicroseconds);
    EXPECT_EQ(process.ioKbytes, 3U) << "2.5 is rounded";
    EXPECT_EQ(process.tty, UINT64_MAX) << "accounting gives 0 without a terminal";
    EXPECT_EQ(process.died, 1U);
    EXPECT_EQ(process.endTime, (tagUTIME{120, 250000}));
  }
}

TEST(ExpandProcessListTest, OfManyAlikeTheFirstOneOfTheListIsTaken) {
  constexpr const char* kNames[] = {"a", "b", "<defunct>"};
  std::mt19937 random(7);
  for (int round = 0; round < 500; ++round) {
    std::vector<Process> old(random() % 8);
    for (Process& process : old) {
      process.pid = static_cast<std::int32_t>(&process - old.data());
      process.euid = 33;
      process.egid = 34;
      process.startTime.seconds = 100 + static_cast<std::int32_t>(random() % 2);
      process.userTime.seconds = static_cast<std::int32_t>(random() % 4);
      const std::string name = kNames[random() % 3];
      name.copy(process.x_proc::name.data(), name.size());
    }
    const std::vector<Acct> ended{
        Ended(kNames[random() % 2], 20, {static_cast<std::int32_t>(random() % 4), 0})};
    const auto expected = std::find_if(old.begin(), old.end(), [&](const Process& process) {
      const std::string_view name = process.GetName();
      return process.startTime.seconds == 100 &&
             (process.userTime.seconds == ended[0].userTime.seconds ||
              (name != "<defunct>" && name != ended[0].GetComm()));
    });
    const std::vector<Process> none;
    ProcessList list(none);
    tagUTIME last;
    ExpandProcessList(list, old, ended, last);
    EXPECT_EQ(list.rows.at(0)->pid, expected == old.end() ? -1 : expected->pid);
  }
}

TEST(ExpandProcessListTest, TheWalkEndsAtWhatDidNotEndLater) {
  ScriptedNode::Reset();
  g_msgLogLevel = 30;
  const std::vector<Process> snapshot(1);
  ProcessList list(snapshot);
  tagUTIME last{10, 0};
  const std::vector<Acct> ended{Ended("a", 30, {}), Ended("b", 40, {}), Ended("c", 40, {}),
                                Ended("d", 50, {})};
  ExpandProcessList(list, {}, ended, last);
  ASSERT_EQ(list.rows.size(), 3U);
  EXPECT_STREQ(list.rows[2]->GetName(), "b");
  EXPECT_EQ(last, (tagUTIME{140, 250000}));
  const auto traces = ScriptedNode::Instance().LinesWith("Exp");
  ASSERT_EQ(traces.size(), 2U);
  EXPECT_EQ(traces[0].text,
            "ExpandProcList()::1 processes in current list, 4 items in Acct List, "
            "0items in old List.");
  EXPECT_EQ(traces[1].text,
            "ExpandProc()::Misses(Matches) 2 (0) in old_list 0 (0) from current list.");
}

}  // namespace
