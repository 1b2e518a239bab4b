#include "client/capture/GrowingFolder.h"

#include <sched.h>
#include <sys/fsuid.h>

#include "client/ask/Errors.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

void Fill(const fs::path& folder) {
  fs::create_directories(folder / "history/inner");
  std::ofstream(folder / "history/inner/file") << "kept";
}

std::string ProblemOf(const fs::path& path) {
  try {
    const GrowingFolder folder(path.string());
  } catch (const ClientError& error) {
    return error.what();
  }
  return "";
}

TEST(GrowingFolderTest, WhatOthersMayWriteToOrALinkLeadsToIsLeftAlone) {
  const TempFolder folder;
  const fs::path place = folder.Path() / "place";
  fs::create_directory(place);
  ASSERT_EQ(::chmod(place.c_str(), 0700), 0);
  fs::create_directory_symlink(place, folder.Path() / "link");
  EXPECT_EQ(ProblemOf(place), "");
  EXPECT_EQ(ProblemOf(place / "new/"), "");
  for (const char* name : {"link", "link/", "link/."}) {
    EXPECT_EQ(ProblemOf(folder.Path() / name),
              (folder.Path() / name).string() + ": this is no folder");
  }
  for (const ::mode_t mode : {0770U, 0707U, 01777U}) {
    ASSERT_EQ(::chmod(place.c_str(), mode), 0);
    EXPECT_NE(ProblemOf(place).find("others may write to this folder"), std::string::npos) << mode;
  }
  ASSERT_EQ(::chmod(place.c_str(), 0755), 0);
  Fill(place);
  EXPECT_NE(ProblemOf(place).find("it exists and is not empty"), std::string::npos);
  EXPECT_EQ(FileText(place / "history/inner/file"), "kept");
}

TEST(GrowingFolderTest, NothingIsWrittenOrRemovedBehindALinkThatTakesItsPlace) {
  const TempFolder top;
  const fs::path other = top.Path() / "other";
  const fs::path moved = top.Path() / "moved";
  Fill(other);
  {
    const GrowingFolder folder((top.Path() / "place").string());
    Fill(folder.Path());
    std::ofstream(folder.Path() + "/file") << "x";
    fs::create_directory_symlink(other, folder.Path() + "/history/link");
    fs::create_directory_symlink(other, folder.Path() + "/link");
    fs::rename(folder.Path(), moved);
    fs::create_directory_symlink(other, folder.Path());
    folder.Remove("history");
    std::ofstream(folder.Place() + "/late") << "x";
    EXPECT_EQ(folder.Named("no " + folder.Place() + "/late, " + folder.Place() + "0 or " +
                           folder.Place()),
              "no " + folder.Path() + "/late, " + folder.Place() + "0 or " + folder.Path());
    EXPECT_TRUE(fs::exists(moved / "late"));
    EXPECT_TRUE(fs::exists(moved / "file"));
    EXPECT_FALSE(fs::exists(moved / "history"));
  }
  EXPECT_TRUE(fs::is_empty(moved));
  EXPECT_EQ(FileText(other / "history/inner/file"), "kept");
}

TEST(GrowingFolderTest, AFileSystemThatGivesWhatIsMadeToOthersIsNamed) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make files of others";
  }
  const TempFolder top;
  const fs::path place = top.Path() / "place";
  ASSERT_EQ(::chmod(top.Path().c_str(), 0777), 0);
  ::setfsuid(65534);
  const std::string problem = ProblemOf(place);
  ::setfsuid(0);
  EXPECT_EQ(problem, place.string() +
                         ": others may write to a folder that is made here; name one "
                         "on another file system");
  EXPECT_FALSE(fs::exists(place));
}

TEST(GrowingFolderTest, AProcOfAnotherNamespaceIsNamed) {
  const TempFolder top;
  const fs::path place = top.Path() / "place";
  fs::create_directory(place);
  ASSERT_EQ(::chmod(place.c_str(), 0700), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    const bool isApart =
        ::unshare(CLONE_NEWPID) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWPID) == 0;
    const pid_t first = isApart ? ::fork() : -1;
    if (first == 0) {
      // Process 1 of the namespace that /proc is of has other descriptors, if any may be looked at.
      ::_exit(ProblemOf(place).ends_with(": /proc is not that of this process") ? 0 : 1);
    }
    int status = 0;
    ::_exit(first > 0 && ::waitpid(first, &status, 0) == first ? WEXITSTATUS(status) : 2);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "may make no namespace";
  }
  EXPECT_EQ(status, 0);
}

TEST(GrowingFolderTest, OneThatWasMadeGoesUnlessItIsKept) {
  const TempFolder top;
  const fs::path place = top.Path() / "place";
  { const GrowingFolder folder(place.string()); }
  EXPECT_FALSE(fs::exists(place));
  {
    GrowingFolder folder(place.string());
    Fill(place);
    folder.Keep();
  }
  EXPECT_EQ(FileText(place / "history/inner/file"), "kept");
}

}  // namespace
