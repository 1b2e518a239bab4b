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
  template <class Row>
  static void Put(Row& row, std::uint32_t count, tagUTIME user, tagUTIME system, float cpu,
                  std::uint32_t faulty) {
    row.processCount = count;
    row.userCpu = user;
    row.systemCpu = system;
    row.cpuPercent = cpu;
    row.majorFaults = 14 * faulty;
    row.minorFaults = 1012 * faulty;
  }
  /// Both samples of one record, with a look between them that must not count. `key` puts the key
  /// of the servers' row; `apart` tells that the shell has a row of its own, the first.
  template <class Row, class PutKey>
  void ExpectBothSamples(Builder builder, bool apart, PutKey key) {
    TakeFirstSample();
    Asker schedule(RecordTraits<Row>::kName, '3', {.realtime = 0, .calcRates = 1});
    Asker look(RecordTraits<Row>::kName, '3', {.realtime = 1, .calcRates = 0});
    std::vector<Row> rows = Rows<Row>(builder, schedule);
    ASSERT_EQ(rows.size(), apart ? 2U : 1U);
    Row expected = NewRow<Row>(1'700'000'000);
    key(expected);
    Put(expected, apart ? 2 : 3, {apart ? 6 : 7, 0}, {3, 500000}, apart ? 0.475F : 0.525F,
        apart ? 2 : 3);
    expected.realMemKbytes = 4000;
    expected.virtualMemKbytes = 8000;
    ExpectSameBytes(rows.back(), expected);
    s_now += 5;
    EXPECT_EQ(Rows<Row>(builder, look).size(), rows.size());
    s_now -= 5;

    TakeSecondSample();
    rows = Rows<Row>(builder, schedule);
    ASSERT_EQ(rows.size(), 1U);
    expected.recordTime = 1'700'000'010;
    Put(expected, 2, {6, 0}, {1, 0}, 45, 1);
    ExpectSameBytes(rows.back(), expected);
    rows = Rows<Row>(builder, look);
    ASSERT_EQ(rows.size(), 1U);
    Put(expected, 2, {11, 0}, {4, 0}, (100 * 13.0F / 1010 + 40) / 2, 2);
    ExpectSameBytes(rows.back(), expected);
    EXPECT_EQ(Lines(std::string("Created 1 ") + RecordTraits<Row>::kName), apart ? 2U : 4U);
  }
};

TEST_F(GroupedRecordsTest, ProgramsOfTwoSamples) {
  ExpectBothSamples<recordPD_PGM>(&RecordBuilder::BuildPD_PGM, true,
                                  [](auto& row) { row.program = "httpd"; });
}
TEST_F(GroupedRecordsTest, TerminalsOfTwoSamples) {
  ExpectBothSamples<recordPD_TERM>(&RecordBuilder::BuildPD_TERM, false,
                                   [](auto& row) { row.terminal = "??"; });
}
TEST_F(GroupedRecordsTest, UsersOfTwoSamples) {
  ExpectBothSamples<recordPD_USER>(&RecordBuilder::BuildPD_USER, true, [](auto& row) {
    row.userId = 33;
    row.user = "www";
  });
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
      Put(expected, 1, {0, 0}, {0, 500000}, 2.5F, 0);
      expected.totalIoOps = 2;
      expected.totalIoKbytes = 10;
      ExpectSameBytes(rows.front(), expected);
    }
  }
}

}  // namespace
