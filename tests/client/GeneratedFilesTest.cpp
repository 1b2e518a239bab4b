#include "client/CommandView.h"
#include "client/Completion.h"
#include "client/ManPage.h"
#include "client/view/KeyHelp.h"
#include "tests/support/TempFolder.h"

namespace {

class GeneratedFilesTest : public ::testing::Test {
 protected:
  /// What Bash prints when it runs the text; "failed" if it ends with an error.
  std::string Bash(const std::string& text) const {
    std::ofstream(m_folder.Path() / "script") << text;
    const std::string command = "cd '" + m_folder.Path().string() + "' && bash script >out 2>&1";
    return std::system(command.c_str()) == 0 ? m_folder.Read("out") : "failed";
  }
  /// What the completion offers behind these words, the last of which is the one at the cursor.
  std::string Complete(const std::string& words) const {
    return Bash(
        BashCompletion(m_view) +
        "qmtctl() { case $1 in complete-labels) printf 'CPU %%\\nCPU Time\\n%s\\n' \"$*\";;\n" +
        "complete-applications) printf 'web one\\n$(touch hit)\\n';;\n" +
        "*) printf 'CPUP\\nPI\\n$(touch hit)\\n';; esac; }\n" + "COMP_WORDS=(" + words +
        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n" + "_qmtctl; echo \"${COMPREPLY[@]}\"\n");
  }
  /// Whether each command and long option of the tree stands in the text, by `form` of the option.
  void ExpectAll(const CommandView& command, const std::string& text, const std::string& dash) {
    for (const OptionView& option : command.options) {
      const std::string name = option.name.substr(2);
      EXPECT_NE(text.find(dash + name), std::string::npos) << name;
    }
    for (const CommandView& subcommand : command.subcommands) {
      EXPECT_NE(text.find(subcommand.name), std::string::npos) << subcommand.name;
      ExpectAll(subcommand, text, dash);
    }
  }

  const CommandView m_view = ProgramView();
  TempFolder m_folder;
};

TEST_F(GeneratedFilesTest, TellOfEveryCommandAndOption) {
  ExpectAll(m_view, BashCompletion(m_view), "--");
  ExpectAll(m_view, ZshCompletion(m_view), "--");
  ExpectAll(m_view, FishCompletion(m_view), " -l ");
  std::string page = ManPage(m_view);
  for (std::size_t at = page.find("\\-"); at != std::string::npos; at = page.find("\\-", at)) {
    page.erase(at, 1);
  }
  ExpectAll(m_view, page, "--");
  EXPECT_NE(page.find("schedule add\\fR \\fIRECORD\\fR"), std::string::npos) << "must be given";
  EXPECT_NE(page.find(" [\\fB--color\\fR \\fIWHEN\\fR]"), std::string::npos) << "may be given";
  EXPECT_EQ(page.find("complete-records"), std::string::npos) << "hidden";
  const std::string docs = FileText(std::string(QMT_TEST_DIR) + "/../docs/qmtctl.md");
  for (const KeyHelp& help : AllKeyHelp()) {
    const std::string keys = help.keys;
    const std::string row = keys.empty() ? "| **" + std::string(help.text) + "** | |\n"
                                         : "| `" + keys + "` | " + help.text + " |\n";
    EXPECT_NE(docs.find(row), std::string::npos) << row;
    EXPECT_NE(page.find(std::string(help.keys) + (*help.keys == '\0' ? "" : "\\fR\n") + help.text),
              std::string::npos)
        << help.text;
  }
}

TEST_F(GeneratedFilesTest, BashOffersWhatMayStandThere) {
  const struct {
    const char* words;
    const char* offered;
  } cases[] = {{"qmtctl his", "history\n"},
               {"qmtctl top --by m", "memory\n"},
               {"qmtctl --color a", "auto always\n"},
               {"qmtctl app s", "set\n"},
               {"qmtctl app set --k", "--kind\n"},
               {"qmtctl app set --kind c", "command-line\n"},
               {"qmtctl get --ra", "--raw\n"},
               {"qmtctl get C", "CPUP\n"},
               {"qmtctl --color never schedule add P", "PI\n"},
               {"qmtctl get '$'", "\\$\\(touch\\ hit\\)\n"},
               {"qmtctl get CPUP --sort CPU\\\\\\ T", "CPU\\ Time\n"},
               {"qmtctl history CPUP --plot complete",
                "complete-labels\\ --\\ qmtctl\\ history\\ CPUP\\ --plot\\ complete\n"},
               {"qmtctl app delete we", "web\\ one\n"},
               {"qmtctl app set '$'", "\\$\\(touch\\ hit\\)\n"},
               {"qmtctl app add we", "\n"},
               {"qmtctl help wat", "watch\n"},
               {"qmtctl help alarms ru", "rules\n"},
               {"qmtctl check scr", "script\n"},
               {"qmtctl history CPUP --since \"\"", "\n"}};
  for (const auto& row : cases) {
    EXPECT_EQ(Complete(row.words), row.offered) << row.words;
  }
  EXPECT_FALSE(std::filesystem::exists(m_folder.Path() / "hit")) << "a name is never run";
}

TEST_F(GeneratedFilesTest, ThePageIsSound) {
  if (std::system("command -v groff >/dev/null") != 0) {
    GTEST_SKIP() << "no groff";
  }
  std::ofstream(m_folder.Path() / "page.1") << ManPage(m_view);
  EXPECT_EQ(Bash("groff -man -ww -Tascii page.1 2>&1 >/dev/null"), "");
}

}  // namespace
