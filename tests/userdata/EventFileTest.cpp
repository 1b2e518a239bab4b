#include "userdata/EventFile.h"

#include "tests/scripted/ScriptedNode.h"
#include "tests/userdata/DefinitionText.h"

namespace {

/// "logfile|id|regexp" or "-2" for each entry, a blank behind each.
std::string Entries(mondEvFile& file) {
  std::array<std::array<char, mondEvFile::kBufferSize>, 3> buffers;
  std::string text;
  for (int rc = 0; (rc = file.mondGetEvFileEntry(buffers[0].data(), buffers[1].data(),
                                                 buffers[2].data())) != -1;) {
    text += rc == 0 ? std::string(buffers[0].data()) + "|" + buffers[1].data() + "|" +
                          buffers[2].data() + " "
                    : std::to_string(rc) + " ";
  }
  return text;
}

TEST(EventFile, EntriesJoinTheirExpressions) {
  const std::string wide(1500, 'w');
  const DefinitionText text(
      "LogFile = /a\nid = one\nid = two\nregexp = a=b\nRegexp = c,\nd/i\nlogfile = /b\n"
      "logfile = /c\nother = x\nid = lost\nlogfile = /d\nid = " +
      wide + "\nregexp = " + wide + "\nregexp = " + wide + "\nlogfile = /e");
  mondEvFile file;
  ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
  const std::string cut = wide.substr(0, 1022);
  EXPECT_EQ("/a|two|a=b\tc,d/i /b|| /d|" + cut + "|" + cut + " ", Entries(file));
  EXPECT_EQ(
      "9: unknown keyword \"other\"; the entry \"/c\" of line 8 is dropped\n"
      "15: the last line does not end in a newline and is not read\n",
      FaultText(file.Faults()));
  const DefinitionText other("logfile = /f\n");
  ASSERT_EQ(0, file.mondInitFileAnalyze(other.Path().c_str()));
  EXPECT_EQ("/f|| ", Entries(file));
  EXPECT_TRUE(file.Faults().empty());
}

TEST(EventFile, KeywordsAreBoundedAndCheckedAgain) {
  ScriptedNode::Reset();
  g_msgLogLevel = 20;
  const DefinitionText text("logfile = /a\nabcdefghijklmno = x\nid = i\nlogfile = /b\n");
  mondEvFile file;
  ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
  EXPECT_EQ(nullptr, file.AddKeyword(nullptr));
  EXPECT_STREQ("abcdefghijklmno", file.AddKeyword("abcdefghijklmnop"));
  for (int i = 4; i < 128; ++i) {
    ASSERT_NE(nullptr, file.AddKeyword("more"));
  }
  EXPECT_EQ(nullptr, file.AddKeyword("one too many"));
  EXPECT_EQ("-2 /b|| ", Entries(file));
  EXPECT_EQ(1U, ScriptedNode::Instance()
                    .LinesWith("Invalid line found in file (" + text.Path() + ") at line (2)")
                    .size());
  EXPECT_EQ(1, ScriptedNode::Instance().CountMessages(10203));
}

}  // namespace
