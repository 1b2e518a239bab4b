#include "userdata/WorkgroupFile.h"

#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/userdata/DefinitionText.h"

namespace {

/// "NAME U(users) g(groups_02)... " for each entry, "-2 " for a refused one.
std::string Groups(mondWgFile& file) {
  std::string text;
  WorkGroup* next = nullptr;
  for (int rc = 0; (rc = file.mondGetWgFileEntry(&next)) != -1;) {
    if (rc != 0) {
      text += std::to_string(rc) + " ";
      continue;
    }
    const std::unique_ptr<WorkGroup> group(next);
    text += group->Name();
    const std::array<const char*, 7> lists{
        group->Users(),    group->Groups(),     group->Programs(),   group->Users02(),
        group->Groups02(), group->Programs02(), group->Arguments02()};
    for (std::size_t i = 0; i < lists.size(); ++i) {
      text += *lists[i] == '\0' ? "" : std::string(1, "UGPugpa"[i]) + "(" + lists[i] + ")";
    }
    text += " ";
  }
  return text;
}

class WorkgroupFile : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    mondWgFile::ResetLengthChecks();
  }
};

TEST_F(WorkgroupFile, Grammar) {
  const std::string w = "workgroup = w\n";
  const std::string full = "users = " + std::string(1019, 'x') + ",\n";  // 1028 bytes without '\n'
  struct Case {
    std::string text;
    std::string groups;
    std::string faults;  ///< lines of the faults
  };
  const std::string alike(29, 'n');
  for (const Case& c : std::initializer_list<Case>{
           // Lines.
           {"", "", ""},
           {w + "users = a,\n# c\n\n  b\n", "wU(a,b) ", ""},
           {w + "users = a,\n", "", "2"},
           {w + "users = a", "w ", "2"},
           {w + "# no end", "w ", ""},
           {w + "users =\n" + w + "= v\n" + w + "users\nWORKGROUP=x=y\r\n\t uSers = U\t\n",
            "x=yU(U) ", "2 4 6"},
           {"users = a\nbad\n" + w + "usr = a\nusers = b\nusr = c\nworkgroup = z\n", "z ",
            "1 2 4 6"},
           {w + full + std::string(1020, 'y') + "\n", "wU(" + std::string(28, 'x') + ">) ", ""},
           {w + full + std::string(1021, 'y') + "\nworkgroup = z\n", "z ", "3"},
           {w + "workgroup = " + std::string(2035, 'n') + "\n", "w " + std::string(2035, 'n') + " ",
            ""},
           {w + "workgroup = lost\nusers = " + std::string(2040, 'n') + "\nworkgroup = z\n", "w ",
            "3"},
           {w + std::string("users = a\0b\n", 12) + "workgroup = z\n", "z ", "2"},
           // Lists.
           {w + "users = a b\nusers = c , d\ngroups = \"a,b\"\n", "wU(a,b,c,d)G(\"a,b\") ", ""},
           {w + "users_02 = \"a,b\",\"c\"\"d\"\n", "wu(a,b,c\"d) ", ""},
           {w + "users_02 = a b\"c\"\nprograms_02 = \"a b\" ,c d,\"e f\"\n",
            "wu(a,b\"c\")p(a b ,c d,e f) ", ""},
           {w + "arguments_02 = \" a b \",c d \"e f\"\n", "wa(a b,c,d,e f) ", ""},
           {w + "users_02 = \"a\n" + w + "users_02 = \"a\"\"\n" + w + "users = ,,\n,\nx\n",
            "-2 -2 wU(x) ", "2 4"},
           {w + "users_02 = \"\"\n" + w + "users_02 = \",\"\n" + w + "users_02 = \" \",a\n",
            "-2 wu(,) wu(,a) ", "2 6 5"},
           // Clauses.
           {w + "regexp = {Users=ab.*},{Programs_02=\"x y\",\"z\"}, {groups=a b/i}\n",
            "wU(ab.*)G(a,b/i)p(x y,z) ", ""},
           {w + "regexp = {Arguments_02=\"a{1,2}\",b,\"c}d\"},{Users_02=x}\n",
            "wu(x)a(a{1,2},b,c}d) ", ""},
           {w + "regexp = Users=a\n" + w + "regexp = {Users a}\n" + w + "regexp = {Users=a\n" + w +
                "regexp = {Users=a} {Groups=b}\n" + w + "regexp = {Users=a}x\n" + w +
                "regexp = {Regexp=x}\n" + w + "regexp = {Workgroup=x}\n" + w +
                "regexp = {Users=}\n" + w + "regexp = {Users_02=}\n" + w +
                "regexp = {Users_02=\"a\n" + w + "regexp = {Users_02=\"a\"\"}\n" + w +
                "regexp = {User=a}\n",
            "-2 -2 -2 -2 -2 -2 -2 -2 -2 -2 -2 -2 ", "2 4 6 8 10 12 14 16 18 20 22 24"},
           {w + "regexp = {Users=[a,b}\nusers=c\n", "wU([a,b,c) ", "2"},
           {w + "workgroup = Other\n" + w, "w Other w ", "2 3"},
           {"workgroup = " + alike + "\nworkgroup = " + alike.substr(1) + "\nworkgroup = " + alike +
                "2\n",
            alike + " " + alike.substr(1) + " " + alike + "2 ", "3"}}) {
    const DefinitionText text(c.text);
    mondWgFile file;
    ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
    EXPECT_EQ(c.groups, Groups(file)) << c.text;
    std::string faults;
    for (const FileFault& fault : file.Faults()) {
      faults += (faults.empty() ? "" : " ") + std::to_string(fault.line);
    }
    EXPECT_EQ(c.faults, faults) << c.text << FaultText(file.Faults());
  }
}

TEST_F(WorkgroupFile, FaultsSayWhatIsWrong) {
  const std::string w = "workgroup = w\n";
  const std::string dropped = "; the workgroup \"w\" is dropped\n";
  const std::string alike(29, 'n');
  const struct {
    std::string text;
    std::string faults;  ///< the begin of them
  } cases[] = {
      {w + "users_02 = \"a\n", "2: the quote is not closed" + dropped},
      {w + "users_02 = \"\"\n", "2: there is no name in the list" + dropped},
      {w + "users_02 = \" \",a\n", "2: an item is blank\n"},
      {w + "regexp = x\n", "2: a clause does not begin with '{'" + dropped},
      {w + "regexp = {users=a},\nx\n",
       "3: the line that begins at 2: a clause does not begin with '{'" + dropped},
      {w + "regexp = {users}\n", "2: no '=' in a clause" + dropped},
      {w + "regexp = {color=x}\n", "2: unknown keyword \"color\" in a clause" + dropped},
      {w + "regexp = {users=x\n", "2: a clause is not closed by '}'" + dropped},
      {w + "regexp = {users=x}y\n", "2: something other than ',' stands behind a clause" + dropped},
      {w + "regexp = {workgroup=x}\n", "2: this keyword takes no names" + dropped},
      {w + "regexp = {users_02=}\n", "2: nothing stands behind the '='" + dropped},
      {w + "regexp = {users=(}\n", "2: the expression \"(\" does not compile: "},
      {"workgroup = " + alike + "1\nworkgroup = " + alike + "\n",
       "2: the names \"" + alike + "1\" and"},
      {w + w, "2: a second workgroup of the name \"w\" replaces the first\n"},
      {"workgroup = " + alike + "1\nworkgroup = " + alike + "2\n",
       "2: the names \"" + alike + "1\" and \"" + alike + "2\" agree in 29 characters"},
  };
  for (const auto& row : cases) {
    const DefinitionText text(row.text);
    mondWgFile file;
    ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
    Groups(file);
    EXPECT_EQ(row.faults, FaultText(file.Faults()).substr(0, row.faults.size())) << row.text;
  }
}

TEST_F(WorkgroupFile, Reports) {
  struct Case {
    std::string text;
    int numbered;  ///< with the copies for the common log
    std::string trace;
    std::size_t traces;
  };
  for (const Case& c : std::initializer_list<Case>{
           {"users = a\nbad\ngroups = b\n", 6, "Invalid line found in file - (PATH) at line (3) ",
            1},
           {"users = a\n", 2, "No valid entry found in the file (PATH)", 1},
           {"workgroup = w\nusers = a,\n", 0, "Invalid line", 0},
           {"workgroup = w\nbad\nusers = a\n", 4, "Invalid line found in file - (PATH)", 2},
           {"workgroup = w\n" + std::string(2048, 'x') + "\n", 2,
            "Failed to access the file or directory (PATH).", 1},
           {"workgroup = w\nusers = ,x\nusers_02 = \"\n", 1,
            "Invalid line found in file (PATH) at line (3)", 1},
           {"workgroup = w\nregexp = x\n", 1, "Invalid Regexp found in file (PATH) at line (2)",
            1}}) {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    const DefinitionText text(c.text);
    mondWgFile file;
    ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
    EXPECT_EQ("", Groups(file).find('w') == std::string::npos ? "" : "a group was made");
    std::string trace = c.trace;
    if (const std::size_t at = trace.find("PATH"); at != std::string::npos) {
      trace.replace(at, 4, text.Path());
    }
    EXPECT_EQ(c.numbered, ScriptedNode::Instance().CountMessages(10203)) << c.text;
    EXPECT_EQ(c.traces, ScriptedNode::Instance().LinesWith(trace).size()) << c.text;
  }
}

TEST_F(WorkgroupFile, OnlyRegularFilesAreOpened) {
  const TempFolder folder;
  ASSERT_EQ(0, ::mkfifo((folder.Path() / "fifo").c_str(), 0600));
  for (const std::string& path : {(folder.Path() / "fifo").string(), folder.Path().string(),
                                  (folder.Path() / "none").string(), std::string("/dev/zero")}) {
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    mondWgFile file;
    EXPECT_EQ(-1, file.mondInitFileAnalyze(path.c_str()));
    EXPECT_EQ("", Groups(file));
    EXPECT_EQ(0, file.Faults().at(0).line);
    const std::vector<LoggedLine> lines = ScriptedNode::Instance().LinesWith("QMTX10150-W");
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ(10, lines[0].level);
    EXPECT_EQ(204, lines[1].level);
    EXPECT_NE(std::string::npos, lines[0].text.find("arg1=" + path)) << lines[0].text;
  }
}

TEST_F(WorkgroupFile, MemoryAndFaultsStayBounded) {
  g_msgLogLevel = 0;
  std::string lines = "workgroup = w\n";
  while (lines.size() < 2 * mondFile::kMaxFileBytes) {
    lines += "workgroup\n";
  }
  const DefinitionText text("workgroup = first\n" + lines);
  mondWgFile file;
  ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
  EXPECT_EQ("first ", Groups(file));
  ASSERT_EQ(mondFile::kMaxFaults + 1, file.Faults().size());
  EXPECT_EQ("there are further faults, which are not listed", file.Faults().back().text);
}

TEST_F(WorkgroupFile, LengthIsTracedOnceForTheFirstItemOfAKind) {
  const std::string name(30, 'n');
  const DefinitionText text("workgroup = w\nusers = " + name + "\nusers = " + name +
                            "x\ngroups = g\ngroups = " + name + "\nworkgroup = v\nregexp = {" +
                            "Programs_02=" + name + "}\nusers = " + name + "\n");
  for (int pass = 0; pass < 2; ++pass) {
    mondWgFile file;
    ASSERT_EQ(0, file.mondInitFileAnalyze(text.Path().c_str()));
    Groups(file);
  }
  const auto count = [](const std::string& part) {
    return ScriptedNode::Instance().LinesWith(part).size();
  };
  const std::string end = " workgroup exceeded 30 characters. Name will be truncated";
  EXPECT_EQ(2U, count(end));
  EXPECT_EQ(1U, count("Name Users in w" + end));
  EXPECT_EQ(1U, count("Name Programs_02 in v" + end));
}

TEST_F(WorkgroupFile, ExamplesOfTheDocumentation) {
  const std::string fixtures = QMT_TEST_DIR "/fixtures/definitions/";
  const std::string doc = FileText(QMT_TEST_DIR "/../docs/workgroups.md");
  for (const std::string name : {"services", "patterns", "faulty"}) {
    const std::string path = fixtures + name + "/wgfile";
    const std::string example = FileText(path);
    ASSERT_FALSE(example.empty());
    EXPECT_NE(std::string::npos, doc.find("```\n" + example + "```\n")) << name;
    mondWgFile file;
    ASSERT_EQ(0, file.mondInitFileAnalyze(path.c_str()));
    Groups(file);
    EXPECT_EQ(name == "faulty" ? 5U : 0U, file.Faults().size()) << FaultText(file.Faults());
    for (const FileFault& fault : file.Faults()) {
      EXPECT_NE(std::string::npos,
                doc.find("| " + std::to_string(fault.line) + " | " + fault.text + " |"))
          << fault.text;
    }
  }
}

}  // namespace
