#include <iomanip>
#include <stdexcept>

#include "collect/accounting/AcctRecord.h"
#include "node/ReportRegistry.h"
#include "process/ApplicationMonitor.h"
#include "tests/process/ProcessRecordFixture.h"
#include "tests/scripted/Golden.h"
#include "tests/support/TempFolder.h"

namespace {

constexpr const char* kWeb =
    "workgroup = web\nusers = www, nobody\nprograms = httpd\nregexp = {Programs_02=^http}\n"
    "arguments_02 = \"-D FOREGROUND\",\"x y\"\n";

class WGRPrecordTest : public ProcessRecordFixture {
 protected:
  using Rows = std::map<std::string, recordPI_WGRP>;

  void SetUp() override {
    ProcessRecordFixture::SetUp();
    m_builder.SetWorkgroupFile(m_folder.Path() / "wgfile");
    ReadFile(kWeb);
  }
  void ReadFile(const std::string& text) {
    std::ofstream(m_folder.Path() / "wgfile") << text;
    ASSERT_EQ(m_builder.Init(), nullptr);
  }
  void AddShell(int pid, long userTicks) {
    AddProcess({.pid = pid,
                .userTicks = userTicks,
                .startTicks = 900'000,
                .name = "bash",
                .commandLine = ""});
  }
  /// The rows of one batch, in which process 10 has what no file tells of it.
  Rows Build(Asker& asker, std::uint32_t reads = 0, std::uint32_t writes = 0,
             std::uint32_t kbytes = 0, std::uint32_t swaps = 0, std::uint32_t switches = 0) {
    asker.NextAnswer();
    Collect();
    for (Process& process : *m_collector.GetProcess()) {
      if (process.pid == 10) {
        process.reads = reads;
        process.writes = writes;
        process.ioKbytes = kbytes;
        process.swaps = swaps;
        process.contextSwitches = switches;
      }
    }
    EXPECT_EQ(m_builder.Build_WGRP(&asker.event, &asker.request), nullptr);
    Rows rows;
    for (const CMBRecord* record : asker.event.m_records) {
      const auto* row = static_cast<const recordPI_WGRP*>(record->GetRecStart());
      rows[row->workgroup.c_str()] = *row;
    }
    return rows;
  }

  TempFolder m_folder;
  Asker m_schedule{"WGRP", '4', {.realtime = 0, .calcRates = 1}};
  Asker m_look{"WGRP", '4', {.realtime = 1, .calcRates = 1}};
};

TEST_F(WGRPrecordTest, ThreePassesByteForByte) {
  const std::filesystem::path fixture = std::filesystem::path(QMT_TEST_DIR) / "fixtures/WGRP";
  AddProcess(Server(10, 1, 500, 300));
  AddProcess(Server(11, 1, 100, 50));
  AddShell(20, 100);
  EXPECT_TRUE(Build(m_schedule, 10, 5, 100, 1, 7).empty()) << "the first pass only lays the base";
  EXPECT_EQ(Lines("Created 2 WGRP record(s)."), 1U);

  s_now += 10;
  AddProcess(Server(10, 1, 900, 400));
  m_host.Remove("/proc/11");
  auto young = Server(12, 1, 200, 0);
  young.startTicks = 1'000'500;
  AddProcess(young);
  AddShell(20, 150);
  for (int i = 0; i < 2; ++i) {
    const recordPI_WGRP now = Build(m_look, 40, 25, 300, 3, 57)["web"];
    EXPECT_EQ(now.userCpu, (tagUTIME{12, 0})) << "5.00 + 1.00 + 6.00 since; no look counts";
    EXPECT_EQ(now.interval, 1010U + 5U);
  }
  Rows rows = Build(m_schedule, 40, 25, 300, 3, 57);
  ExpectGolden(&rows["web"], sizeof(recordPI_WGRP), fixture / "second.tsv");
  EXPECT_EQ(rows["Other"].cpuPercentCopy, 5.0F);

  s_now += 10;
  AddProcess(Server(10, 1, 1000, 450));
  m_host.Remove("/proc/12");
  m_host.Remove("/proc/20");
  rows = Build(m_schedule, 40, 25, 300, 3, 57);
  ExpectGolden(&rows["web"], sizeof(recordPI_WGRP), fixture / "third.tsv");
  EXPECT_EQ(rows["Other"].processCount, 0U);

  // The number of a busy process in other hands, in the same second.
  AddShell(10, 2);
  rows = Build(m_schedule);
  EXPECT_EQ(rows["Other"].userCpu, tagUTIME{});
  EXPECT_EQ(rows["Other"].cpuPercent + rows["Other"].readsPerSec, 0.0F);
}

TEST_F(WGRPrecordTest, LooksWithoutRatesCompareWithTheLastAnswer) {
  Asker look("WGRP", '4', {.realtime = 1, .calcRates = 0});
  AddProcess(Server(10, 1, 500, 300));
  AddShell(20, 4'320'000'000);
  Rows rows = Build(look, 10, 5, 30);
  EXPECT_EQ(rows["Other"].userCpu, (tagUTIME{43'200'000, 0})) << "500 days, beyond 32 bits";
  recordPI_WGRP row = rows["web"];
  EXPECT_EQ(row.cpuPercent + row.avgIoKbytes, 0.0F);
  s_now += 4;
  AddProcess(Server(10, 1, 600, 400));
  row = Build(look, 14, 7, 60)["web"];
  EXPECT_EQ(row.cpuPercentCopy, 50.0F);
  EXPECT_EQ(row.cpuPercent, 25.0F);
  EXPECT_EQ(row.avgIoKbytes, 5.0F) << "30 / 6";
  EXPECT_EQ(row.totalIoOpsPerSec, 21.0F);
  EXPECT_EQ(row.interval, 1'700'000'004U);
}

TEST_F(WGRPrecordTest, AnEndedProcessCountsInOnePassOnly) {
  AddShell(20, 1);
  Build(m_schedule);
  Acct acct;
  acct.uid = acct.gid = 33;
  acct.beginTime = 1'699'999'990;
  acct.userTime = {3, 0};
  acct.elapsedTime = {12, 0};
  m_collector.GetAcct()->assign(1, acct);
  for (const std::uint32_t count : {1U, 0U}) {
    s_now += 10;
    const recordPI_WGRP row = Build(m_schedule)["web"];
    EXPECT_EQ(row.processCount, count);
    EXPECT_EQ(row.userCpu, (tagUTIME{count == 1 ? 3 : 0, 0}));
  }
}

TEST_F(WGRPrecordTest, AnEndedProcessIsKnownAtTheNextPass) {
  AddShell(20, 1);
  Build(m_schedule);
  Acct acct;
  acct.uid = acct.gid = 33;
  acct.beginTime = 1'699'999'990;
  for (const int seconds : {3, 5}) {
    acct.userTime = {seconds, 0};
    acct.elapsedTime = {seconds * 4, 0};
    m_collector.GetAcct()->assign(1, acct);
    s_now += 10;
    EXPECT_EQ(Build(m_schedule)["web"].userCpu, (tagUTIME{seconds == 3 ? 3 : 2, 0}));
  }
}

TEST_F(WGRPrecordTest, NamesThatAgreeInTheirFieldAreCountedApart) {
  const std::string shown(29, 'w');
  ReadFile("workgroup = " + shown + "1\nprograms = httpd\nworkgroup = " + shown +
           "2\nprograms = bash\n");
  AddProcess(Server(10, 1, 500, 300));
  AddShell(20, 100);
  Build(m_schedule);
  s_now += 10;
  AddProcess(Server(10, 1, 900, 300));
  AddShell(20, 300);
  Build(m_schedule);
  std::string seconds;
  for (const CMBRecord* record : m_schedule.event.m_records) {
    const auto* row = static_cast<const recordPI_WGRP*>(record->GetRecStart());
    seconds += std::to_string(static_cast<tagUTIME>(row->userCpu).seconds) + " ";
  }
  EXPECT_EQ(seconds, "0 4 2 ") << "\"Other\" and the two";
}

TEST_F(WGRPrecordTest, PrintsWhatItDoesWhereThatIsTurnedOn) {
  AddProcess(Server(10, 1, 500, 300));
  AddShell(20, 100);
  ReadFile("workgroup = w\x1b\nprograms = httpd\n");
  for (const bool isOn : {false, true}) {
    g_processTraceOn = isOn ? 1 : 0;
    ::testing::internal::CaptureStdout();
    Build(m_look);
    std::istringstream lines(::testing::internal::GetCapturedStdout());
    g_processTraceOn = 0;
    std::set<std::string> texts;
    for (std::string line; std::getline(lines, line);) {
      std::tm time{};
      std::istringstream(line.substr(0, 19)) >> std::get_time(&time, "%Y-%m-%d %H:%M:%S");
      time.tm_isdst = -1;
      EXPECT_EQ(std::mktime(&time), s_now) << line;
      EXPECT_TRUE(texts.insert(line.substr(19)).second) << line;
    }
    const std::set<std::string> expected{
        " process list of 2 taken", " workgroup \"w?\" takes process 10",
        " workgroup \"Other\" takes process 20", " record WGRP 0 built", " record WGRP 1 built"};
    EXPECT_EQ(texts, isOn ? expected : std::set<std::string>{});
  }
}

TEST_F(WGRPrecordTest, EachRecordThatIsBuiltIsPrinted) {
  ApplicationMonitor applications;
  ASSERT_EQ(applications.ReadText("A\tweb\n"), 1);
  m_builder.SetApplications(&applications);
  AddShell(20, 100);
  Collect();
  g_processTraceOn = 1;
  for (const auto& [name, builder] :
       std::initializer_list<std::pair<const char*, RecordBuilderFunction>>{
           {"PD", &RecordBuilder::BuildPD},
           {"PDI", &RecordBuilder::BuildPD_PDI},
           {"PDS", &RecordBuilder::BuildPD_PDS},
           {"PGM", &RecordBuilder::BuildPD_PGM},
           {"TERM", &RecordBuilder::BuildPD_TERM},
           {"USER", &RecordBuilder::BuildPD_USER},
           {"APP", &RecordBuilder::BuildPD_APP}}) {
    Asker look(name, '3', {.realtime = 1, .calcRates = 1});
    ::testing::internal::CaptureStdout();
    EXPECT_EQ((m_builder.*builder)(&look.event, &look.request), nullptr);
    const std::string printed = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find(" record " + std::string(name) + " 0 built\n"), std::string::npos)
        << name << ": " << printed;
  }
  g_processTraceOn = 0;
}

TEST_F(WGRPrecordTest, TwoListsShareTheirField) {
  struct Case {
    std::string plain, quoted, shown;
  };
  const std::string a(27, 'a');
  const Case cases[] = {{"x", "", "x"},
                        {"", "y", "y"},
                        {a, "y", a + ",y"},
                        {a, "yz", a + ",>"},
                        {a + "a", "y", a + "a>"},
                        {a + "aa", "y", a + "aa"},
                        {a + "aaa", "y", a + "a>"}};
  AddShell(20, 1);
  for (const Case& one : cases) {
    ReadFile("workgroup = w\nprograms = p\n" +
             (one.plain.empty() ? "" : "groups = " + one.plain + "\n") +
             (one.quoted.empty() ? "" : "groups_02 = \"" + one.quoted + "\"\n"));
    EXPECT_EQ(Build(m_look)["w"].groups.view(), one.shown);
  }
}

TEST_F(WGRPrecordTest, TheReportNamesTheRules) {
  AddProcess(Server(10, 1, 1, 1));
  AddShell(20, 1);
  ReadFile(std::string(kWeb) + "workgroup = also\nregexp = {Arguments_02=-k}\n");
  const auto ask = [](const ReportArguments& arguments) {
    Report report = (*ReportRegistry::Instance().Find("workgroups"))(arguments);
    report.rows.push_back(report.notes);
    std::string text;
    for (const auto& row : report.rows) {
      for (const std::string& cell : row) {
        text += cell + "|";
      }
    }
    return text;
  };
  const std::string web = "10|httpd|www|N/A gid = 33|web|users = www|also|";
  const std::string also = "10|httpd|www|N/A gid = 33|also|regexp = {Arguments_02=-k}|web|";
  const std::string shell = "20|bash|N/A uid = 0|N/A gid = 0|Other|||";
  EXPECT_EQ(ask({{"pid", "10"}}), also + web);
  EXPECT_EQ(ask({{"name", "Other"}, {"pid", "10"}}),
            "Process 10 is not in \"Other\" but in: also, web.|");
  EXPECT_EQ(ask({{"name", "web"}}),
            web + "1 process in it.|1 process in more than one workgroup.|");
  EXPECT_NE(ask({}).find(also + web), std::string::npos) << ask({});
  EXPECT_NE(ask({}).find(shell), std::string::npos) << ask({});
  for (const ReportArguments& wrong :
       {ReportArguments{{"name", "x"}}, {{"pid", "10x"}}, {{"pids", "10"}}, {{"pid", "4321"}}}) {
    EXPECT_THROW(ask(wrong), std::invalid_argument);
  }
}

}  // namespace
