#include "collect/modern/filesystem/FileSystemSource.h"
#include "collect/modern/filesystem/Mountinfo.h"
#include "collect/modern/filesystem/RemoteMount.h"
#include "support/ProductOptions.h"
#include "tests/collect/CollectFixture.h"

namespace {

/// The mounts that the test's kernel answers for, with their blocks. It is a fault to ask for
/// another one.
std::map<std::string, std::uint64_t>& BlocksByPath() {
  static std::map<std::string, std::uint64_t> blocks;
  return blocks;
}

int AnswerKnownMounts(const char* path, struct ::statfs64* figures) {
  const std::string asked = std::string(path).substr(HostPath("/").size() - 1);
  if (asked.find("hung") != std::string_view::npos) {
    while (true) {
      ::pause();
    }
  }
  const auto known = BlocksByPath().find(asked);
  if (known == BlocksByPath().end()) {
    ADD_FAILURE() << "asked for " << asked;
    errno = ENOENT;
    return -1;
  }
  figures->f_bsize = 1'048'576;
  figures->f_frsize = asked == "/boot" ? 0 : 4096;
  figures->f_blocks = known->second;
  return 0;
}

class ModernFileSystemTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    Os().statfs64 = AnswerKnownMounts;
    BlocksByPath().clear();
    SetTimeout("0");
  }
  void TearDown() override {
    SetTimeout("0");
    CollectFixture::TearDown();
  }
  static void SetTimeout(const char* seconds) {
    ProductOptions::Instance().Set("Node", "Mount Timeout", seconds);
  }
  /// A line for each row, or the error.
  static std::string Read() {
    std::vector<FileSystem> rows;
    ModernFileSystemSource source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    std::ostringstream out;
    for (const FileSystem& row : rows) {
      out << row.mountPoint << '|' << row.GetType() << '|' << (row.IsRemote() ? row.host : "local")
          << '|' << row.remotePath << '|' << row.fragmentSize << '\n';
    }
    return error == nullptr ? out.str() : error->GetMessage();
  }
};

TEST_F(ModernFileSystemTest, ADesktopHasOneRowForEachFileSystemThatCanBeReached) {
  SetHostRoot(FixturePath("mounts/desktop"));
  for (const std::string& path :
       CutAt('|',
             "/dev|/run|/|/boot|/boot/efi|/snap/core22/1122|/net/data|/direct|"
             "/home/ann/shell|/mnt/win|/data/with blank,\\\t\n#|/short|/cover|/a|/a.b|"
             "/mnt/part-a|/mnt/part-b|/m/s")) {
    BlocksByPath()[path] = 9;
  }
  BlocksByPath()["/nameless"] = 0;
  EXPECT_EQ(Read(),
            "/dev|devtmpfs|local|udev|4096\n"
            "/run|tmpfs|local|tmpfs|4096\n"
            "/|btrfs|local|/dev/mapper/luks-root|4096\n"
            "/boot|ext4|local|/dev/nvme0n1p2|1048576\n"
            "/boot/efi|vfat|local|/dev/nvme0n1p1|4096\n"
            "/snap/core22/1122|squashfs|local|/dev/loop0|4096\n"
            "/net/data|nfs4|files.example.org|/export/data|4096\n"
            "/direct|nfs4|[2001:db8::7]|/export|4096\n"
            "/home/ann/shell|fuse.sshfs|shell.example.org|/home/ann|4096\n"
            "/mnt/win|cifs|winserver|/share|4096\n"
            "/data/with blank,\\\t\n#|ext4|local|/dev/disk/by label|4096\n"
            "/short|xfs|local|/dev/nvme0n1p4|4096\n"
            "/cover|ext4|local|/dev/over|4096\n"
            "/a|ext4|local|/dev/above|4096\n"
            "/a.b|ext4|local|/dev/beside|4096\n"
            "/mnt/part-a|nfs|files.example.org|/export/a|4096\n"
            "/mnt/part-b|nfs|files.example.org|/export/b|4096\n"
            "/m/s|nfs4|far.example.org|/sub|4096\n");
}

TEST_F(ModernFileSystemTest, AContainerHasItsRootAndWhatWasGivenToIt) {
  SetHostRoot(FixturePath("mounts/container"));
  BlocksByPath() = {{"/", 9}, {"/dev", 9}, {"/dev/shm", 9}, {"/etc/hosts", 9}, {"/proc/acpi", 0}};
  EXPECT_EQ(Read(),
            "/|overlay|local|overlay|4096\n"
            "/dev|tmpfs|local|tmpfs|4096\n"
            "/dev/shm|tmpfs|local|shm|4096\n"
            "/etc/hosts|ext4|local|/dev/vda1|4096\n");
}

/// Answers that the mount namespaces of process 1 and of this one are those of these numbers, 0 for
/// one that may not be looked at, and whether the former's root may be entered.
struct Namespaces {
  ino_t first = 0;
  ino_t own = 0;
  bool isRootOpen = false;
};
Namespaces& AnsweredNamespaces() {
  static Namespaces answered;
  return answered;
}
int AnswerNamespaces(const char* path, struct ::stat* status) {
  const Namespaces& answered = AnsweredNamespaces();
  const std::string_view asked = path;
  status->st_ino = asked.ends_with("/proc/1/ns/mnt")      ? answered.first
                   : asked.ends_with("/proc/self/ns/mnt") ? answered.own
                   : asked.ends_with("/proc/1/root")      ? ino_t{answered.isRootOpen}
                                                          : 0;
  errno = EACCES;
  return status->st_ino == 0 ? -1 : 0;
}

TEST_F(ModernFileSystemTest, MountsAreAskedWhereTheirTableStands) {
  const process_tree::HostTree host;
  Os().stat = AnswerNamespaces;
  const struct {
    Namespaces answered;
    bool isCaptured;
    const char* table;
    const char* prefix;
  } cases[] = {
      {{7, 7, true}, false, "/proc/self/mountinfo", ""},
      {{7, 8, true}, false, "/proc/1/mountinfo", "/proc/1/root"},
      {{7, 8, false}, false, "/proc/self/mountinfo", ""},
      {{0, 8, false}, false, "/proc/self/mountinfo", ""},
      {{7, 8, true}, true, "/proc/1/mountinfo", ""},
  };
  const std::string root = HostPath("/");
  for (const auto& row : cases) {
    AnsweredNamespaces() = row.answered;
    SetHostRoot(row.isCaptured ? root : "");
    const MountView view = ViewOfMounts();
    EXPECT_STREQ(view.table, row.table) << &row - cases;
    EXPECT_STREQ(view.prefix, row.prefix) << &row - cases;
  }
}

TEST_F(ModernFileSystemTest, AMountOfAnotherNamespaceIsAskedBelowItsRootAndNamedWithoutIt) {
  if (::access("/proc/1/mountinfo", R_OK) != 0) {
    GTEST_SKIP() << "process 1 is out of sight";
  }
  Os().stat = AnswerNamespaces;
  AnsweredNamespaces() = {7, 8, true};
  Os().statfs64 = [](const char* path, struct ::statfs64* figures) {
    figures->f_blocks = 1;
    errno = ENOENT;
    return std::string_view(path).starts_with("/proc/1/root/") ? 0 : -1;
  };
  for (const char* seconds : {"0", "5"}) {
    SetTimeout(seconds);
    const std::string rows = Read();
    EXPECT_NE(rows, "");
    EXPECT_EQ(rows.find("/proc/1/root"), std::string::npos) << rows;
    EXPECT_EQ(Lines("OS API(statfs)"), 0U);
  }
}

TEST_F(ModernFileSystemTest, AMountThatHangsCostsItsOwnRowAlone) {
  const process_tree::HostTree host;
  host.Write("/proc/self/mountinfo",
             "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n2 1 0:9 / /hung rw - nfs s:/x rw\n"
             "4 1 0:4 / /a/hung rw - nfs s:/a rw\n5 1 0:5 / /b/hung rw - nfs s:/b rw\n"
             "6 1 0:6 / /c/hung rw - nfs s:/c rw\n7 1 0:7 / /d/hung rw - nfs s:/d rw\n"
             "3 1 8:2 / /last rw - ext4 /dev/sda2 rw\n"
             "8 2 8:3 / /hung/below rw - ext4 /dev/sda3 rw\n");
  BlocksByPath() = {{"/", 9}, {"/last", 9}};
  SetTimeout("1");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(), "/|ext4|local|/dev/sda1|4096\n/last|ext4|local|/dev/sda2|4096\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "side by side";
  EXPECT_EQ(Lines("no answer within 1 seconds"), 6U);
}

TEST_F(ModernFileSystemTest, OnlyWhatMayWaitIsAskedByAChild) {
  const process_tree::HostTree host;
  const std::string local = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n2 1 0:9 / /run rw - tmpfs t rw\n";
  Os().statfs64 = [](const char*, struct ::statfs64* figures) {
    figures->f_blocks = 1;
    return 0;
  };
  static int forks = 0;
  static const auto realFork = Os().fork;
  Os().fork = [] {
    ++forks;
    return realFork();
  };
  SetTimeout("2");
  host.Write("/proc/self/mountinfo", local);
  EXPECT_EQ(Read(), "/|ext4|local|/dev/sda1|0\n/run|tmpfs|local|t|0\n");
  EXPECT_EQ(forks, 0);
  host.Write("/proc/self/mountinfo", local + "3 1 0:7 / /f rw - fuse.own f rw\n");
  EXPECT_EQ(Read(), "/|ext4|local|/dev/sda1|0\n/run|tmpfs|local|t|0\n/f|fuse.own|local|f|0\n");
  EXPECT_GT(forks, 0);
  // The first answer of a FAT after its mount is counted on the disk; udf may count each time.
  const std::string fat = "4 1 8:2 / /e rw - vfat e rw\n";
  const std::string again = "5 1 8:2 / /e rw - vfat e rw\n";
  const std::string udf = "6 1 8:4 / /u rw - udf u rw\n";
  const std::vector<std::pair<std::string, bool>> looks{{fat, true}, {fat, false},  {again, true},
                                                        {"", false}, {again, true}, {udf, true},
                                                        {udf, true}};
  for (const auto& [mount, waits] : looks) {
    forks = 0;
    host.Write("/proc/self/mountinfo", local + mount);
    EXPECT_NE(Read(), "");
    EXPECT_EQ(forks > 0, waits) << mount;
  }
}

TEST_F(ModernFileSystemTest, WhatCannotBeReadOrAskedIsTold) {
  const process_tree::HostTree host;
  EXPECT_EQ(Read() + Read(), "");
  EXPECT_EQ(Lines("The host has no such file, so its figures are 0. (/proc/self/mountinfo)"), 1U);

  const std::string good = "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n";
  host.Write("/proc/1/mountinfo", good + "no mount\n2 1 8:2 / /gone rw - ext4 /dev/sda2 rw");
  Os().statfs64 = [](const char* path, struct ::statfs64* figures) {
    figures->f_blocks = 1;
    errno = ESTALE;
    return std::string_view(path).ends_with("gone") ? -1 : 0;
  };
  EXPECT_EQ(Read(), "/|ext4|local|/dev/sda1|0\n");
  EXPECT_EQ(Lines("(/proc/1/mountinfo: columns of a mount)"), 1U);
  EXPECT_EQ(Lines("OS API(statfs). (en=116, arg1=/gone"), 1U);

  std::string many;
  for (int line = 0; line < 131'100; ++line) {
    many += "\n";
  }
  host.Write("/proc/1/mountinfo", good + many);
  EXPECT_EQ(Read(), "/proc/1/mountinfo has more than 131072 lines");
}

TEST_F(ModernFileSystemTest, ALineNeedsAllItsColumns) {
  MountLine line;
  for (const char* text : {"1 0 0:1 / / rw shared:1 master:2 - t s o", "1 0 0:1 / / rw - t s",
                           "1 0 0:1 / / rw - t "}) {
    EXPECT_TRUE(ParseMountLine(text, line)) << text;
    EXPECT_EQ(line.type, "t") << text;
  }
  using namespace std::string_view_literals;
  for (const std::string_view text :
       {"1 0 0:1 / / rw - t"sv, "1 0 0:1 / / rw shared:1 t s o"sv, "1 0 0:1 / x rw - t s o"sv,
        "x 0 0:1 / / rw - t s o"sv, "1 -1 0:1 / / rw - t s o"sv, "1 0 01 / / rw - t s o"sv,
        "1 0 0:4294967296 / / rw - t s o"sv, "1 0 0:1 / /\0 rw - t s o"sv, ""sv, "1"sv, "-"sv}) {
    EXPECT_FALSE(ParseMountLine(text, line)) << text;
  }
}

TEST_F(ModernFileSystemTest, EscapesAreThreeOctalDigits) {
  EXPECT_EQ(DecodeMountText("\\040a\\134040\\303\\244"), " a\\040\xc3\xa4");
  for (const char* text : {"\\", "\\04", "\\000", "\\400", "\\08x", "\\x41"}) {
    EXPECT_EQ(DecodeMountText(text), text);
  }
}

TEST_F(ModernFileSystemTest, AFirstMountThatAnotherCoversHidesWhatStandsOnIt) {
  const std::vector<MountEntry> mounts = ReachableMounts({{1, 1, 1, "/", "rootfs", "rootfs"},
                                                          {2, 1, 2, "/old", "t", "s"},
                                                          {3, 1, 3, "/", "ext4", "s"},
                                                          {4, 3, 4, "/old", "t", "s"}});
  ASSERT_EQ(mounts.size(), 2U);
  EXPECT_EQ(mounts[0].id, 3U);
  EXPECT_EQ(mounts[1].id, 4U);
}

TEST_F(ModernFileSystemTest, NoTableMakesTheSearchLongOrEndless) {
  EXPECT_TRUE(ReachableMounts({{1, 2, 1, "/", "t", "s"}, {2, 1, 2, "/", "t", "s"}}).empty());
  EXPECT_EQ(ReachableMounts({{1, 1, 1, "/", "t", "s"}, {7, 8, 2, "/x", "t", "s"}}).size(), 2U)
      << "it stands on one that is not told";
  std::vector<MountEntry> same;
  for (std::uint64_t place = 0; place < 40'000; ++place) {
    const bool isFirst = place % 2 == 0;
    same.push_back(
        {isFirst ? 1 : place + 1, isFirst ? 0U : 1U, place, "/" + std::to_string(place), "t", "s"});
  }
  EXPECT_EQ(ReachableMounts(std::move(same)).size(), 40'000U) << "one id for half of them";
}

TEST_F(ModernFileSystemTest, ARemoteSourceNamesHostAndPath) {
  struct Case {
    const char* type;
    const char* source;
    const char* host;
    const char* path;
  };
  for (const auto& [type, source, host, path] :
       {Case{"nfs", "server:/a:/b", "server", "/a:/b"}, Case{"nfs4", "server:/", "server", "/"},
        Case{"nfs", "[fe80::1%eth0]:/e", "[fe80::1%eth0]", "/e"},
        Case{"nfs", "server:/e]:x", "server", "/e]:x"},
        Case{"ceph", "m1:6789,m2:6789:/v", "m1:6789,m2:6789", "/v"},
        Case{"lustre", "10.0.0.1@tcp:/scratch", "10.0.0.1@tcp", "/scratch"},
        Case{"fuse.sshfs", "u@[::1]:dir", "[::1]", "dir"}, Case{"fuse.rclone", "r:", "r", ""},
        Case{"cifs", "//u@server/share/sub", "server", "/share/sub"},
        Case{"cifs", "//server", "server", ""},
        Case{"davfs", "https://dav.example.org/f", "dav.example.org", "/f"},
        Case{"fuse.s3fs", "s3fs", "", "s3fs"}, Case{"afs", "", "", ""}}) {
    EXPECT_TRUE(IsRemoteType(type)) << type;
    const RemotePlace place = SplitRemoteSource(type, source);
    EXPECT_EQ(place.host, host) << source;
    EXPECT_EQ(place.path, path) << source;
  }
  for (const char* type : {"ext4", "gfs2", "fuse.ntfs", "fuse.nfs", "sshfs", "fuse.", ""}) {
    EXPECT_FALSE(IsRemoteType(type)) << type;
  }
}

}  // namespace
