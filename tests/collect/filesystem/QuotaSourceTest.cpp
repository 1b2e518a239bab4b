#include "collect/filesystem/QuotaSource.h"

#include <linux/dqblk_xfs.h>
#include <sys/quota.h>

#include "tests/collect/CollectFixture.h"

namespace {

/// What the kernel of the tests answers to a command for a user; it refuses all else.
struct Kernel {
  std::map<std::pair<int, int>, std::string> answers;
  std::string devices;
  std::vector<unsigned> users;
  std::size_t walk = 0;
};
Kernel g_kernel;

template <class Block>
std::string Bytes(const Block& block) {
  return {reinterpret_cast<const char*>(&block), sizeof block};
}

constexpr v1_disk_dqblk kV1{30, 20, 10, 6, 5, 4, 0, 0};
constexpr mem_dqblk kV2{6, 5, 4, 30, 20, 10 * 1024 + 1023, 0, 0};
v2_disk_dqblk FileV2(std::uint32_t uid, std::uint64_t space) {
  return {uid, 6, 5, 4, 30, 20, space, 0, 0};
}
constexpr int kV2Command = 0xd0000;
constexpr int kV1Command = 0x30000;
constexpr int kXfsCommand = 0x580300;

class QuotaSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    g_kernel = {};
    g_kernel.users = {0, 7, 0x01020304};
    Os().setpwent = [] { g_kernel.walk = 0; };
    Os().endpwent = [] {};
    Os().getpwent = []() -> ::passwd* {
      static ::passwd user;
      if (g_kernel.walk == g_kernel.users.size()) {
        return nullptr;
      }
      user.pw_uid = g_kernel.users[g_kernel.walk++];
      return &user;
    };
    Os().quotactl = [](int command, const char* device, int id, char* answer) {
      const auto found = g_kernel.answers.find({command, id});
      g_kernel.devices = device;
      if (found == g_kernel.answers.end()) {
        errno = ESRCH;
        return -1;
      }
      std::copy(found->second.begin(), found->second.end(), answer);
      return 0;
    };
  }
  static std::string Read() {
    std::vector<Quota> rows;
    QuotaSourceUser source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    std::ostringstream out;
    for (const Quota& row : rows) {
      EXPECT_EQ(row.size, 1072U);
      out << row.GetPath() << ' ' << row.uid << ' ' << row.GetState() << ' ' << row.usedKB << ' '
          << row.softKB << ' ' << row.hardKB << ' ' << row.usedFiles << ' ' << row.softFiles << ' '
          << row.hardFiles << '\n';
    }
    return error == nullptr ? out.str() : error->GetMessage();
  }
  void Mount(const std::string& lines) { m_host.Write("/etc/mtab", lines); }

  process_tree::HostTree m_host;
};

const std::string kFigures = " 10 20 30 4 5 6\n";

TEST_F(QuotaSourceTest, AsksTheKernelWhereItEnforcesQuotas) {
  fs_disk_quota xfs{};
  xfs.d_bcount = 21;
  xfs.d_blk_softlimit = 40;
  xfs.d_blk_hardlimit = 60;
  xfs.d_icount = 4;
  xfs.d_ino_softlimit = 5;
  xfs.d_ino_hardlimit = 6;
  const struct {
    const char* type;
    int command;
    std::string zero;
    std::string answer;
    const char* path;
  } cases[] = {{"ext3", kV2Command, Bytes(mem_dqblk{0, 0, 0, 0, 0, 1023, 9, 9}), Bytes(kV2),
                "/q/aquota.user"},
               {"ext2", kV1Command, Bytes(v1_disk_dqblk{}), Bytes(kV1), "/q/quota.user"},
               {"xfs", kXfsCommand, Bytes(fs_disk_quota{}), Bytes(xfs), "/q/"}};
  for (const auto& test : cases) {
    Mount("/dev/q /q " + std::string(test.type) + " rw,usrquota 0 0\n");
    m_host.Write("/q/aquota.user", "");
    m_host.Write("/q/quota.user", "");
    g_kernel.answers = {{{test.command, 0}, test.zero}, {{test.command, 7}, test.answer}};
    EXPECT_EQ(Read(), test.path + std::string(" 7 on") + kFigures) << test.type;
    EXPECT_EQ(g_kernel.devices, m_host.Path("/dev/q"));
    EXPECT_NE(::fcntl(STDIN_FILENO, F_GETFD), -1) << test.type << " closed what is not its own";
    g_kernel.answers.clear();
    EXPECT_EQ(Read(), "") << "empty files, or none";
  }
}

TEST_F(QuotaSourceTest, OneFigureMakesARow) {
  const auto xfs = [](std::uint64_t count, std::uint64_t hard) {
    fs_disk_quota block{};
    block.d_bcount = count;
    block.d_blk_hardlimit = hard;
    return Bytes(block);
  };
  const struct {
    const char* type;
    int command;
    std::string answer;
    const char* row;
  } cases[] = {// Limits and no use; half a Kbyte, as only this system counts.
               {"xfs", kXfsCommand, xfs(0, 60), "/q/ 7 on 0 0 30 0 0 0\n"},
               {"xfs", kXfsCommand, xfs(1, 0), "/q/ 7 on 0 0 0 0 0 0\n"},
               {"ext3", kV2Command, Bytes(mem_dqblk{0, 0, 0, 30, 0, 0, 0, 0}),
                "/q/aquota.user 7 on 0 0 30 0 0 0\n"},
               {"ext3", kV2Command, Bytes(mem_dqblk{6, 0, 0, 0, 0, 0, 0, 0}),
                "/q/aquota.user 7 on 0 0 0 0 0 6\n"},
               {"ext3", kV2Command, Bytes(mem_dqblk{0, 0, 0, 0, 0, 1023, 0, 0}), ""},
               {"ext2", kV1Command, Bytes(v1_disk_dqblk{0, 20, 0, 0, 0, 0, 0, 0}), nullptr}};
  m_host.Write("/q/aquota.user", "");
  m_host.Write("/q/quota.user", "");
  for (const auto& test : cases) {
    Mount("/dev/q /q " + std::string(test.type) + " rw,usrquota 0 0\n");
    g_kernel.answers = {{{test.command, 0}, std::string(sizeof(fs_disk_quota), '\0')},
                        {{test.command, 7}, test.answer}};
    const std::string rows = Read();
    if (test.row == nullptr) {
      EXPECT_NE(rows, "");
    } else {
      EXPECT_EQ(rows, test.row) << test.type;
    }
  }
}

TEST_F(QuotaSourceTest, SearchesTheFilesOtherwise) {
  // A tree with the user in the second entry of its block; numbers count blocks.
  std::string tree(6 * kQuotaBlock, '\0');
  const auto put = [&](std::size_t place, const auto& value) {
    tree.replace(place, sizeof value, Bytes(value));
  };
  for (std::uint32_t depth = 0; depth < kQuotaDepth; ++depth) {
    put((depth + 1) * kQuotaBlock + (depth + 1) * sizeof depth, depth + 2);
  }
  const std::size_t entry = 5 * kQuotaBlock + kQuotaHeader;
  put(5 * kQuotaBlock + 8, std::uint32_t{0xffffffff});  // a count of entries that lies
  put(entry, FileV2(7, 99));
  put(entry + sizeof(v2_disk_dqblk), FileV2(0x01020304, 10 * 1024));
  Mount("/dev/q /q ext3 rw,usrquota 0 0\n");
  m_host.Write("/q/aquota.user", tree);
  const std::string found = "/q/aquota.user 16909060 off" + kFigures;
  EXPECT_EQ(Read(), found);
  m_host.Write("/q/aquota.user", tree.substr(0, entry + 2 * sizeof(v2_disk_dqblk)));
  EXPECT_EQ(Read(), found) << "the rest of a cut file is zero";
  for (const std::uint32_t loop : {1U, 4U, 0xffffffffU}) {
    put(4 * kQuotaBlock + 4 * sizeof loop, loop);
    m_host.Write("/q/aquota.user", tree);
    EXPECT_EQ(Read(), "") << loop;
  }

  std::filesystem::remove(m_host.Path("/q/aquota.user"));
  m_host.Write("/q/quota.user", std::string(7 * sizeof kV1, '\0') + Bytes(kV1));
  EXPECT_EQ(Read(), "/q/quota.user 7 off" + kFigures);
  m_host.Write("/q/quota.user", std::string(7 * sizeof kV1, '\0') + Bytes(kV1).substr(0, 31));
  EXPECT_EQ(Read(), "");
}

TEST_F(QuotaSourceTest, PassesOverFileSystemsWithoutQuotas) {
  EXPECT_EQ(Read(), "QuotaSourceUser::Initialize(fopen = /etc/mtab 2");
  EXPECT_EQ(Lines("OS API(fopen). (en=2,arg1=/etc/mtab, arg2=r)"), 1U);
  EXPECT_EQ(Lines("An error occured in function (QuotaSourceUser::Initialize).(rc="), 1U);

  Mount(
      "a /none ext3 usrquota\nb /q ext4 usrquota\nc /q ext3 rw\nd /folder ext2 usrquota\n"
      "e /unreadable ext3 usrquota\nf /x xfs usrquota\ng /last xext3 rw,usrquota=x\n"
      "h /tree ext3 usrquota\n");
  const std::string file(std::string(7 * sizeof kV1, '\0') + Bytes(kV1));
  m_host.Write("/q/quota.user", file);
  m_host.Write("/last/quota.user", file);
  std::filesystem::create_directories(m_host.Path("/folder/quota.user"));
  std::filesystem::create_directories(m_host.Path("/tree/aquota.user"));
  m_host.Write("/unreadable/quota.user", "");
  Os().stat = [](const char* path, struct ::stat* status) {
    return std::strstr(path, "unreadable") != nullptr ? 0 : ::stat(path, status);
  };
  std::filesystem::remove(m_host.Path("/unreadable/quota.user"));
  EXPECT_EQ(Read(), "/last/quota.user 7 off" + kFigures);
  EXPECT_EQ(Lines("An error occurred in OS API read. (/folder/quota.user) (err=21)"), 3U);
  EXPECT_EQ(Lines("OS API(read). (en=21, arg1="), 3U);
  EXPECT_EQ(Lines("(QuotaSourceUser::ReadBlock).(rc=-1, "), 3U);
  EXPECT_EQ(Lines("OS API(open). (en=2,arg1=/unreadable/aquota.user, arg2="), 1U);
}

}  // namespace
