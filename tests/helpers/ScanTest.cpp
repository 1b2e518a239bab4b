#include "helpers/ufss/Mounts.h"
#include "helpers/ufss/OwnerWalk.h"
#include "helpers/ufss/Results.h"
#include "support/HostPaths.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

std::uint64_t BlocksOf(const fs::path& path) {
  struct ::stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return static_cast<std::uint64_t>(status.st_blocks);
}

void Fill(const fs::path& path, std::size_t bytes) {
  std::ofstream(path) << std::string(bytes, 'x');
}

bool Always(const WalkProgress&) { return true; }

class OwnerWalkTest : public ::testing::Test {
 protected:
  bool Walk(const fs::path& root) {
    m_owners.clear();
    m_progress = {};
    return SumByOwner(root.string(), m_owners, m_progress, Always);
  }

  TempFolder m_folder;
  OwnerBlocks m_owners;
  WalkProgress m_progress;
};

TEST_F(OwnerWalkTest, LinksCountOnceAndAreNotFollowed) {
  const fs::path root = m_folder.Path() / "root";
  fs::create_directories(root / "a/b");
  fs::create_directory(m_folder.Path() / "outside");
  Fill(m_folder.Path() / "outside/big", 1 << 20U);
  Fill(root / "a/file", 10'000);
  fs::create_hard_link(root / "a/file", root / "a/b/second");
  fs::create_hard_link(root / "a/file", root / "third");
  fs::create_directory_symlink(m_folder.Path() / "outside", root / "a/link");
  fs::create_directory_symlink("..", root / "a/b/loop");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  ASSERT_TRUE(Walk(root));
  std::uint64_t blocks = 0;
  for (const char* name : {".", "a", "a/b", "a/file", "a/link", "a/b/loop", "pipe"}) {
    blocks += BlocksOf(root / name);
  }
  EXPECT_EQ(m_progress.blocks, blocks);
  EXPECT_EQ(m_owners, (OwnerBlocks{{::geteuid(), blocks}}));
  EXPECT_EQ(m_progress.directories, 3U);
  EXPECT_EQ(m_progress.files, 4U);
  EXPECT_EQ(m_progress.unread, 0U);
  EXPECT_FALSE(Walk(m_folder.Path() / "none"));
  EXPECT_FALSE(Walk(root / "a/file"));
}

TEST_F(OwnerWalkTest, OwnersAreToldApart) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  Fill(m_folder.Path() / "theirs", 100'000);
  ASSERT_EQ(::chown((m_folder.Path() / "theirs").c_str(), 4'000'000'000U, 7), 0);
  ASSERT_TRUE(Walk(m_folder.Path()));
  EXPECT_EQ(m_owners.at(4'000'000'000U), BlocksOf(m_folder.Path() / "theirs"));
  EXPECT_EQ(m_owners.at(0), BlocksOf(m_folder.Path()));
}

TEST_F(OwnerWalkTest, ATreeMayBeDeeperThanAPathIsLong) {
  // Each level is entered by itself, since the whole path is none that the kernel takes.
  const std::string name(200, 'd');
  int current = ::open(m_folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
  constexpr unsigned kDepth = 300;
  for (unsigned level = 0; level < kDepth; ++level) {
    ASSERT_EQ(::mkdirat(current, name.c_str(), 0700), 0);
    const int next = ::openat(current, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(current);
    current = next;
  }
  ::close(::openat(current, "bottom", O_CREAT | O_WRONLY, 0600));
  ::close(current);
  ASSERT_TRUE(Walk(m_folder.Path()));
  EXPECT_EQ(m_progress.directories, kDepth + 1);
  EXPECT_EQ(m_progress.files, 1U);
}

TEST_F(OwnerWalkTest, AMovedTreeCostsWhatCannotBeFoundAgain) {
  const fs::path root = m_folder.Path() / "root";
  for (const bool isParentMovedToo : {false, true}) {
    fs::remove_all(root);
    fs::remove_all(m_folder.Path() / "elsewhere");
    fs::create_directories(root / "a/b/c");
    fs::create_directories(m_folder.Path() / "elsewhere");
    m_progress = {};
    // While the walk is in "b", so that ".." leads out of the tree.
    const bool isWhole = SumByOwner(root, m_owners, m_progress, [&](const WalkProgress& progress) {
      std::error_code ignored;
      if (progress.directories == 4) {
        fs::rename(root / "a/b", m_folder.Path() / "elsewhere/b", ignored);
        if (isParentMovedToo) {
          fs::rename(root / "a", m_folder.Path() / "elsewhere/a", ignored);
        }
      }
      return true;
    });
    EXPECT_TRUE(isWhole);
    EXPECT_EQ(m_progress.directories, 4U);
    EXPECT_EQ(m_progress.unread, isParentMovedToo ? 1U : 0U);
  }
}

TEST_F(OwnerWalkTest, ALargeDirectoryCanBeLeftOnTheWay) {
  for (int i = 0; i < 2500; ++i) {
    std::ofstream(m_folder.Path() / std::to_string(i));
  }
  const auto files = [](const WalkProgress& progress) { return progress.files < 1000; };
  EXPECT_FALSE(SumByOwner(m_folder.Path(), m_owners, m_progress, files));
  EXPECT_GE(m_progress.files, 1000U);
  EXPECT_LT(m_progress.files, 2500U);
}

TEST_F(OwnerWalkTest, OtherMountsAreNotEntered) {
  if (::system("mountpoint -q /dev/shm && find /dev -xdev >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "needs a mount below another one";
  }
  ASSERT_TRUE(Walk("/dev"));
  const std::uint64_t directories = m_progress.directories;
  ASSERT_TRUE(Walk("/dev/shm"));
  EXPECT_GE(m_progress.directories, 1U);
  std::uint64_t found = 0;
  for (fs::recursive_directory_iterator entry("/dev"), end; entry != end; ++entry) {
    struct ::stat status {};
    struct ::stat top {};
    ASSERT_EQ(::lstat(entry->path().c_str(), &status), 0);
    ASSERT_EQ(::stat("/dev", &top), 0);
    if (S_ISDIR(status.st_mode) && status.st_dev != top.st_dev) {
      entry.disable_recursion_pending();
    } else if (S_ISDIR(status.st_mode)) {
      ++found;
    }
  }
  EXPECT_EQ(directories, found + 1);
}

TEST(ScanMounts, LocalOnesOnceEach) {
  const TempFolder host;
  SetHostRoot(host.Path().string());
  fs::create_directories(host.Path() / "data disk");
  fs::create_directories(host.Path() / "twin");
  fs::create_directories(host.Path() / "etc");
  std::ofstream(host.Path() / "etc/mtab")
      << "server:/x /twin nfs rw 0 0\n//server/x /twin cifs rw 0 0\nx /twin fuse.sshfs rw\n"
         "auto /twin autofs rw\n/dev/a /missing ext3 rw 0 0\n/dev/a /etc/mtab ext3 rw 0 0\n\n#\n"
         "garbage\n/dev/b /data\\040disk ext3 rw 0 0\n/dev/b /twin ext3 rw,bind 0 0\n";
  std::vector<LocalMount> mounts;
  EXPECT_TRUE(FindLocalMounts(HostPath("/etc/mtab"), mounts));
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts[0].mountPoint, "/data disk");
  EXPECT_EQ(mounts[0].path, (host.Path() / "data disk").string());
  EXPECT_FALSE(FindLocalMounts(HostPath("/etc"), mounts)) << "a folder";
  SetHostRoot("");
  mounts.clear();
  std::ofstream(host.Path() / "live") << "proc /proc proc rw 0 0\nsysfs /sys sysfs rw 0 0\n";
  EXPECT_TRUE(FindLocalMounts(host.Path() / "live", mounts));
  EXPECT_TRUE(mounts.empty()) << "without blocks";
}

TEST(ScanResults, APublishedScanTakesThePlaceOfTheFormer) {
  const TempFolder folder;
  const fs::path results = folder.Path() / "storage.d";
  fs::create_directories(folder.Path() / "storage.d.new/left/by a killed scan");
  {
    Results first(results);
    ASSERT_TRUE(first.Prepare());
    EXPECT_TRUE(first.Write("/", {{0, 8}, {4'000'000'000U, 16}}));
    EXPECT_TRUE(first.Write("/gone", {}));
    EXPECT_FALSE(fs::exists(results)) << "not before it is published";
    EXPECT_TRUE(first.Publish());
  }
  EXPECT_EQ(folder.Read("storage.d/:"), "0\troot\t8\n4000000000\t4000000000\t16\n");
  EXPECT_TRUE(fs::exists(results / ":gone"));
  {
    Results brokenOff(results);
    ASSERT_TRUE(brokenOff.Prepare());
    EXPECT_TRUE(brokenOff.Write("/", {{0, 9}}));
  }
  EXPECT_EQ(folder.Read("storage.d/:"), "0\troot\t8\n4000000000\t4000000000\t16\n");
  const fs::file_time_type old = fs::file_time_type::clock::now() - std::chrono::hours(48);
  fs::last_write_time(results, old);
  {
    Results second(results);
    ASSERT_TRUE(second.Prepare());
    EXPECT_TRUE(second.Write("/", {{0, 9}}));
    EXPECT_TRUE(second.Publish());
  }
  EXPECT_EQ(folder.Read("storage.d/:"), "0\troot\t9\n");
  EXPECT_FALSE(fs::exists(results / ":gone")) << "no longer mounted";
  EXPECT_FALSE(fs::exists(folder.Path() / "storage.d.new"));
  EXPECT_GT(fs::last_write_time(results), old + std::chrono::hours(47));
  EXPECT_TRUE(Results::CanName(std::string(255, 'x')));
  EXPECT_FALSE(Results::CanName(std::string(256, 'x')));
}

}  // namespace
