#include <cstdio>
#include <regex>
#include <sstream>

#include "tests/support/TempFolder.h"
#include "tests/system/Daemon.h"

namespace {

/// What the client makes of a file in `folder`, which is the working directory.
Outcome Check(const TempFolder& folder, const std::string& words) {
  return RunCommand("cd '" + folder.Path().string() + "' && QMT_PRODUCT_ROOT=/none " +
                    QMTCTL_PROGRAM + " check --daemon " + QMTDMON_PROGRAM + " " + words + " 2>&1");
}

TEST(CheckFileTest, EachKindIsToldAndItsFaultsAreNamedByLine) {
  const std::string group = "workgroup = a\nusers = b\n";
  const struct {
    const char* name;
    std::string text;
    const char* options;
    int exitValue;
    std::string output;  ///< part of it; of a clean file there is none
  } cases[] = {
      {"groups", "# no = matter\n\n" + group, "", 0, ""},
      {"groups", "usrs = b\n" + group, "", 1, "groups:1: "},
      {"wgfile", group + "usrs = b\n", "", 1, "wgfile:3: "},
      {"groups", group + "regexp = {Users=[a}\n", "", 1, "groups:3: "},
      {"events", "LogFile = /var/log/a\nid = b\nregexp = c\n", "", 0, ""},
      {"events", "logfile = /var/log/a\nid =\n", "", 1, "events:2: "},
      {"events", "logfile = /var/*\nregexp = b\nregexp = [c\n", "", 1,
       "events:1: a '*' would part the value of \"logfile\"\nevents:3: the expression \"[c\""},
      {"other", "hello\n", "", 2, "the kind of this file can't be told"},
      {"other", "hello\n", "--kind event", 1, "other:1: "},
      {"qmtapp", "A\tweb\nP\t1\t1\t2\thttpd\n", "", 0, ""},
      {"qmtapp", "A\tweb\nP\tx\t1\t2\thttpd\n", "", 1, "qmtapp:2: "},
      {"optrecs.dat", "UFSS\n", "", 0, ""},
      {"optrecs.dat", std::string(70, 'x') + "\nUFSZ", "", 1, "dat:2: no optional record \"UFSZ\""},
      {"my.ini", "[Agent]\nMessages File =\n[Schedule]\nPI=60\n", "--kind ini", 0, ""},
      {"qmtagt.ini", "[Agent]\nMesages File=a\n", "", 1, "ini:2: no setting \"Mesages File\""},
      {"qmtagt.ini", "[Agent]\nUse Accounting Data=Yes\n", "", 1, "ini:2: \"Use Accounting Data\""},
      {"qmtagt.ini", "[Agent]\nUFSS background collection time=25:00\n", "", 1,
       "becomes \"00:00\""},
      {"qmtagt.ini", "[Agent]\nUser Defined Record DataMaxCount=0\n", "", 1, "becomes 1440"},
      {"qmtagt.ini", "[Agent]\nGuard Mode=660\n[Host]\nProfile=modern\n", "", 0, ""},
      {"qmtagt.ini", "[Host]\nProfile=Modern\n", "", 1, "ini:2: \"Modern\" is neither"},
      {"qmtagt.ini", "[Host]\nProfil=modern\n", "", 1, "no setting \"Profil\""},
      {"qmtagt.ini", "[Agent]\nGuard Mode=0777\n", "", 1, "so it means 0666"},
      {"qmtagt.ini", "[Agent]\nx\n[Node]\nMessage Log Level=x\n", "", 1,
       "ini:2: neither section, comment nor key = value (x)\nqmtagt.ini:4: \"Message Log Level\""},
      {"qmtagt.ini", "[Schedule]\nPI=0\n", "", 1, "ini:2: the seconds of PI"},
      {"qmtagt.ini", "[Schedule]\nPD=60\nUFSS=60\n[Node]\nHttp Records=PI\n", "", 0, ""},
      {"qmtagt.ini", "[Schedule]\nFOO=60\n", "", 1, "ini:2: no record \"FOO\""},
      {"qmtagt.ini", "[Schedule]\npi=60\n", "", 1, "ini:2: no record \"pi\"; did you mean \"PI\""},
      {"qmtagt.ini", "[Node]\nHttp Listen=0.0.0.0\n", "", 1, "ini:2: \"Http Listen\" must be"},
      {"qmtagt.ini", "[Node]\nHttp Listen=[::]:0\nHttp Records=PI, FOO PDI\n", "", 1,
       "ini:3: Http Records: the record FOO is unknown\nqmtagt.ini:3: Http Records: the record "
       "PDI"},
      {"qmtagt.ini", "[Agnet]\na=\x1b\n", "", 1, "ini:2: nothing reads the settings of [Agnet]"},
      {"qmtagt.ini", "[Agent]\nWorkgroup File=a\nworkgroup file=b\n", "", 1, "ini:3: \"workgroup"},
      {"qmtagt.ini", "[Interval Records/UPI]\nPipedir=/a\nPipdir=/b\n", "", 1, "ini:3: no setting"},
      {"qmtagt.ini", "[Push.b]\nUrl=http://h\nNames=node\n[Host]\nProfile=modern\n", "", 0, ""},
      {"qmtagt.ini", "[Push.b]\nUrl=http://h\nNames=node\n", "", 1,
       "ini:3: [Push.b]: the names of the node exporter take the host profile modern; nothing is"},
      {"qmtagt.ini", "[Push]\nUrl=http://h\nRecords=PDI FOO\n", "", 1,
       "ini:3: [Push]: there is no record to push: the record PDI has a row per process"},
      {"qmtagt.ini", "[Push]\nUrl=http://h\nToken File=a/t\n", "", 1,
       "ini:3: [Push]: \"Token File\": a/t is not there; nothing is sent before it is right"},
      {"qmtagt.ini", "[Alarms]\nAlertmanager=http://h?a\n", "", 1, "ini:2: [Alarms]: \"Alertm"},
      {"alarms", "alarm = a\nrecord = MEMD\ncondition = OOM Kills > 0\n", "", 0, ""},
      {"mine", "alarm = a\nrecord = MEMD\ncondition = OOM > 0\n", "", 1, "mine:3: MEMD has no"},
      {"qmtagt.ini", std::string("\0", 1), "", 2, "holds a zero byte"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name + (":\n" + row.text));
    const TempFolder folder;
    std::ofstream(folder.Path() / row.name, std::ios::binary) << row.text;
    const Outcome outcome = Check(folder, row.name + (" " + std::string(row.options)));
    EXPECT_EQ(outcome.exitValue, row.exitValue) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(row.output));
    EXPECT_EQ(outcome.output.empty(), row.exitValue == 0) << outcome.output;
    EXPECT_EQ(folder.Read(row.name), row.text);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
  }
}

TEST(CheckFileTest, TheManualsExamplesAreRightAndTheFaultyOneIsNot) {
  const struct {
    const char* manual;
    const char* kind;
    std::vector<int> exitValues;  ///< of its examples
  } cases[] = {{"workgroups.md", "workgroup", {0, 0, 1}},
               {"log-events.md", "event", {0, 0}},
               {"alarms.md", "alarms", {0}},
               {"applications.md", "application", {0}}};
  for (const auto& row : cases) {
    const std::string text = FileText(std::string(QMT_TEST_DIR "/../docs/") + row.manual);
    const std::string fence = "```\n";
    std::vector<int> exitValues;
    for (std::size_t at = text.find(fence); at < text.size();) {
      const std::size_t begin = at + fence.size();
      const std::size_t end = text.find(fence, begin);
      const TempFolder folder;
      std::ofstream(folder.Path() / "example") << text.substr(begin, end - begin);
      at = text.find(fence, end + fence.size());
      if (text[begin] == '$') {
        continue;  // what is typed at a shell
      }
      exitValues.push_back(Check(folder, std::string("example --kind ") + row.kind).exitValue);
    }
    EXPECT_EQ(exitValues, row.exitValues) << row.manual;
  }
}

TEST(CheckFileTest, TheShippedExampleIsSilent) {
  const TempFolder folder;
  std::filesystem::copy_file(QMT_TEST_DIR "/../packaging/wgfile", folder.Path() / "wgfile");
  const Outcome outcome = Check(folder, "wgfile");
  EXPECT_EQ(outcome.exitValue, 0);
  EXPECT_EQ(outcome.output, "");
}

TEST(CheckFileTest, TheShippedAlarmsAreRightOnceTheyAreSwitchedOnAndScheduled) {
  const std::string text = FileText(QMT_TEST_DIR "/../packaging/alarms");
  const std::regex line("(^|\n)# ([a-z]+ +=)");
  const std::string on = std::regex_replace(text, line, "$1$2");
  ASSERT_THAT(on, HasSubstr("\nalarm     = swap"));
  // Its alarm of full file systems leaves out what the alert does.
  const std::string rules = FileText(QMT_TEST_DIR "/../packaging/prometheus/qmtdmon.rules.yml");
  std::smatch kinds;
  ASSERT_TRUE(std::regex_search(rules, kinds, std::regex(R"(file_system_type=~"([^"]+)\")")));
  std::istringstream names(kinds[1].str());
  for (std::string name; std::getline(names, name, '|');) {
    EXPECT_THAT(on, HasSubstr("\nwhere     = File System Type != " + name + '\n'));
  }
  const TempFolder folder;
  std::ofstream(folder.Path() / "alarms") << on;
  EXPECT_EQ(Check(folder, "alarms").output, "");
  std::ofstream(folder.Path() / "qmtagt.ini")
      << "[Host]\nProfile = modern\n[Schedule]\nFSL = 60\nPRES = 60\nMEMD = 60\nDISK = 60\n"
         "SOCK = 60\nHOST = 60\n";
  const Outcome outcome = Check(folder, "alarms");
  EXPECT_EQ(outcome.exitValue, 1);
  EXPECT_THAT(outcome.output, HasSubstr("no schedule of qmtagt.ini collects the record APP"));
  EXPECT_EQ(std::ranges::count(outcome.output, '\n'), 1) << outcome.output;
}

TEST(CheckFileTest, WhatIsNoFileIsRefusedAtOnce) {
  const TempFolder folder;
  std::filesystem::create_directory(folder.Path() / "qmtapp");
  ASSERT_EQ(::mkfifo((folder.Path() / "qmtagt.ini").c_str(), 0600), 0);
  for (const char* words : {"qmtapp", "qmtagt.ini", "none", "/dev/null --kind event", "''",
                            "qmtapp --kind x", "qmtapp --daemon /none"}) {
    const Outcome outcome = Check(folder, words);
    EXPECT_EQ(outcome.exitValue, 2) << words;
    EXPECT_NE(outcome.output, "") << words;
  }
}

}  // namespace
