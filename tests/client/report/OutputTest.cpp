#include "tests/client/report/KeptServer.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/Testing.h"

namespace {

namespace fs = std::filesystem;

class ReportOutputTest : public testing::Test {
 protected:
  Outcome Report(const std::string& output) {
    return RunProgram(QMTCTL_PATH, {"--socket", m_server.Path(), "report", "--records", "FSL",
                                    "--output", output});
  }
  /// The names in the folder of outputs.
  [[nodiscard]] std::size_t Entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(m_folder.Path()), fs::directory_iterator()));
  }

  ScratchFolder m_folder;
  fs::path m_out = fs::path(m_folder.Path()) / "report.md";
  KeptServer m_server{{{"FSL", {}}}, 60};
};

TEST_F(ReportOutputTest, AFileIsReplacedAndALinkToOneByAFile) {
  std::ofstream(m_out) << "old";
  ASSERT_EQ(::chmod(m_out.c_str(), 0600), 0);
  ASSERT_EQ(Report(m_out).exit, 0);
  EXPECT_THAT(FileText(m_out), HasSubstr("# Report on h\\<1"));
  EXPECT_EQ(fs::status(m_out).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  const fs::path kept = m_out.parent_path() / "kept";
  std::ofstream(kept) << "kept";
  fs::remove(m_out);
  fs::create_symlink(kept, m_out);
  ASSERT_EQ(Report(m_out).exit, 0);
  EXPECT_EQ(FileText(kept), "kept");
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(m_out)));
  EXPECT_EQ(Entries(), 2U);
}

TEST_F(ReportOutputTest, WhatIsNoFileIsLeftAloneBeforeTheDaemonIsAsked) {
  const fs::path target = m_out.parent_path() / "target";
  const auto makeLink = [&] { fs::create_symlink(target, m_out); };
  const struct {
    const char* what;
    std::function<void()> make;
  } cases[] = {
      {"pipe", [&] { ::mkfifo(m_out.c_str(), 0600); }},
      {"folder", [&] { fs::create_directory(m_out); }},
      {"link to a pipe", [&] { ::mkfifo(target.c_str(), 0600), makeLink(); }},
      {"link to a folder", [&] { fs::create_directory(target), makeLink(); }},
      {"link to a device", [&] { fs::create_symlink("/dev/null", m_out); }},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    fs::remove_all(m_out);
    fs::remove_all(target);
    one.make();
    const fs::file_type type = fs::symlink_status(m_out).type();
    const Outcome outcome = Report(m_out);
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_EQ(outcome.err, "qmtctl: " + m_out.string() + ": is no file that could be replaced\n");
    EXPECT_EQ(fs::symlink_status(m_out).type(), type);
  }
  EXPECT_EQ(m_server.Requests().size(), 0U);
}

TEST_F(ReportOutputTest, AFileThatCannotBeWrittenKeepsWhatItHeld) {
  std::ofstream(m_out) << "old";
  {
    const FileSizeLimit limit(16);
    const Outcome outcome = Report(m_out);
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.err, HasSubstr("can't be written"));
  }
  EXPECT_EQ(FileText(m_out), "old");
  EXPECT_EQ(Entries(), 1U) << "nothing is left behind";
}

}  // namespace
