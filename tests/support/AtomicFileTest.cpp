#include "support/AtomicFile.h"

#include "tests/support/FileSizeLimit.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

class AtomicFileTest : public testing::Test {
 protected:
  void Make(const char* name, const char* text, fs::perms mode) const {
    std::ofstream(m_folder.Path() / name) << text;
    fs::permissions(m_folder.Path() / name, mode);
  }
  [[nodiscard]] struct ::stat StatusOf(const char* name) const {
    struct ::stat status {};
    EXPECT_EQ(::lstat((m_folder.Path() / name).c_str(), &status), 0) << name;
    return status;
  }

  const TempFolder m_folder;
  const std::string m_path = (m_folder.Path() / "file").string();
};

TEST_F(AtomicFileTest, TheNewFileHasWhatItsModelHasAndWhatStandsInTheWayGoes) {
  Make("model", "model", fs::perms{0604});
  Make("other", "other", fs::perms{0600});
  const bool isRoot = ::geteuid() == 0;
  if (isRoot) {
    ASSERT_EQ(::chown((m_folder.Path() / "model").c_str(), 12, 34), 0);
  }
  fs::create_symlink("other", m_path + ".new");
  std::string error;
  EXPECT_TRUE(ReplaceFile(m_path, "first", error));
  EXPECT_EQ(StatusOf("file").st_mode, S_IFREG | mode_t{0644});
  EXPECT_TRUE(ReplaceFileLike((m_folder.Path() / "model").string(), m_path, "second", error));
  EXPECT_TRUE(ReplaceFile(m_path, "third", error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(m_folder.Read("file"), "third");
  EXPECT_EQ(StatusOf("file").st_mode, S_IFREG | mode_t{0604});
  EXPECT_EQ(StatusOf("file").st_uid, isRoot ? 12U : ::geteuid());
  EXPECT_EQ(m_folder.Read("other"), "other");
  EXPECT_FALSE(fs::exists(m_path + ".new"));

  fs::create_symlink("file", m_folder.Path() / "link");
  const std::string link = (m_folder.Path() / "link").string();
  EXPECT_TRUE(ReplaceFile(BehindLinks(link), "fourth", error));
  EXPECT_TRUE(S_ISLNK(StatusOf("link").st_mode));
  fs::permissions(m_folder.Path() / "file", fs::perms{04604});
  EXPECT_TRUE(ReplaceFile(link, "fifth", error));
  EXPECT_EQ(StatusOf("link").st_mode, S_IFREG | mode_t{0604});
  EXPECT_EQ(StatusOf("link").st_uid, ::geteuid());
  EXPECT_EQ(m_folder.Read("file") + m_folder.Read("link"), "fourthfifth");
}

TEST_F(AtomicFileTest, AFailureLeavesTheOldFileAndTellsWhy) {
  Make("file", "old", fs::perms{0600});
  std::string error;
  const auto expectRefused = [&](const std::string& path, int reason) {
    error.clear();
    errno = 0;
    EXPECT_FALSE(ReplaceFile(path, std::string(3000, 'x'), error));
    EXPECT_EQ(errno, reason);
    EXPECT_TRUE(error.starts_with(path)) << error;
    EXPECT_EQ(m_folder.Read("file"), "old");
  };
  {
    const FileSizeLimit limit(2000);
    expectRefused(m_path, EFBIG);
  }
  fs::create_directory(m_folder.Path() / "folder");
  expectRefused((m_folder.Path() / "folder").string(), EISDIR);
  EXPECT_FALSE(fs::exists(m_path + ".new"));
  EXPECT_FALSE(fs::exists(m_folder.Path() / "folder.new"));
  fs::create_directory(m_path + ".new");
  expectRefused(m_path, EEXIST);
  expectRefused((m_folder.Path() / "none/file").string(), ENOENT);
}

}  // namespace
