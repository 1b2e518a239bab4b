#include "collect/filesystem/FileSystemSource.h"

#include <sched.h>
#include <sys/mount.h>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/filesystem/FileStatSource.h"
#include "support/ProductOptions.h"
#include "tests/collect/CollectFixture.h"
#include "tests/support/TempFolder.h"

namespace {

/// The kernel of the tests. The last parts of the mount points tell which of them it fails to
/// answer, and how.
int AnswerStatfs(const char* path, struct ::statfs64* figures) {
  const std::string name = std::filesystem::path(path).filename();
  if (name == "gone") {
    errno = ESTALE;
    return -1;
  }
  while (name == "hung") {
    ::pause();
  }
  if (name == "dying") {
    ::_exit(1);
  }
  figures->f_bsize = 4096;
  figures->f_frsize = 512;
  figures->f_blocks = 1000;
  figures->f_bfree = 400;
  figures->f_bavail = 300;
  figures->f_files = 50;
  figures->f_ffree = 20;
  std::memcpy(&figures->f_fsid, "12345678", 8);
  return 0;
}

class FileSystemSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    Os().statfs64 = AnswerStatfs;
    Os().uname = [](struct ::utsname* host) {
      std::strcpy(host->nodename, "here");
      return 0;
    };
    SetLimit("0");
  }
  void TearDown() override {
    SetLimit("0");
    CollectFixture::TearDown();
  }
  static void SetLimit(const char* seconds) {
    ProductOptions::Instance().Set("Node", "Mount Timeout", seconds);
  }
  /// A line for each row, or the error.
  static std::string Read() {
    std::vector<FileSystem> rows;
    FileSystemSourceUser source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    std::ostringstream out;
    for (const FileSystem& row : rows) {
      out << row.GetMountPoint() << ' ' << row.GetType() << ' ' << row.GetHost() << ' '
          << row.GetDevice() << ' ' << row.remote << '\n';
    }
    return error == nullptr ? out.str() : error->GetMessage();
  }

  process_tree::HostTree m_host;
};

TEST_F(FileSystemSourceTest, ReadsTheMountsThatHoldFiles) {
  const std::string longPath = "/" + std::string(9000, 'p');
  m_host.Write("/etc/mtab",
               "/dev/sda1 / ext3 rw 0 0\nproc /proc proc rw 0 0\nnfsd /proc/fs/nfsd nfsd rw 0 0\n"
               "# no mount\n\nx /procs y rw 0 0\n(pid12) /net autofs rw 0 0\nd /dev/pts devpts rw\n"
               "sysfs /sys sysfs rw 0 0\np /var/rpc rpc_pipefs rw 0 0\n"
               "server:/export:1 /mnt/a\\040b nfs rw 0 0\n[2001:db8::1]:/exp /v6 nfs rw 0 0\n"
               "[:/e /b nfs rw 0 0\n:/x /c a-type-of-thirty-two-characters-or\n"
               "/dev/sdb /gone ext3 rw 0 0\n\xff\x01\n/dev/sdc " +
                   longPath + " t " + std::string(100'000, 'o') + " 0 0\nlast /last t rw 0 0");
  const std::string before = "/ ext3 here /dev/sda1 0\n/procs y here x 0\n";
  const std::string after =
      "/mnt/a b nfs server /export:1 1\n/v6 nfs [2001:db8::1] /exp 1\n/b nfs [ /e 1\n/c "
      "a-type-of-thirty-two-characters "
      " /x 1\n  here \xff\x01 0\n" +
      longPath + " t here /dev/sdc 0\n/last t here last 0\n";
  const std::string early = "/sys sysfs here sysfs 0\n/var/rpc rpc_pipefs here p 0\n";
  for (const int variant : {1, 2, 3}) {
    g_kernelVariant = variant;
    EXPECT_EQ(Read(), before + (variant == 3 ? "" : early) + after) << variant;
  }
  EXPECT_EQ(Lines("The error occurred by OS API(statfs). (en=116, arg1=/gone, arg2="), 3U);
}

TEST_F(FileSystemSourceTest, FillsTheFigures) {
  m_host.Write("/etc/mtab", "/dev/sda1 / ext3 rw 0 0\n");
  for (const char* limit : {"0", "20"}) {  // asks itself, has a child ask
    SetLimit(limit);
    const FileSystem row = ReadAll<FileSystemSourceUser, FileSystem>().at(0);
    const std::array<std::uint64_t, 8> figures{row.blockSize,  row.fragmentSize, row.blocks,
                                               row.blocksFree, row.blocksAvail,  row.files,
                                               row.filesFree,  row.filesAvail};
    EXPECT_EQ(figures, (std::array<std::uint64_t, 8>{4096, 4096, 1000, 400, 300, 50, 20, 20}));
    EXPECT_EQ(std::memcmp(&row.fsid, "12345678", 8), 0);
  }
}

TEST_F(FileSystemSourceTest, FailsWithoutATableOrAName) {
  EXPECT_EQ(Read(), "Unable to open /etc/mtab");
  EXPECT_EQ(Lines("The error occurred by OS API(fopen). (en=2, arg1=/etc/mtab, arg2=r)"), 1U);
  std::filesystem::create_directories(m_host.Path("/etc/mtab"));
  EXPECT_EQ(Read(), "Unable to open /etc/mtab");
  std::filesystem::remove(m_host.Path("/etc/mtab"));
  m_host.Write("/etc/mtab", "");
  EXPECT_EQ(Read(), "");
  Os().uname = [](struct ::utsname*) {
    errno = EFAULT;
    return -1;
  };
  EXPECT_EQ(Read(), "(FileSystemSourceUser::FileSystemSourceUser) uname() failed! errno:14");
}

TEST_F(FileSystemSourceTest, AHundredThousandMountsAreReadToTheLast) {
  std::string table;
  for (int i = 0; i < 100'000; ++i) {
    table += "none /proc p 0 0\n";
  }
  m_host.Write("/etc/mtab", table + "/dev/sda1 / ext3 rw 0 0\n");
  EXPECT_EQ(Read(), "/ ext3 here /dev/sda1 0\n");
}

TEST_F(FileSystemSourceTest, WithALimitAMountThatHangsIsLeftOutOnceAndForAll) {
  m_host.Write("/etc/mtab", "a /hung t\nb /gone t\nc /dying t\nd /good t\nd /good t\n");
  SetLimit("1");
  static std::vector<pid_t> children;
  Os().fork = [] {
    const pid_t child = ::fork();
    if (child > 0) {
      children.push_back(child);
    }
    return child;
  };
  const std::string good = "/good t here d 0\n/good t here d 0\n";
  EXPECT_EQ(Read(), good);
  EXPECT_EQ(Lines("OS API(statfs). (en=116, arg1=/gone"), 1U);
  EXPECT_EQ(Lines("OS API(statfs). (en=5, arg1=/dying"), 1U);
  const auto lines = ScriptedNode::Instance().LinesWith("no answer within 1 seconds");
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].kind, kWarning);
  // None hangs on behind the agent's back.
  const auto hasEnded = [](pid_t child) {
    siginfo_t end{};
    const int rc = ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOHANG | WNOWAIT);
    return rc != 0 || end.si_pid != 0;
  };
  EXPECT_FALSE(children.empty());
  EXPECT_TRUE(
      WaitUntil([&] { return std::ranges::all_of(children, hasEnded); }, std::chrono::seconds(5)));
  // Where the system itself takes ended children there is none to wait for.
  ::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Read(), good);
  ::signal(SIGCHLD, SIG_DFL);
}

TEST_F(FileSystemSourceTest, OneChildAsksForAllMountsAndOthersOnlyBesideOneThatHangs) {
  static int forks = 0;
  Os().fork = [] {
    ++forks;
    return ::fork();
  };
  std::string table;
  std::string rows;
  for (int i = 0; i < 1000; ++i) {
    const std::string name = "/m" + std::to_string(i);
    table += "d " + name + " t\n";
    rows += name + " t here d 0\n";
  }
  SetLimit("2");
  m_host.Write("/etc/mtab", table);
  forks = 0;
  EXPECT_EQ(Read(), rows);
  EXPECT_EQ(forks, 1);
  // Eight servers that are gone cost their time once.
  std::string hung;
  for (int i = 0; i < 8; ++i) {
    hung += "d /" + std::to_string(i) + "/hung t\n";
  }
  m_host.Write("/etc/mtab", hung + table);
  forks = 0;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(), rows);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  EXPECT_EQ(Lines("no answer within 2 seconds"), 8U);
  EXPECT_GE(forks, 9);
  Os().fork = [] {
    errno = EAGAIN;
    return pid_t{-1};
  };
  EXPECT_EQ(Read(), "");
}

TEST_F(FileSystemSourceTest, FileStatLooksAtTheCallersPathsUntilOneFails) {
  m_host.Write("/a", "four");
  Collector collector;
  const std::array<const char*, 3> paths{"/a", "/missing", "/a"};
  const UtlErrorPtr error(collector.collect(COLLECT_FILE_STAT, paths));
  ASSERT_NE(error, nullptr);
  EXPECT_STREQ(error->GetMessage(), "FileStatUser::read()  Cannot stat file: /missingerrno: 2");
  struct ::stat status {};
  ASSERT_EQ(::stat(m_host.Path("/a").c_str(), &status), 0);
  ASSERT_EQ(collector.GetFileStat()->size(), 1U);
  const FileStat& row = collector.GetFileStat()->front();
  EXPECT_EQ(row.GetPath(), "/a");
  EXPECT_EQ(row.size, 99U);
  EXPECT_EQ(row.fileSize, 4);
  EXPECT_EQ(row.links, 1U);
  EXPECT_EQ(row.inode, static_cast<std::uint32_t>(status.st_ino));
  EXPECT_EQ(row.device, status.st_dev);
  EXPECT_EQ(row.mode, status.st_mode);
  EXPECT_EQ(row.modifyTime.seconds, status.st_mtime);
  EXPECT_EQ(collector.collect(COLLECT_FILE_STAT, 0), nullptr);
  EXPECT_TRUE(collector.GetFileStat()->empty());
  // The one category without a name in the traces, also where a failure ends nothing.
  EXPECT_EQ(collector.collect(COLLECT_FILE_STAT | COLLECT_CONTINUE_ON_ERROR, paths), nullptr);
  EXPECT_EQ(Lines("category collection") + Lines("Processing"), 0U);
}

TEST_F(FileSystemSourceTest, TheFirstProcessTellsTheMountsOfANamespaceElsewhere) {
  const std::string own = "/etc/mtab";
  const std::string ofFirst = "/proc/1/mounts";
  const auto table = [&] { return HostMountTable().substr(m_host.Path("/").string().size() - 1); };
  m_host.Write("/proc/self/ns/mnt", "");
  m_host.Write(ofFirst, "");
  EXPECT_EQ(table(), own) << "not to be compared";
  std::filesystem::create_directories(m_host.Path("/proc/1/ns"));
  std::filesystem::create_hard_link(m_host.Path("/proc/self/ns/mnt"),
                                    m_host.Path("/proc/1/ns/mnt"));
  EXPECT_EQ(table(), own) << "the same";
  m_host.Remove("/proc/1/ns/mnt");
  m_host.Write("/proc/1/ns/mnt", "");
  EXPECT_EQ(table(), ofFirst);
  m_host.Remove(ofFirst);
  EXPECT_EQ(table(), own) << "elsewhere, but not to be read";
}

TEST_F(FileSystemSourceTest, ReadsThisHost) {
  if (FileText("/etc/mtab").find(" / ") == std::string::npos) {
    GTEST_SKIP() << "the root is no mount";
  }
  SetHostRoot("");
  Os().statfs64 = ::statfs64;
  struct ::statfs64 before {};
  ASSERT_EQ(::statfs64("/", &before), 0);
  std::vector<FileSystem> rows;
  FileSystemSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  struct ::statfs64 after {};
  ASSERT_EQ(::statfs64("/", &after), 0);
  const auto row = std::ranges::find(rows, "/", &FileSystem::GetMountPoint);
  ASSERT_NE(row, rows.end());
  EXPECT_EQ(row->blocks, after.f_blocks);
  // Some file systems make room for files out of their free space.
  EXPECT_GE(row->files, std::min(before.f_files, after.f_files));
  EXPECT_LE(row->files, std::max(before.f_files, after.f_files));
}

TEST_F(FileSystemSourceTest, AMountNamespaceOfItsOwnHidesNothingOfTheHost) {
  struct ::stat first {};
  if (::stat("/proc/1/ns/mnt", &first) != 0) {
    GTEST_SKIP() << "may not look at process 1";
  }
  // Threads share a namespace, so it is a process that gets one of its own.
  const TempFolder folder;
  const std::string mounted = folder.Path() / "private";
  std::filesystem::create_directory(mounted);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", mounted.c_str(), "tmpfs", 0, nullptr) != 0) {
      ::_exit(2);
    }
    SetHostRoot("");
    Os().statfs64 = ::statfs64;
    std::vector<FileSystem> rows;
    FileSystemSourceUser source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    const bool isSeen = std::any_of(rows.begin(), rows.end(), [&](const FileSystem& row) {
      return row.GetMountPoint() == mounted;
    });
    ::_exit(error != nullptr || rows.empty() ? 3 : isSeen ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "may make no namespace";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
