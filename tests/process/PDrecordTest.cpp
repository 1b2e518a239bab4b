#include <new>

#include "collect/accounting/AcctRecord.h"
#include "collect/device/DeviceMap.h"
#include "process/ProcessRow.h"
#include "support/ProductOptions.h"
#include "tests/process/ProcessRecordFixture.h"

namespace {

class PDrecordTest : public ProcessRecordFixture {
 protected:
  void Build(Asker& asker) { EXPECT_EQ(m_builder.BuildPD(&asker.event, &asker.request), nullptr); }
};

TEST_F(PDrecordTest, TwoLooksByteForByte) {
  AddProcess(Server(1, 0, 0, 0));
  AddProcess(Server(50, 1, 1000, 500));
  AddProcess(Server(100, 50, 0, 0));
  AddProcess(Server(101, 50, 0, 0));
  Collect();
  Asker look("PD", '3', {.realtime = 1, .calcRates = 0});
  Build(look);
  ASSERT_EQ(look.event.m_records.size(), 4U);
  EXPECT_EQ(Lines("Created 4 PD record(s)."), 1U);

  ExpectTable(RowOf<recordPD>(look, 50), "PD/first.tsv");

  // Ten seconds on it has used 3 more; process 101 gave way to another one of its number.
  look.NextAnswer();
  s_now += 10;
  AddProcess(Server(50, 1, 1200, 600));
  process_tree::ProcessFigures reused = Server(101, 50, 400, 100);
  reused.startTicks = 1'000'500;
  AddProcess(reused);
  Collect();
  Build(look);
  ExpectTable(RowOf<recordPD>(look, 50), "PD/second.tsv");
  EXPECT_FLOAT_EQ(RowOf<recordPD>(look, 101).cpuPercentEach, 100.0F) << "5 seconds since its start";

  Asker schedule("PD", '3', {.realtime = 0, .calcRates = 1});
  Build(schedule);
  EXPECT_FLOAT_EQ(RowOf<recordPD>(schedule, 50).cpuPercentEach, 100.0F * 18 / 1010);
}

TEST_F(PDrecordTest, EachFigureHasItsOwnFieldAndNamesAreAskedForInEachBatch) {
  static const char* s_name;
  Os().getgrgid = [](gid_t gid) {
    static std::string name;
    static ::group entry{};
    name = s_name + std::to_string(gid);
    entry.gr_name = name.data();
    return &entry;
  };
  Os().getpwuid = [](uid_t uid) {
    static std::string name;
    static ::passwd entry{};
    name = s_name + std::to_string(uid);
    entry.pw_name = name.data();
    return &entry;
  };
  struct ::stat terminal {};
  ASSERT_EQ(::stat("/dev/null", &terminal), 0);
  DeviceMap::Instance().clear();
  for (const std::string name : {"old", "new"}) {
    s_name = name.c_str();
    ClearGroupNames();
    ClearUserNames();
    if (name == "new") {
      m_host.Link("/dev/pts/new", "/dev/null");
    }
    Asker look("PD", '3', {.realtime = 1, .calcRates = 0});
    NewBatch();
    m_collector.GetProcess()->clear();
    Process& process = AddToList(5, 1'699'999'000);
    process.tty = terminal.st_rdev;
    process.euid = 1;
    process.ruid = 2;
    process.suid = 3;
    process.egid = 4;
    process.rgid = 5;
    process.sgid = 6;
    process.pgrp = 7;
    process.nice = -8;
    process.priority = 9;
    process.swaps = 10;
    Build(look);
    const auto row = RowOf<recordPD>(look, 5);
    EXPECT_EQ(row.terminal.view(), name == "new" ? "pts/new" : "??");
    EXPECT_EQ(row.userId, 1);
    EXPECT_EQ(row.user.view(), name + "1");
    EXPECT_EQ(row.realUserId, 2);
    EXPECT_EQ(row.realUser.view(), name + "2");
    EXPECT_EQ(row.groupId, 4);
    EXPECT_EQ(row.group.view(), name + "4");
    EXPECT_EQ(row.realGroupId, 5);
    EXPECT_EQ(row.realGroup.view(), name + "5");
    EXPECT_EQ(row.processGroupId, 7);
    EXPECT_EQ(row.niceness, -8);
    EXPECT_EQ(row.priority, 9);
    EXPECT_EQ(row.swaps, 10U);
  }
  ClearGroupNames();
  DeviceMap::Instance().clear();
}

TEST_F(PDrecordTest, AnEndedProcessHasItsEndAndItsRates) {
  Process& process = AddToList(70, 1'699'999'900);
  process.died = 1;
  process.endTime = {1'699'999'920, 500000};
  process.exitStatus = 9;
  process.memCharge = 77;
  process.accountingFlags = 3;
  process.reads = 40;
  process.writes = 20;
  process.blockOps = 4;
  process.ioKbytes = 10;
  process.userTime = {5, 0};
  for (const bool withRates : {true, false}) {
    Asker schedule("PD", '3', {.realtime = 0, .calcRates = withRates ? 1 : 0});
    Build(schedule);
    const recordPD row = RowOf<recordPD>(schedule, 70);
    EXPECT_EQ(static_cast<tagUTIME>(row.elapsedTime), (tagUTIME{20, 500000}));
    EXPECT_EQ(row.endTime, 1'699'999'920);
    EXPECT_EQ(row.snapshotTime, 1'699'999'920);
    EXPECT_STREQ(row.exitStatus.c_str(), "9");
    EXPECT_STREQ(row.accountingFlags.c_str(), "Forked,SU_used");
    EXPECT_EQ(row.memCharge, 77U);
    EXPECT_FLOAT_EQ(row.avgIoKbytes, 2.5F);
    EXPECT_FLOAT_EQ(row.readsPerSec, withRates ? 2.0F : 40.0F);
    EXPECT_FLOAT_EQ(row.writesPerSec, withRates ? 1.0F : 20.0F);
    EXPECT_FLOAT_EQ(row.totalIoOpsPerSec, withRates ? 0.2F : 4.0F);
    EXPECT_FLOAT_EQ(row.throughputPerSec, withRates ? 0.5F : 10.0F);
    EXPECT_FLOAT_EQ(row.cpuPercentEach, 25.0F);
  }
}

/// Of PD and PDI, which have a row a process.
template <class Row>
class RowOfAnEndedProcess : public ProcessRecordFixture {};
using RowsOfProcesses = ::testing::Types<recordPD, recordPD_PDI>;
TYPED_TEST_SUITE(RowOfAnEndedProcess, RowsOfProcesses);

TYPED_TEST(RowOfAnEndedProcess, ComesOnceWithAllThatWasKnownWhereItIsWanted) {
  const auto build =
      std::is_same_v<TypeParam, recordPD> ? &RecordBuilder::BuildPD : &RecordBuilder::BuildPD_PDI;
  const auto& rowOf = TestFixture::template RowOf<TypeParam>;
  Acct acct;
  acct.uid = acct.gid = 33;
  acct.beginTime = 1'699'999'000;
  acct.elapsedTime = {1005, 0};
  acct.userTime = {12, 0};
  acct.comm = {'h', 't', 't', 'p', 'd'};
  for (const bool wanted : {false, true}) {
    SCOPED_TRACE(wanted);
    ProductOptions::Instance().Set("Acct", "GetDiedProcess", wanted ? "y" : "n");
    ASSERT_EQ(this->m_builder.Init(), nullptr);
    TestFixture::s_now = 1'700'000'000;
    Asker schedule("", '3', {.realtime = 0, .calcRates = 1});
    Asker look("", '3', {.realtime = 1, .calcRates = 1});
    const auto rowsOf = [&](Asker& asker) {
      asker.NextAnswer();
      EXPECT_EQ((this->m_builder.*build)(&asker.event, &asker.request), nullptr);
      return asker.event.m_records.size();
    };
    this->AddProcess(this->Server(80, 1, 0, 0));
    this->AddProcess(this->Server(70, 80, 1200, 0));
    this->Collect();
    this->m_collector.GetAcct()->clear();
    EXPECT_EQ(rowsOf(schedule), 2U);

    TestFixture::s_now += 10;
    this->m_host.Remove("/proc/70");
    this->Collect();
    this->m_collector.GetAcct()->assign(1, acct);
    EXPECT_EQ(rowsOf(look), 1U);
    ASSERT_EQ(rowsOf(schedule), wanted ? 2U : 1U);
    if (wanted) {
      const TypeParam row = rowOf(schedule, 70);
      EXPECT_EQ(row.parentPid, 80);
      EXPECT_STREQ(row.realUser.c_str(), "www");
      EXPECT_STREQ(row.argumentList.c_str(), "/usr/sbin/httpd -k start");
      EXPECT_EQ(row.priority, 80);
      EXPECT_EQ(row.endTime, 1'700'000'005);
    }
    this->Collect();
    EXPECT_EQ(rowsOf(schedule), 1U) << "it has been reported";
  }
}

TEST_F(PDrecordTest, HostileFigures) {
  Process& odd = AddToList(2147483647, 1'700'000'001);
  odd.x_proc::name.fill('x');
  odd.x_proc::name.back() = '\0';
  odd.cmdline.fill('y');
  odd.userTime = {-5, 0};
  odd.sharedKB = 1e300;
  odd.state = 4294967295U;
  odd.ppid = 2147483647;
  AddToList(80, 0).ppid = 4000;
  AddToList(81, 0).ppid = 82;
  AddToList(82, 0).ppid = 81;
  Asker look("PD", '3', {.realtime = 1, .calcRates = 1});
  Build(look);
  const recordPD row = RowOf<recordPD>(look, 2147483647);
  EXPECT_EQ(row.program.view(), std::string(255, 'x'));
  EXPECT_EQ(row.programPid.view(), std::string(255, 'x') + "(2147483647)");
  EXPECT_EQ(row.argumentList.view(), std::string(119, 'y'));
  EXPECT_EQ(row.cpuPercent, 0.0F) << "it starts in the future";
  EXPECT_EQ(row.sharedMemKbytes, 4294967295U);
  EXPECT_STREQ(row.state.c_str(), "UNKNOWN");
  EXPECT_STREQ(row.parentProcessList.c_str(), "<2147483647") << "its own parent";
  EXPECT_STREQ(RowOf<recordPD>(look, 80).parentProcessList.c_str(), "<4000");
  EXPECT_TRUE(RowOf<recordPD>(look, 81).parentProcessList.view().starts_with("<82<81<82<"));
  EXPECT_STREQ(StateText(0), "NONE");
  EXPECT_STREQ(StateText(9), "OTHER");
}

TEST_F(PDrecordTest, AListOfChildrenIsCutWhereTheFieldEnds) {
  std::string expected;
  for (std::int32_t pid = 200; pid > 100; --pid) {
    AddToList(pid, 0).ppid = 9;
  }
  for (int pid = 101; pid < 132; ++pid) {
    expected += std::to_string(pid) + ' ';
  }
  AddToList(9, 0);
  Asker look("PD", '3', {.realtime = 1, .calcRates = 1});
  Build(look);
  EXPECT_EQ(RowOf<recordPD>(look, 9).childProcessList.view(), expected + '>');
}

TEST_F(PDrecordTest, NamesThatCannotBeTold) {
  for (const std::int32_t pid : {1, 2, 3}) {
    Process& process = AddToList(pid, 0);
    process.ruid = process.euid = 4711;
  }
  Asker look("PD", '3', {.realtime = 1, .calcRates = 1});
  Build(look);
  Asker users("USER", '3', {.realtime = 1, .calcRates = 1});
  EXPECT_EQ(m_builder.BuildPD_USER(&users.event, &users.request), nullptr);
  EXPECT_EQ(s_userQuestions, 1) << "of the same batch";
  EXPECT_STREQ(RowOf<recordPD>(look, 3).user.c_str(), "N/A uid = 4711");

  AddToList(5, 0).ruid = 4712;
  Os().getpwuid = [](uid_t) -> ::passwd* { throw std::bad_alloc(); };
  Build(look);
  EXPECT_EQ(look.event.m_records.size(), 7U) << "a row that cannot be filled is delivered";
  EXPECT_EQ(Lines("Unable to construct data for process id: 5."), 1U);
}

}  // namespace
