#include "client/ask/Errors.h"
#include "tests/client/ClientHarness.h"
#include "tests/support/Testing.h"

namespace {

TEST(FirstStepsTest, AMistypedWordIsAnsweredByOneLine) {
  const struct {
    std::vector<std::string> words;
    const char* said;
  } cases[] = {
      {{"stauts"}, "no command \"stauts\"; did you mean \"status\"?"},
      {{"--color", "never", "Histroy", "PI"}, "no command \"Histroy\"; did you mean \"history\"?"},
      {{"alarms", "shwo", "3"}, "no command \"shwo\"; did you mean \"show\"?"},
      {{"config", "sett", "3", "x"}, "no command \"sett\"; did you mean \"set\"?"},
      {{"push", "statsu"}, "no command \"statsu\"; did you mean \"status\"?"},
      {{"get", "PI", "--colums", "x"}, "no option \"--colums\"; did you mean \"--columns\"?"},
      {{"get", "PI", "--jsn"}, "no option \"--jsn\"; did you mean \"--json\", \"--csv\"?"},
      {{"get", "--soket=x", "PI"}, "no option \"--soket\"; did you mean \"--socket\", \"--sort\"?"},
      {{"watch", "PI", "--evry", "1"}, "no option \"--evry\"; did you mean \"--every\"?"},
      {{"status", "-x"}, "no option \"-x\"; \"qmtctl help status\" tells more"},
      {{"alarms", "show"}, "ID is required; \"qmtctl help alarms show\" tells more"},
      {{"help", "stauts"}, "no command \"stauts\"; did you mean \"status\"?"},
      {{"help", "alarms", "shwo"}, "no command \"shwo\"; did you mean \"show\"?"},
      {{"help", "complete-records"}, "no command \"complete-records\""},
      {{"sta\x1btus"}, "no command \"sta\\x1Btus\"; did you mean \"status\"?"},
  };
  for (const auto& row : cases) {
    const Outcome run = RunProgram(QMTCTL_PATH, row.words);
    EXPECT_EQ(run.exit, kExitUsage) << row.said;
    EXPECT_EQ(run.err, std::string("qmtctl: ") + row.said + '\n');
    EXPECT_EQ(run.out, "");
  }
}

TEST(FirstStepsTest, HelpSaysWhatTheOptionSays) {
  const std::vector<std::string> cases[] = {{}, {"get"}, {"alarms"}, {"alarms", "show"}, {"help"}};
  for (const std::vector<std::string>& words : cases) {
    std::vector<std::string> help = words;
    std::vector<std::string> option = words;
    help.insert(help.begin(), "help");
    option.emplace_back("--help");
    const Outcome run = RunProgram(QMTCTL_PATH, help);
    EXPECT_EQ(run.exit, kExitDone);
    EXPECT_EQ(run.out, RunProgram(QMTCTL_PATH, option).out) << testing::PrintToString(words);
    EXPECT_THAT(run.out, testing::HasSubstr("Usage: qmtctl")) << testing::PrintToString(words);
  }
}

TEST(FirstStepsTest, WithoutAWordTenLinesTellWhatThereIs) {
  const Outcome run = RunProgram(QMTCTL_PATH, {});
  EXPECT_EQ(run.exit, kExitDone);
  EXPECT_EQ(run.err, "");
  std::istringstream lines(run.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_LE(line.size(), 80U) << line;
  }
  EXPECT_LE(count, 10);
  for (const char* word : {"get PI", "top", "history PI", "alarms", "status", "doctor", "help"}) {
    EXPECT_THAT(run.out, testing::HasSubstr(std::string("\n  qmtctl ") + word + ' ')) << word;
  }
}

}  // namespace
