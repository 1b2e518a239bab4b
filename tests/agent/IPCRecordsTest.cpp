#include "collect/ipc/IPCSource.h"
#include "collect/ipc/MsgSource.h"
#include "collect/ipc/SHMSource.h"
#include "collect/ipc/SemSource.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/DumpedLines.h"
#include "tests/scripted/Golden.h"

namespace {

/// User 7 is "seven", group 8 "eight"; there are no others.
::passwd* AskUser(uid_t uid) {
  static std::string name = "seven";
  static ::passwd user{};
  user.pw_name = name.data();
  return uid == 7 ? &user : nullptr;
}
::group* AskGroup(gid_t gid) {
  static std::string name = "eight";
  static ::group entry{};
  entry.gr_name = name.data();
  return gid == 8 ? &entry : nullptr;
}

template <class Row>
Row Owned(std::int32_t key, std::uint32_t mode) {
  Row row;
  row.key = key;
  row.cuid = 7;
  row.cgid = 8;
  row.uid = 9;
  row.gid = 10;
  row.mode = mode;
  row.changeTime.seconds = 1'699'999'000;
  return row;
}

class IPCRecordsTest : public BuilderFixture {
 protected:
  void SetUp() override {
    Os().getpwuid = AskUser;
    Os().getgrgid = AskGroup;
  }
  template <class Row>
  void ExpectRow(RecordBuilderFunction builder, const std::string& golden, int rows = 1) {
    Asker asker(RecordTraits<Row>::kName, '3', {.realtime = 1, .calcRates = 0});
    const DumpedLines dumped;
    EXPECT_EQ((m_builder.*builder)(&asker.event, asker.event.m_requests.front()), nullptr);
    ASSERT_EQ(asker.event.m_records.size(), static_cast<std::size_t>(rows));
    EXPECT_EQ(dumped.Count(), asker.event.m_records.size() + 1) << "labels and rows";
    const CMBRecord& record = *asker.event.m_records.front();
    ASSERT_EQ(record.GetRecSize(), static_cast<int>(sizeof(Row)));
    ExpectGolden(record.GetRecStart(), sizeof(Row),
                 std::filesystem::path(QMT_TEST_DIR) / "fixtures/ipc" / golden);
    const auto told = ScriptedNode::Instance().LinesWith("Created " + std::to_string(rows) + ' ' +
                                                         RecordTraits<Row>::kName);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].sourceFile.starts_with("IPC")) << told[0].sourceFile;
  }
};

TEST_F(IPCRecordsTest, RowsAreTheOnesWorkedOutByHand) {
  Sem semaphore = Owned<Sem>(-19136511, 0642);
  semaphore.semNum = 2;
  semaphore.semId = 65537;
  semaphore.opTime.seconds = 1'699'999'500;
  semaphore.pid = 4321;
  semaphore.value = -1;
  semaphore.nCount = 3;
  semaphore.zCount = 4;
  Sem other = semaphore;
  other.semId = 3;
  *m_collector.GetSem() = {semaphore, other, other};
  ExpectRow<recordPD_SEMD>(&RecordBuilder::BuildPD_SEMD, "SEMD.tsv", 3);

  SHM segment = Owned<SHM>(0x1234, 0640);
  segment.shmId = 11;
  segment.nAttach = 2;
  segment.creatorPid = 100;
  segment.lastPid = 101;
  segment.segmentSize = (1ULL << 40U) + 5;
  segment.attachTime.seconds = 1'699'999'200;
  segment.detachTime.seconds = 1'699'999'300;
  SHM small = segment;
  small.nAttach = 3;
  small.segmentSize = 100;
  *m_collector.GetSHM() = {segment, small};
  ExpectRow<recordPD_SHMD>(&RecordBuilder::BuildPD_SHMD, "SHMD.tsv", 2);

  Msg queue = Owned<Msg>(0x4321, 0666);
  queue.msqId = 12;
  queue.cbytes = 60;
  queue.qnum = 6;
  queue.qbytes = 16384;
  queue.lspid = 200;
  queue.lrpid = 201;
  queue.recvTime.seconds = 1'699'999'400;
  queue.sendTime.seconds = 1'699'999'600;
  *m_collector.GetMsg() = {queue};
  ExpectRow<recordPD_MSQD>(&RecordBuilder::BuildPD_MSQD, "MSQD.tsv");

  IPC& limits = *m_collector.GetIPC();
  limits.shmMax = 1ULL << 33U;
  std::uint32_t next = 0;
  for (std::uint32_t IPC::*limit :
       {&IPC::shmMin, &IPC::shmMni, &IPC::shmSeg, &IPC::semMap, &IPC::semMni,
        &IPC::semMns, &IPC::semMnu, &IPC::semMsl, &IPC::semOpm, &IPC::semUme,
        &IPC::semUsz, &IPC::semVmx, &IPC::semAem, &IPC::msgMap, &IPC::msgMax,
        &IPC::msgMnb, &IPC::msgMni, &IPC::msgSsz, &IPC::msgTql, &IPC::msgSeg}) {
    limits.*limit = ++next;
  }
  limits.totalSwap = 4'000'000'000;
  ExpectRow<recordPD_IPCS>(&RecordBuilder::BuildPD_IPCS, "IPCS.tsv");
  EXPECT_EQ(Lines("Looked at 3 SEMD and 2 SHMD record(s)."), 1U);
}

TEST_F(IPCRecordsTest, WithoutSwapNothingIsDivided) {
  m_collector.GetSHM()->push_back(Owned<SHM>(0, 0));
  m_collector.GetIPC()->swapFailed = true;
  Asker asker("IPCS", '3', {.realtime = 1, .calcRates = 0});
  ASSERT_EQ(m_builder.BuildPD_IPCS(&asker.event, asker.event.m_requests.front()), nullptr);
  const auto& row =
      *static_cast<const recordPD_IPCS*>(asker.event.m_records.front()->GetRecStart());
  EXPECT_EQ(row.sharedMemPercentInSwap, 0.0F);
  EXPECT_EQ(Lines("Error in getting Swap Memory Space. Function (sysinfo)."), 1U);
}

}  // namespace
