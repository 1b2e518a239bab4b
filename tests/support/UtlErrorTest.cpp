#include "support/UtlError.h"

#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/UtlTextLog.h"
#include "tests/support/TempFolder.h"

namespace {

TEST(UtlError, KeepsTextsAndTheLastPartOfTheFile) {
  EXPECT_STREQ(UtlError("a/b/Source.cpp", 7).GetFile(), "/Source.cpp");
  EXPECT_STREQ(UtlError("Source.cpp", 7).GetFile(), "Source.cpp");
  EXPECT_STREQ(UtlError(nullptr, 7).GetFile(), "NO FILE");
  EXPECT_STREQ(UtlError("f", 7).GetMessage(), "NO MESSAGE");

  std::string message = "first";
  UtlError error(message.c_str(), "f", 7);
  message.assign("other");
  EXPECT_STREQ(error.GetMessage(), "first");
  EXPECT_EQ(error.GetLine(), 7);
}

TEST(UtlError, ComposesItsMessageInAStream) {
  UtlError error("former", "f", 1);
  error.GetStream() << "size " << 12;
  EXPECT_STREQ(error.GetMessage(), "size 12");
  error.GetStream() << "";
  error.CloseStream();
  EXPECT_STREQ(error.GetMessage(), "");
}

TEST(UtlError, AssignmentTakesTheFileOnlyOverAFile) {
  const UtlError source("new", "dir/New.cpp", 9);
  UtlError withFile("old", "Old.cpp", 1);
  UtlError withoutFile("old", nullptr, 1);
  withFile.GetStream() << "half a message";
  withFile = source;
  withoutFile = source;
  EXPECT_STREQ(withFile.GetMessage(), "new");
  EXPECT_STREQ(withFile.GetFile(), "/New.cpp");
  EXPECT_EQ(withFile.GetLine(), 9);
  EXPECT_STREQ(withoutFile.GetFile(), "NO FILE");

  UtlError copy(source);
  EXPECT_STREQ(copy.GetMessage(), "new");
  EXPECT_STREQ(copy.GetFile(), "/New.cpp");
}

class UtlTextLogTest : public testing::Test {
 protected:
  UtlTextLogTest() {
    std::filesystem::create_directory(m_folder.Path() / "tmp");
    SetProductRoot(m_folder.Path().string());
    Os().getpwuid = [](uid_t) {
      static char name[] = "observer";
      static ::passwd user{};
      user.pw_name = name;
      return &user;
    };
    Os().time = [](std::time_t*) { return std::time_t{0}; };
  }
  ~UtlTextLogTest() override {
    SetProductRoot("");
    Os() = m_before;
  }
  [[nodiscard]] bool HasFile() const {
    return std::filesystem::exists(
        std::filesystem::symlink_status(m_folder.Path() / "tmp/logfile"));
  }

  TempFolder m_folder;
  OsCalls m_before = Os();
};

TEST_F(UtlTextLogTest, IsSilentUntilEnabled) {
  UtlError("lost", "f", 1).LogError("dir/Caller.cpp", 3);
  EXPECT_FALSE(HasFile());

  UtlTextLog log;
  log.Text() << "dropped";
  log.Entry(UtlTextLog::kSevere, "f", 1);
  log.SetEnabled(true);
  log.Text() << "kept";
  log.Entry(UtlTextLog::kMild, "f", 2);
  EXPECT_EQ(m_folder.Read("tmp/logfile").find("dropped"), std::string::npos);
  EXPECT_NE(m_folder.Read("tmp/logfile").find(": kept\n"), std::string::npos);
}

TEST_F(UtlTextLogTest, WritesEachSeverityUnderOneSeparator) {
  UtlTextLog::Instance().SetEnabled(true);
  UtlError error("50% of %s", "f", 1);
  error.LogError("dir/Caller.cpp", 3);
  error.LogWarning("Caller.cpp", 4);
  error.LogInfo("Caller.cpp", 5);
  UtlTextLog::Instance().SetEnabled(false);

  std::tm parts{};
  const std::time_t epoch = 0;
  ::localtime_r(&epoch, &parts);
  char time[32];
  std::strftime(time, sizeof time, "%d-%h-%Y %T", &parts);
  const std::string pid = std::to_string(::getpid());
  const auto entry = [&](const std::string& severity, const std::string& line) {
    return severity + " - observer/proc " + pid + "\t" + time + "\tCaller.cpp:" + line + "\n" +
           pid + ": 50% of %s\n";
  };
  EXPECT_EQ(m_folder.Read("tmp/logfile"), "====================\n" + entry("ERROR", "3") +
                                              entry("WARNING", "4") + entry("INFO", "5"));
}

TEST_F(UtlTextLogTest, NeverFollowsALinkAndWritesOnlyToAPlainFile) {
  const auto place = m_folder.Path() / "tmp/logfile";
  const auto victim = m_folder.Path() / "victim";
  std::ofstream(victim) << "untouched";
  std::filesystem::create_symlink(victim, place);
  UtlTextLog log;
  log.SetEnabled(true);
  log.Text() << "first";
  log.Entry(UtlTextLog::kSevere, "f", 1);
  EXPECT_EQ(m_folder.Read("victim"), "untouched");

  std::filesystem::remove(place);
  ASSERT_EQ(::mkfifo(place.c_str(), 0600), 0);
  log.Entry(UtlTextLog::kSevere, "f", 2);

  // Once the way is clear the log opens its file anew.
  std::filesystem::remove(place);
  log.Text() << "third";
  log.Entry(UtlTextLog::kNote, "f", 3);
  EXPECT_NE(m_folder.Read("tmp/logfile").find(": third\n"), std::string::npos);
}

}  // namespace
