#include <sys/vfs.h>

#include <limits>

#include "collect/CategoryFlags.h"
#include "collect/filesystem/FileSystemSource.h"
#include "collect/filesystem/QuotaSource.h"
#include "collect/filesystem/StorageSource.h"
#include "tests/scripted/BuilderFixture.h"
#include "tests/scripted/DumpedLines.h"
#include "tests/scripted/Golden.h"
#include "tests/scripted/ProcessTree.h"

namespace {

Storage Stored(const char* path, std::int32_t owner, double mbytes) {
  Storage row;
  row.path = path;
  row.kind = owner;
  row.freeMB = mbytes;
  return row;
}

class FileSystemRecordsTest : public BuilderFixture {
 protected:
  void SetUp() override { g_msgLogLevel = 20; }
  template <class Row>
  std::vector<Row> Build(RecordBuilderFunction builder) {
    Asker asker(RecordTraits<Row>::kName, '3', {.realtime = 1, .calcRates = 0});
    const DumpedLines dumped;
    EXPECT_EQ((m_builder.*builder)(&asker.event, asker.event.m_requests.front()), nullptr);
    EXPECT_EQ(dumped.Count(), asker.event.m_records.size() + 1) << "labels and rows";
    return asker.Rows<Row>();
  }
  /// The local row of a file system with these counts.
  recordPD_FSL Local(std::uint64_t total, std::uint64_t free, std::uint64_t available) {
    FileSystem source;
    source.mountPoint = "/big";
    source.blockSize = source.fragmentSize = 4096;
    source.blocks = source.files = total;
    source.blocksFree = source.filesFree = free;
    source.blocksAvail = source.filesAvail = available;
    *m_collector.GetFileSystem() = {source};
    return Build<recordPD_FSL>(&RecordBuilder::BuildPD_FSL).at(0);
  }
};

TEST_F(FileSystemRecordsTest, RowsAreTheOnesWorkedOutByHand) {
  const process_tree::HostTree host;
  host.Write("/etc/mtab",
             "/dev/sda1 /data ext3 rw,usrquota 0 0\n192.0.2.7:/export /net/x nfs rw\n"
             "192.0.2.777:/export /net/y nfs rw\n");
  const v1_disk_dqblk quota{40, 0, 10, 16, 8, 4, 0, 0};
  host.Write("/data/quota.user",
             std::string(7 * sizeof quota, '\0') +
                 std::string(reinterpret_cast<const char*>(&quota), sizeof quota));
  Os().statfs64 = [](const char*, struct ::statfs64* figures) {
    figures->f_bsize = 4096;
    figures->f_blocks = 1'048'576;
    figures->f_bfree = 524'288;
    figures->f_bavail = 393'216;
    figures->f_files = 1000;
    figures->f_ffree = 600;
    return 0;
  };
  Os().quotactl = [](int, const char*, int, char*) { return -1; };
  static ::passwd user{};
  static std::string name = "seven";
  user.pw_name = name.data();
  Os().getpwuid = [](uid_t) { return &user; };
  Os().setpwent = [] { user.pw_uid = 6; };
  Os().getpwent = [] { return ++user.pw_uid == 7 ? &user : nullptr; };
  ASSERT_EQ(m_collector.collect(COLLECT_FILE_SYSTEM | COLLECT_QUOTA, 0), nullptr);

  const std::filesystem::path golden = std::filesystem::path(QMT_TEST_DIR) / "fixtures/filesystems";
  const auto local = Build<recordPD_FSL>(&RecordBuilder::BuildPD_FSL);
  ASSERT_EQ(local.size(), 1U);
  ExpectGolden(&local[0], sizeof local[0], golden / "FSL.tsv");
  const auto remote = Build<recordPD_FSR>(&RecordBuilder::BuildPD_FSR);
  ASSERT_EQ(remote.size(), 2U);
  ExpectGolden(&remote[0], sizeof remote[0], golden / "FSR.tsv");
  EXPECT_STREQ(remote[1].ipAddress.c_str(), "") << "no address, and not looked up";
  const auto quotas = Build<recordPD_UFSQ>(&RecordBuilder::BuildPD_UFSQ);
  ASSERT_EQ(quotas.size(), 1U);
  ExpectGolden(&quotas[0], sizeof quotas[0], golden / "UFSQ.tsv");
  *m_collector.GetStorage() = {Stored("/data", 7, 1024), Stored("/gone", -2, 3)};
  const auto stored = Build<recordPD_UFSS>(&RecordBuilder::BuildPD_UFSS);
  ASSERT_EQ(stored.size(), 2U);
  ExpectGolden(&stored[0], sizeof stored[0], golden / "UFSS.tsv");
  EXPECT_EQ(stored[1].fileSystemSizeMbytes, 0.0) << "no such mount";
  EXPECT_EQ(stored[1].mbytesInUsePercent, 0.0F);
  for (const char* record : {"FSL", "FSR", "UFSQ", "UFSS"}) {
    const auto told = ScriptedNode::Instance().LinesWith(std::string(record) + " record(s).");
    ASSERT_EQ(told.size(), 1U) << record;
    EXPECT_EQ(told[0].sourceFile, std::string(record) + "record.cpp");
  }

  for (const auto& [path, directory] : std::vector<std::pair<const char*, const char*>>{
           {"//aquota.user", "/"}, {"/x/", "/x"}, {"/x y/z/quota.user", "/x y/z"}, {"", "/"}}) {
    m_collector.GetQuota()->at(0).mountPoint = path;
    const auto row = Build<recordPD_UFSQ>(&RecordBuilder::BuildPD_UFSQ).at(0);
    EXPECT_STREQ(row.fileSystem.c_str(), directory) << path;
  }
}

TEST_F(FileSystemRecordsTest, ModernRowsAreTheOnesWorkedOutByHand) {
  const process_tree::HostTree host;
  host.Write("/proc/1/mountinfo",
             "30 1 0:41 /@sub /srv/my\\040other\\040data rw - btrfs /dev/mapper/luks-data rw\n"
             "31 1 0:40 /@ /srv/my\\040data rw shared:1 - btrfs /dev/mapper/luks-data rw\n"
             "32 1 0:42 / /mnt/far rw - fuse.sshfs ann@192.0.2.7:/export rw,user_id=1000\n"
             "33 1 0:43 / /proc rw - proc proc rw\n");
  Os().statfs64 = [](const char*, struct ::statfs64* figures) {
    figures->f_bsize = 1'048'576;
    figures->f_frsize = 4096;
    figures->f_blocks = 262'144'000;
    figures->f_bfree = 100'000'000;
    figures->f_bavail = 90'000'000;
    figures->f_ffree = 7;
    return 0;
  };
  g_hostProfile = HostProfile::kModern;
  ASSERT_EQ(m_collector.collect(COLLECT_FILE_SYSTEM, 0), nullptr);
  const std::filesystem::path golden = std::filesystem::path(QMT_TEST_DIR) / "fixtures/mounts";
  const auto local = Build<recordPD_FSL>(&RecordBuilder::BuildPD_FSL);
  ASSERT_EQ(local.size(), 1U);
  ExpectGolden(&local[0], sizeof local[0], golden / "FSL.tsv");
  const auto remote = Build<recordPD_FSR>(&RecordBuilder::BuildPD_FSR);
  ASSERT_EQ(remote.size(), 1U);
  ExpectGolden(&remote[0], sizeof remote[0], golden / "FSR.tsv");
  *m_collector.GetStorage() = {Stored("/srv/my data", 7, 10'240)};
  const auto stored = Build<recordPD_UFSS>(&RecordBuilder::BuildPD_UFSS);
  ASSERT_EQ(stored.size(), 1U);
  EXPECT_EQ(stored[0].fileSystemSizeMbytes, 1'024'000.0);
}

TEST_F(FileSystemRecordsTest, CountsAreUnsignedAndNothingIsDividedByZero) {
  const recordPD_FSL none = Local(0, 0, 0);
  for (const float percent : {none.mbytesFreePercent, none.mbytesInUsePercent,
                              none.availableSpacePercent, none.totalInodesInUsePercent}) {
    EXPECT_EQ(percent, 0.0F);
  }
  const recordPD_FSL reserved = Local(100, 100, 0);  // all of it free, none of it to be had
  EXPECT_EQ(reserved.mbytesRsvdPercent, 100.0F);
  for (const float percent :
       {reserved.mbytesInUsePercent, reserved.availableSpacePercent,
        reserved.totalInodesInUsePercent, reserved.totalInodesAvailablePercent}) {
    EXPECT_EQ(percent, 0.0F) << "no share of nothing";
  }
  const double wrapped = 18446744073709551616.0 - 5;
  const recordPD_FSL more = Local(100, 50, 55);
  EXPECT_EQ(more.mbytesInUsePercent, 0.0F);
  EXPECT_EQ(more.availableSpacePercent, 0.0F);
  EXPECT_EQ(more.mbytesFreePercent, 50.0F);
  EXPECT_FLOAT_EQ(more.mbytesRsvdPercent, static_cast<float>(wrapped));
  EXPECT_DOUBLE_EQ(more.totalInodesRsvd, wrapped);
  EXPECT_DOUBLE_EQ(more.mbytesRsvd, -5 / 256.0);
  EXPECT_TRUE(ScriptedNode::Instance().LinesWith("16Exa").empty());

  const recordPD_FSL huge = Local(std::numeric_limits<std::uint64_t>::max(), 0, 0);
  EXPECT_DOUBLE_EQ(huge.totalSizeMbytes, 72057594037927936.0);
  for (const char* line : {"Total Size Mbytes field is over 16Exa Bytes.", "File System = /big",
                           "Total Size Mbytes = 72057594037927936.000000"}) {
    EXPECT_EQ(ScriptedNode::Instance().LinesWith(line).size(), 1U) << line;
  }
  m_collector.GetFileSystem()->at(0).blockSize = 0;
  EXPECT_EQ(Build<recordPD_FSL>(&RecordBuilder::BuildPD_FSL).at(0).totalSizeBlocks, 0.0);
}

}  // namespace
