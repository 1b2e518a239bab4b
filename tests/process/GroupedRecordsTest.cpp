#include "collect/accounting/AcctRecord.h"
#include "collect/device/DeviceMap.h"
#include "support/ProductOptions.h"
#include "tests/process/ProcessRecordFixture.h"

namespace {

using Builder = UtlError* (RecordBuilder::*)(CMBRecordRequestEvent*, CMBRecordRequest*);

class GroupedRecordsTest : public ProcessRecordFixture {
 protected:
  template <class Row>
  std::vector<Row> Rows(Builder builder, Asker& asker) {
    NewBatch();
    asker.NextAnswer();
    EXPECT_EQ((m_builder.*builder)(&asker.event, &asker.request), nullptr);
    std::vector<Row> rows;
    for (const CMBRecord* record : asker.event.m_records) {
      rows.push_back(*static_cast<const Row*>(record->GetRecStart()));
    }
    return rows;
  }
  /// The two servers at 50 % and 40 % of a processor over ten seconds, the second one a new process
  /// under the number of another.
  void TakeSecondSample() {
    s_now += 10;
    AddProcess(Server(10, 1, 900, 400));
    auto reused = Server(11, 1, 200, 0);
    reused.startTicks = 1'000'500;
    AddProcess(reused);
    m_host.Remove("/proc/20");
    Collect();
  }
  void TakeFirstSample() {
    AddProcess(Server(10, 1, 500, 300));
    AddProcess(Server(11, 1, 100, 50));
    AddProcess({.pid = 20,
                .uid = 0,
                .userTicks = 100,
                .startTicks = 900'000,
                .name = "bash",
                .commandLine = ""});
    Collect();
  }
  /// The servers' rows of both samples of one record, with a look between them that must not count.
  /// `apart` tells that the shell has a row of its own, the first.
  template <class Row>
  void ExpectBothSamples(Builder builder, bool apart) {
    const std::string name = RecordTraits<Row>::kName;
    Asker schedule(name, '3', {.realtime = 0, .calcRates = 1});
    Asker look(name, '3', {.realtime = 1, .calcRates = 0});
    const auto expectLast = [&](Asker& asker, std::size_t count, const char* sample) {
      const std::vector<Row> rows = Rows<Row>(builder, asker);
      ASSERT_EQ(rows.size(), count);
      ExpectTable(rows.back(), ("grouped/" + name + sample).c_str());
    };
    const std::size_t both = apart ? 2 : 1;
    TakeFirstSample();
    expectLast(schedule, both, "-first.tsv");
    s_now += 5;
    EXPECT_EQ(Rows<Row>(builder, look).size(), both);
    s_now -= 5;
    TakeSecondSample();
    expectLast(schedule, 1, "-second.tsv");
    expectLast(look, 1, "-look.tsv");
    EXPECT_EQ(Lines("Created 1 " + name), apart ? 2U : 4U);
  }
};

TEST_F(GroupedRecordsTest, ProgramsOfTwoSamples) {
  ExpectBothSamples<recordPD_PGM>(&RecordBuilder::BuildPD_PGM, true);
}
TEST_F(GroupedRecordsTest, TerminalsOfTwoSamples) {
  ExpectBothSamples<recordPD_TERM>(&RecordBuilder::BuildPD_TERM, false);
}
TEST_F(GroupedRecordsTest, UsersOfTwoSamples) {
  ExpectBothSamples<recordPD_USER>(&RecordBuilder::BuildPD_USER, true);
}

TEST_F(GroupedRecordsTest, RowsComeInTheOrderOfTheirKeys) {
  struct Entry {
    std::array<char, 256> program;
    std::uint64_t tty;
    std::int32_t user;
  };
  for (const Entry& one : {Entry{{'\xc3', ' '}, UINT64_MAX, 5}, Entry{{'a'}, 0x8803, -1},
                           Entry{{}, 1, 33}, Entry{{'Z'}, 0x8803, 5}}) {
    Process& process = AddToList(7, static_cast<std::int32_t>(s_now) + 1);
    process.x_proc::name = one.program;
    process.tty = one.tty;
    process.euid = one.user;
    process.userTime = {1, 0};
  }
  m_host.Write("/dev/pts/3", "");
  Os().stat = [](const char*, struct ::stat* out) {
    out->st_mode = S_IFCHR;
    out->st_rdev = 0x8803;
    return 0;
  };
  DeviceMap::Instance().clear();
  Asker look("", '3', {.realtime = 1, .calcRates = 0});
  std::string keys;
  for (const auto& row : Rows<recordPD_PGM>(&RecordBuilder::BuildPD_PGM, look)) {
    keys.append(row.program.view()) += '|';
    EXPECT_EQ(row.cpuPercent, 0.0F) << "it starts in the future";
  }
  for (const auto& row : Rows<recordPD_TERM>(&RecordBuilder::BuildPD_TERM, look)) {
    keys.append(row.terminal.view()) += '|';
  }
  for (const auto& row : Rows<recordPD_USER>(&RecordBuilder::BuildPD_USER, look)) {
    keys.append(row.user.view()) += '|';
  }
  DeviceMap::Instance().clear();
  EXPECT_EQ(keys, "|Z|a|\xc3 |??|pts/3|??|N/A uid = -1|N/A uid = 5|www|");
}

TEST_F(GroupedRecordsTest, AnEndedProcessCountsOnceAndOnlyWhereItIsWanted) {
  Acct acct;
  acct.beginTime = 1'699'999'900;
  acct.elapsedTime = {105, 0};
  acct.systemTime = {1, 500000};
  acct.io = 10240;
  acct.rw = 7;
  acct.comm = {'j', 'o', 'b'};
  const Builder build = &RecordBuilder::BuildPD_PGM;
  Asker schedule("PGM", '3', {.realtime = 0, .calcRates = 0});
  Asker look("PGM", '3', {.realtime = 1, .calcRates = 0});
  for (const bool wanted : {false, true}) {
    ProductOptions::Instance().Set("Acct", "GetDiedProcess", wanted ? "y" : "n");
    ASSERT_EQ(m_builder.Init(), nullptr);
    m_collector.GetAcct()->clear();
    Process& process = AddToList(70, 1'699'999'900);
    process.x_proc::name = {'j', 'o', 'b'};
    process.systemTime = {1, 0};
    process.blockOps = 5;
    EXPECT_EQ(Rows<recordPD_PGM>(build, schedule).size(), 1U);

    m_collector.GetProcess()->clear();
    m_collector.GetAcct()->assign(1, acct);
    EXPECT_TRUE(Rows<recordPD_PGM>(build, look).empty());
    s_now += 10;
    const auto rows = Rows<recordPD_PGM>(build, schedule);
    ASSERT_EQ(rows.size(), wanted ? 1U : 0U);
    EXPECT_TRUE(Rows<recordPD_PGM>(build, schedule).empty());
    if (wanted) {
      recordPD_PGM expected = NewRow<recordPD_PGM>(static_cast<std::int32_t>(s_now));
      expected.program = "job";
      expected.processCount = 1;
      expected.systemCpu = tagUTIME{0, 500000};
      expected.cpuPercent = 2.5F;
      expected.totalIoOps = 2;
      expected.totalIoKbytes = 10;
      ExpectSameBytes(rows.front(), expected);
    }
  }
}

}  // namespace
