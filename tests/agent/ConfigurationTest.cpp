#include "agent/ConfigNames.h"
#include "agent/DayTime.h"
#include "agent/IniSettings.h"
#include "node/FigureRegistry.h"
#include "records/RecordLayouts.h"
#include "support/HostProfile.h"
#include "tests/agent/ConfigFixture.h"

namespace {

using Written = std::vector<std::pair<std::string, std::string>>;

const Written kDefaults{
    {"UFSS background collection time", "00:00"},
    {"Messages File", ""},
    {"Workgroup File", "wgfile"},
    {"Accounting File", "/var/adm/pacct"},
    {"Use Accounting Data", "Y"},
    {"Log Died Processes Data", "Y"},
    {"Truncate Accounting File", "N"},
    {"Microstate accounting", "N"},
    {"Device Name Cache", "N"},
    {"User Defined Record DataMaxCount", "1440"},
};

TEST(DayTimeTest, ATimeIsNeverOrHourAndMinute) {
  const struct {
    const char* text;
    int valid;
    const char* becomes;
  } cases[] = {
      {"Never", 1, "Never"},
      {"nEVER", 1, "Never"},
      {"never ", 0, "never "},
      {"", 0, ""},
      {"00:00", 1, "00:00"},
      {"23:59", 1, "23:59"},
      {"7:5", 1, "7:5"},
      {"07:05abc", 1, "07:05abc"},
      {" 7 : 5", 1, " 7 : 5"},
      {"7x5:", 1, "7x5:"},
      {"24:00", 0, "24:00"},
      {"23:60", 0, "23:60"},
      {"1200", 0, "1200"},
      {"12-30:00", 0, "12-30:00"},
      {"12:-1", 0, "12:-1"},
      {"12:30-", 0, "12:30-"},
      {"a:b", 0, "a:b"},
      {"12:", 0, "12:"},
      {":30", 0, ":30"},
      {":", 0, ":"},
      {"99999999999999:0", 0, "99999999999999:0"},
      {"12:99999999999999", 0, "12:99999999999999"},
      {"\xFF\x01:\x02", 0, "\xFF\x01:\x02"},
  };
  for (const auto& row : cases) {
    std::string text = row.text;
    EXPECT_EQ(row.valid, isValidTime(text.data())) << row.text;
    EXPECT_EQ(row.becomes, text);
  }
  EXPECT_EQ(0, isValidTime(nullptr));
}

class ConfigurationTest : public ConfigFixture {};

TEST_F(ConfigurationTest, AFirstStartWritesEveryKeyInOrder) {
  ProductOptions::Instance().Set("Acct", "UseAcct", "untouched");
  Node().ini[{"Node", "", kMountTimeoutLabel}] = "5";
  Ini(kGuardModeLabel) = "660";
  EXPECT_EQ(0, Init());
  EXPECT_EQ(kDefaults, Node().iniWritten);
  EXPECT_EQ("/data/wgfile", m_agent->GetWorkgroupFilePath());
  const struct {
    const char* section;
    const char* name;
    const char* value;
  } published[] = {
      {"Process", "Microstate", "N"},
      {"Messages", "FileName", ""},
      {"Acct", "FileName", "/var/adm/pacct"},
      {"Acct", "GetDiedProcess", "Y"},
      {"Acct", "Truncate", "N"},
      {"Device", "DeviceNameCache", "N"},
      {"Process", "AgentWaitTime", ""},
      {"Process", "CollectorWaitTime", ""},
      {"User", "DataMaxCount", "1440"},
      {"User", "GuardMode", "660"},
      {"Node", "Mount Timeout", "5"},
      {"Acct", "UseAcct", "untouched"},
  };
  for (const auto& row : published) {
    EXPECT_EQ(row.value, Option(row.section, row.name)) << row.section << row.name;
  }
}

TEST_F(ConfigurationTest, FoundValuesAreCutToTheirBufferAndOnlyBadOnesAreWritten) {
  for (const auto& [key, value] : kDefaults) {
    Ini(key) = value;
  }
  Ini(kMessagesFileLabel) = std::string(5000, 'm');
  Ini(kWorkgroupFileLabel) = "a\x01 b;rm";
  Ini(kUseAccountingLabel) = "no";
  Ini(kLogDiedLabel) = "nope";
  const struct {
    const char* time;
    const char* count;
    const char* heldCount;
    Written written;
  } cases[] = {
      {"07:30", "25", "25", {}},
      {"25:00", "25", "25", {{kUFSSTimeLabel, "00:00"}}},
      {"a:b", "25", "25", {{kUFSSTimeLabel, "00:00"}}},
      {"never", "25", "25", {{kUFSSTimeLabel, "Never"}}},
      {"Never", "0", "1440", {{kDataMaxCountLabel, "1440"}}},
      {"Never", "-5", "1440", {{kDataMaxCountLabel, "1440"}}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.time);
    Node().iniWritten.clear();
    Ini(kUFSSTimeLabel) = row.time;
    Ini(kDataMaxCountLabel) = row.count;
    MakeAgent(0);
    EXPECT_EQ(0, Init());
    EXPECT_EQ(row.written, Node().iniWritten);
    EXPECT_EQ(row.heldCount, Option("User", "DataMaxCount"));
  }
  EXPECT_EQ(std::string(4095, 'm'), Option("Messages", "FileName"));
  EXPECT_EQ("/data/a\x01 b;rm", m_agent->GetWorkgroupFilePath());
  EXPECT_EQ("n", Option("Acct", "UseAcct"));
  EXPECT_EQ("n", Option("Acct", "GetDiedProcess"));
}

TEST_F(ConfigurationTest, TheProfileIsTheEnvironmentsElseTheFilesElseClassic) {
  const struct {
    const char* variable;
    const char* setting;
    HostProfile profile;
    const char* timeout;
    const char* message;
  } cases[] = {
      {"", nullptr, HostProfile::kClassic, "0", ""},
      {"", "", HostProfile::kClassic, "0", "qmtagt.ini:7: \"\" is neither"},
      {"", "modern", HostProfile::kModern, "2", ""},
      {"classic", "modern", HostProfile::kClassic, "0", ""},
      {"modern", "no such", HostProfile::kModern, "2", ""},
      {"", "Modern", HostProfile::kClassic, "0", "qmtagt.ini:7: \"Modern\" is neither"},
      {"m", "modern", HostProfile::kClassic, "0", "QMT_HOST_PROFILE: \"m\" is neither"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.variable) + '/' + (row.setting == nullptr ? "" : row.setting));
    ScriptedNode::Reset();
    g_msgLogLevel = 10;
    ::setenv("QMT_HOST_PROFILE", row.variable, 1);
    if (row.setting != nullptr) {
      Node().ini[{kHostSection, "", kProfileLabel}] = row.setting;
    }
    MakeAgent(0);
    EXPECT_EQ(0, Init());
    EXPECT_EQ(row.profile, g_hostProfile);
    EXPECT_STREQ(FigureRegistry::Instance().Facts().at(0).text.c_str(),
                 HostProfileName(row.profile));
    EXPECT_EQ(row.timeout, Option("Node", "Mount Timeout"));
    EXPECT_EQ(*row.message == '\0' ? 0U : 1U, Node().LinesWith("is neither").size());
    EXPECT_EQ(*row.message == '\0' ? 0U : 1U,
              *row.message == '\0' ? 0U : Node().LinesWith(row.message).size());
    // What a field's source is follows the profile.
    const RecordLayout* layout = LayoutRegistry::Instance().Find("PI");
    EXPECT_EQ(&RecordTraits<recordPI>::Layout(row.profile), layout);
  }
  ::unsetenv("QMT_HOST_PROFILE");
  g_hostProfile = HostProfile::kClassic;
}

TEST_F(ConfigurationTest, AMountTimeoutOutOfRangeLeavesTheProfilesOwn) {
  const struct {
    const char* profile;
    const char* setting;
    const char* timeout;
  } cases[] = {
      {"modern", "-1", "2"},      {"modern", "3601", "2"}, {"modern", "0", "0"},
      {"modern", "3600", "3600"}, {"classic", "-1", "0"},  {"classic", "3601", "0"},
  };
  for (const auto& row : cases) {
    ScriptedNode::Reset();
    Node().ini[{kHostSection, "", kProfileLabel}] = row.profile;
    Node().ini[{"Node", "", kMountTimeoutLabel}] = row.setting;
    MakeAgent(0);
    EXPECT_EQ(0, Init());
    EXPECT_EQ(row.timeout, Option("Node", "Mount Timeout")) << row.profile << row.setting;
  }
  g_hostProfile = HostProfile::kClassic;
}

TEST_F(ConfigurationTest, AHostSettingThatIsNoneLeavesTheUsualOne) {
  struct Row {
    const char* key;
    const char* setting;
    const char* option;
    const char* problem;  ///< empty for none
  };
  const Row rows[] = {
      {kProcessSourceLabel, "proc", "proc", ""},
      {kProcessSourceLabel, "iterator", "iterator", ""},
      {kProcessSourceLabel, "auto", "auto", ""},
      {kProcessSourceLabel, "Proc", "auto", "so it means \"auto\""},
      {kProcessSourceLabel, "", "auto", "so it means \"auto\""},
      {kProcessRefreshLabel, "1", "1", ""},
      {kProcessRefreshLabel, "1000", "1000", ""},
      {kProcessRefreshLabel, "0", "10", "no whole number from 1 to 1000"},
      {kProcessRefreshLabel, "1001", "10", "no whole number from 1 to 1000"},
      {kGroupDepthLabel, "0", "0", ""},
      {kGroupDepthLabel, "64", "64", ""},
      {kGroupDepthLabel, "65", "3", "no whole number from 0 to 64"},
      {kGroupDepthLabel, "-1", "3", "no whole number from 0 to 64"},
  };
  for (const Row& row : rows) {
    ScriptedNode::Reset();
    Node().ini[{kHostSection, "", row.key}] = row.setting;
    MakeAgent(0);
    EXPECT_EQ(0, Init());
    EXPECT_EQ(row.option, Option(kHostSection, row.key)) << row.setting;
    const std::vector<IniProblem> problems =
        AgentSettingProblems(std::vector{IniSetting{7, kHostSection, "", row.key, row.setting}});
    ASSERT_EQ(problems.size(), *row.problem == '\0' ? 0U : 1U) << row.setting;
    EXPECT_TRUE(problems.empty() || problems[0].text.find(row.problem) != std::string::npos);
  }
}

TEST_F(ConfigurationTest, AFailedWriteEndsTheStartAtThatKey) {
  SwitchUFSSOn();
  for (std::size_t i = 0; i < kDefaults.size(); ++i) {
    SCOPED_TRACE(kDefaults[i].first);
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    g_kernelVariant = 2;
    Node().iniRefusedKey = kDefaults[i].first;
    MakeAgent(1);
    EXPECT_EQ(-61, Init());
    EXPECT_EQ(Written(kDefaults.begin(), kDefaults.begin() + static_cast<std::ptrdiff_t>(i)),
              Node().iniWritten);
    EXPECT_EQ(1, Node().CountMessages(10201));
    EXPECT_EQ(1U, Node().LinesWith("Agent Configuration. (rc=-61)").size());
    EXPECT_TRUE(Node().LinesWith("RecordBuilder").empty());
    EXPECT_TRUE(Node().scheduled.empty());
    // The applications are read all the same, and written back in the end.
    EXPECT_EQ(1, m_agent->GetApplications().GetCount());
    m_agent.reset();
    EXPECT_TRUE(m_root.Read(kApplications).starts_with("A\tapp0\nP\t0\t0\t0\t\n"));
  }
}

TEST_F(ConfigurationTest, NoWayOutOfTheStartLosesTheApplications) {
  const struct {
    const char* what;
    void (*spoil)();
    bool isRead;
  } cases[] = {
      {"no pipes", [] { std::filesystem::create_directory("opt/qmtrx/mond/qmt_hostutil_.pipe"); },
       true},
      {"no node", [] { Node().iniOpens = false; }, true},
      {"unreadable",
       [] {
         std::filesystem::remove(kApplications);
         std::filesystem::create_directory(kApplications);
       },
       false},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    ScriptedNode::Reset();
    g_msgLogLevel = 20;
    MakeAgent(1);
    row.spoil();
    EXPECT_EQ(row.isRead, Init() != 0);
    EXPECT_EQ(row.isRead ? 1 : 0, m_agent->GetApplications().GetCount());
    m_agent.reset();
    std::filesystem::remove("opt/qmtrx/mond/qmt_hostutil_.pipe");
    EXPECT_EQ(row.isRead, std::filesystem::is_regular_file(kApplications));
    EXPECT_EQ(row.isRead ? 0U : 1U,
              Node().LinesWith("qmtapp read error. (FILE=/opt/qmtrx/mond/agent/qmtapp).").size());
  }
}

TEST_F(ConfigurationTest, OptionsNeedABufferAndAnIniFile) {
  std::array<char, 4> value{"old"};
  long number = 7;
  EXPECT_EQ(-61, m_agent->InitConfigOption(value.data(), value.size(), "Key", "default", false));
  EXPECT_EQ(-61, m_agent->InitConfigOption(&number, "Number", 5));
  ASSERT_EQ(0, Init());
  g_msgLogLevel = 40;
  Node().lines.clear();
  EXPECT_EQ(-61, m_agent->InitConfigOption(nullptr, 4, "Key", "default", false));
  ASSERT_EQ(3U, Node().lines.size());
  EXPECT_EQ(0U, Node().lines[0].text.find(
                    "Started the function (UnixAgent::ShouldStopAccounting). (arg1=Key, "));
  EXPECT_EQ("UnixAgent::InitConfigOption: Invalid parameter pszValue(Label = Key)",
            Node().lines[1].text);
  EXPECT_EQ(30, Node().lines[1].level);
  EXPECT_EQ("Exited the function (UnixAgent::InitConfigOption). (rc=-61).", Node().lines[2].text);
  EXPECT_EQ(0, m_agent->InitConfigOption(value.data(), value.size(), "Key", "default", false));
  EXPECT_STREQ("def", value.data());
  EXPECT_EQ("def", Ini("Key"));
  Node().iniWrites = false;
  EXPECT_EQ(-61, m_agent->InitConfigOption(&number, "Number", 5));
  EXPECT_EQ(5, number);
}

}  // namespace
