#include <archive.h>
#include <archive_entry.h>

#include "client/ask/Errors.h"
#include "client/capture/Archive.h"
#include "tests/support/TempFolder.h"

namespace {

struct ArchiveItem {
  std::string name;
  unsigned kind = AE_IFREG;
  std::string text = {};  ///< the content, or where a link leads
  bool isHardLink = false;
};

void WriteArchive(const std::string& file, const std::vector<ArchiveItem>& items) {
  ::archive* archive = ::archive_write_new();
  ::archive_write_set_format_pax(archive);
  ::archive_write_add_filter_zstd(archive);
  ASSERT_EQ(::archive_write_open_filename(archive, file.c_str()), ARCHIVE_OK);
  for (const ArchiveItem& item : items) {
    ::archive_entry* entry = ::archive_entry_new();
    ::archive_entry_set_pathname(entry, item.name.c_str());
    ::archive_entry_set_filetype(entry, item.kind);
    ::archive_entry_set_perm(entry, 0777);
    const bool isFile = item.kind == AE_IFREG && !item.isHardLink;
    ::archive_entry_set_size(entry, isFile ? static_cast<la_int64_t>(item.text.size()) : 0);
    if (item.isHardLink) {
      ::archive_entry_set_hardlink(entry, item.text.c_str());
    } else if (item.kind == AE_IFLNK) {
      ::archive_entry_set_symlink(entry, item.text.c_str());
    }
    ASSERT_EQ(::archive_write_header(archive, entry), ARCHIVE_OK) << item.name;
    if (isFile) {
      ::archive_write_data(archive, item.text.data(), item.text.size());
    }
    ::archive_entry_free(entry);
  }
  ::archive_write_free(archive);
}

/// A folder "in" to unpack to, and beside it all that must stay as it is.
class UnpackArchiveTest : public ::testing::Test {
 protected:
  UnpackArchiveTest() {
    std::filesystem::create_directory(m_folder.Path() / "in");
    std::ofstream(m_folder.Path() / "outside") << "untouched";
  }
  [[nodiscard]] std::string Path(const char* name) const {
    return (m_folder.Path() / name).string();
  }
  /// What is wrong with the file, or nothing.
  [[nodiscard]] std::string Unpack(const UnpackLimits& limits = {}) const {
    try {
      UnpackArchive(Path("file"), std::filesystem::canonical(Path("in")).string(), limits);
    } catch (const ClientError& error) {
      return error.what();
    }
    return "";
  }
  void ExpectNothingOutside() const {
    EXPECT_EQ(m_folder.Read("outside"), "untouched");
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name == "in" || name == "outside" || name == "file") << name;
    }
  }

  TempFolder m_folder;
};

TEST_F(UnpackArchiveTest, WhatWasPackedIsThereAgain) {
  std::filesystem::create_directories(Path("source/a/b"));
  std::ofstream(Path("source/a/b/\xc3\xa9\xff")) << std::string(300'000, 'x');
  std::ofstream(Path("source/empty"));
  PackFolder(Path("source"), Path("file"));
  EXPECT_EQ(Unpack(), "");
  EXPECT_EQ(m_folder.Read("in/a/b/\xc3\xa9\xff"), std::string(300'000, 'x'));
  EXPECT_EQ(std::filesystem::file_size(Path("in/empty")), 0U);
  EXPECT_THROW(PackFolder(Path("source"), Path("file")), ClientError);
}

TEST_F(UnpackArchiveTest, OnlyContentIsTakenFromAnEntry) {
  WriteArchive(Path("file"),
               {{"d", AE_IFDIR}, {"d/f", AE_IFREG, "text"}, {"d/l", AE_IFLNK, "../d/f"}});
  EXPECT_EQ(Unpack(), "");
  struct ::stat status {};
  ASSERT_EQ(::lstat(Path("in/d/f").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(std::filesystem::read_symlink(Path("in/d/l")), "../d/f");
}

TEST_F(UnpackArchiveTest, WhatLeadsOutOrIsNoFileIsNamed) {
  const std::string outside = Path("outside");
  const std::string longName(300, 'n');
  std::string longPath;
  while (longPath.size() < 5000) {
    longPath += "folder/";
  }
  const struct {
    std::vector<ArchiveItem> items;
    const char* words;
  } cases[] = {
      {{{"../outside", AE_IFREG, "x"}}, "\"../outside\" leads out"},
      {{{"a/../../outside", AE_IFREG, "x"}}, "leads out of the folder"},
      {{{outside, AE_IFREG, "x"}}, "leads out of the folder"},
      {{{"l", AE_IFLNK, outside}}, "\"l\" is a link that leads out"},
      {{{"a", AE_IFDIR}, {"a/l", AE_IFLNK, "../../outside"}}, "\"a/l\" is a link that leads out"},
      {{{"l", AE_IFLNK, ".."}, {"l/outside", AE_IFREG, "x"}}, "\"l\" is a link that leads out"},
      // Out by way of a link, which may come later.
      {{{"deep", AE_IFLNK, "."}, {"l", AE_IFLNK, "deep/deep/deep/../../../etc"}},
       "\"l\" is a link that leads out"},
      {{{"l", AE_IFLNK, "a/b/../../outside"}, {"a", AE_IFDIR}, {"a/b", AE_IFLNK, "../a"}},
       "\"l\" is a link that leads out"},
      {{{"a", AE_IFDIR}, {"l", AE_IFLNK, "a"}, {"l/f", AE_IFREG, "x"}},
       "\"l/f\" can't be unpacked"},
      {{{"h", AE_IFREG, outside, true}}, "\"h\" is a hard link"},
      {{{"f", AE_IFREG, "x"}, {"h", AE_IFREG, "f", true}}, "\"h\" is a hard link"},
      {{{"p", AE_IFIFO}}, "\"p\" is neither a file nor a folder"},
      {{{"c", AE_IFCHR}}, "\"c\" is neither a file nor a folder"},
      {{{"b", AE_IFBLK}}, "\"b\" is neither a file nor a folder"},
      {{{"f", AE_IFREG, "x"}, {"f", AE_IFREG, "y"}}, "\"f\" is there twice"},
      {{{"f", AE_IFREG, "x"}, {"./f", AE_IFREG, "y"}}, "\"f\" is there twice"},
      {{{"f", AE_IFREG, "x"}, {"f/g", AE_IFREG, "y"}}, "\"f/g\" can't be unpacked"},
      {{{longName, AE_IFREG, "x"}}, "has too long a name"},
      {{{longPath + "f", AE_IFREG, "x"}}, "has too long a name"},
  };
  for (const auto& row : cases) {
    WriteArchive(Path("file"), row.items);
    const std::string problem = Unpack();
    EXPECT_NE(problem.find(row.words), std::string::npos) << row.words << " <> " << problem;
    EXPECT_EQ(problem.find('\n'), std::string::npos);
    ExpectNothingOutside();
    std::filesystem::remove_all(Path("in"));
    std::filesystem::create_directory(Path("in"));
  }
}

TEST_F(UnpackArchiveTest, TheLimitsHold) {
  const std::vector<ArchiveItem> two{{"a", AE_IFREG, std::string(600, 'x')},
                                     {"b", AE_IFREG, std::string(600, 'x')}};
  const std::vector<ArchiveItem> deep{
      {"a/b/c", AE_IFREG, "x"}, {"a", AE_IFDIR}, {"a/d", AE_IFREG, "x"}};
  const std::vector<ArchiveItem> names{{"ab", AE_IFREG}, {"cd/ef", AE_IFREG}, {"cd", AE_IFDIR}};
  const struct {
    const std::vector<ArchiveItem>& items;
    UnpackLimits limits;
    const char* words;  ///< null if it is unpacked
  } cases[] = {{two, {.bytes = 1000, .entries = 10}, "more than 1000 bytes"},
               {two, {.bytes = 2000, .entries = 1}, "more than 1 entries"},
               {two, {.bytes = 1200, .entries = 2}, nullptr},
               {deep, {.entries = 3}, "more than 3 entries"},
               {deep, {.entries = 4, .depth = 2}, nullptr},
               {deep, {.depth = 1}, "\"a/b/c\" stands more than 1 folders deep"},
               {names, {.nameBytes = 8}, "its names have more than 8 bytes"},
               {names, {.nameBytes = 9}, nullptr}};
  for (const auto& row : cases) {
    WriteArchive(Path("file"), row.items);
    const std::string problem = Unpack(row.limits);
    EXPECT_TRUE(row.words == nullptr ? problem.empty() : problem.ends_with(row.words)) << problem;
    std::filesystem::remove_all(Path("in"));
    std::filesystem::create_directory(Path("in"));
  }
}

TEST_F(UnpackArchiveTest, WhatIsCutShortOrNoArchiveIsTold) {
  std::string noise;
  for (unsigned value = 1; noise.size() < 400'000; value = value * 1103515245U + 12345U) {
    noise += static_cast<char>(value >> 16U);
  }
  WriteArchive(Path("file"), {{"a", AE_IFREG, noise}, {"b", AE_IFREG, noise}});
  const std::string whole = m_folder.Read("file");
  const struct {
    std::string text;
    const char* words;
  } cases[] = {{"", "no archive of a capture"},
               {"{\"format\": 1}\n", "no archive of a capture"},
               {whole.substr(0, 100), "no archive of a capture"},
               {whole.substr(0, whole.size() * 3 / 4), "the entry \"a\" is damaged or cut short"},
               {whole.substr(0, whole.size() - 10), "the entry \"b\" is damaged or cut short"},
               {noise, "no archive of a capture"}};
  for (const auto& row : cases) {
    std::ofstream(Path("file"), std::ios::trunc | std::ios::binary) << row.text;
    const std::string problem = Unpack();
    EXPECT_NE(problem.find(row.words), std::string::npos) << row.words << " <> " << problem;
    std::filesystem::remove_all(Path("in"));
    std::filesystem::create_directory(Path("in"));
  }
  std::filesystem::remove(Path("file"));
  EXPECT_NE(Unpack().find("No such file"), std::string::npos);
  ASSERT_EQ(::mkfifo(Path("file").c_str(), 0600), 0);
  EXPECT_NE(Unpack().find("no regular file"), std::string::npos);
}

TEST_F(UnpackArchiveTest, AnArchiveGetsItsNameAndReplacesNothing) {
  const RenameCall unknown = [](int, const char*, int, const char*, unsigned) {
    errno = EINVAL;
    return -1;
  };
  for (const RenameCall rename : {RenameCall{::renameat2}, unknown}) {
    std::ofstream(Path("grown")) << "all";
    NameArchive(Path("grown"), Path("new"), rename);
    EXPECT_EQ(FileText(Path("new")), "all");
    EXPECT_FALSE(std::filesystem::exists(Path("grown")));
    std::filesystem::rename(Path("new"), Path("grown"));
    EXPECT_THROW(NameArchive(Path("grown"), Path("outside"), rename), ClientError);
    EXPECT_EQ(FileText(Path("grown")) + FileText(Path("outside")), "alluntouched");
  }
}

}  // namespace
