#include "agent/ConfigNames.h"
#include "tests/agent/ConfigFixture.h"

namespace {

using Texts = std::vector<std::string>;

using Written = std::vector<std::pair<std::string, std::string>>;

class ConfigUpdatesTest : public ConfigFixture {
 protected:
  void SetUp() override {
    SwitchUFSSOn();
    MakeAgent(2);
    ASSERT_EQ(0, Init());
    Forget();
  }
  /// The daily time of the scan as the tree shows it.
  std::string ShownTime() {
    CMBNodeConfigRequest root;
    EXPECT_EQ(0, m_agent->Dispatch(&root));
    for (const auto& child : root.Children().at(3)->Children()) {
      const auto* item = dynamic_cast<const CMBNodeConfigItem*>(child.get());
      if (item != nullptr && item->Id() == kUFSSTimeId) {
        return item->Value();
      }
    }
    return "<none>";
  }
  void Forget() {
    Node().iniWritten.clear();
    Node().lines.clear();
  }
};

TEST_F(ConfigUpdatesTest, TextsReachTheFileAndThenTheAgent) {
  const std::string text(5000, 't');
  const std::string digits(3000, '9');
  const std::string odd = "/a/../b\x02";
  const std::string kNothing = "<nothing>";
  struct Setting {
    const char* key;
    const char* section;
    const char* name;
  };
  const std::map<int, Setting> settings{{3, {kUFSSTimeLabel, "", ""}},  // shown by no option
                                        {4, {kMessagesFileLabel, "Messages", "FileName"}},
                                        {5, {kAccountingFileLabel, "Acct", "FileName"}},
                                        {15, {kDataMaxCountLabel, "User", "DataMaxCount"}}};
  const struct {
    std::uint16_t id;
    std::string text;
    bool writes;
    int result;
    std::string written;
    std::string inForce;
  } cases[] = {{3, "00:00", false, 0, kNothing, "00:00"},
               {3, "24:00", true, -36, kNothing, "00:00"},
               {3, "12-30:00", true, -36, kNothing, "00:00"},
               {3, "", true, -36, kNothing, "00:00"},
               {3, "7:05", false, 1, kNothing, "00:00"},
               {3, "7:05", true, 0, "7:05", "7:05"},
               {3, "7:05", false, 0, kNothing, "7:05"},
               {3, "nEVER", true, 0, "Never", "Never"},
               {3, "Never", false, 0, kNothing, "Never"},
               {4, odd, true, 0, odd, odd},
               {4, "lost", false, 1, kNothing, odd},
               {4, "lost", true, 0, kNothing, odd},
               {4, "", true, 0, "", ""},
               {4, text, true, 0, text.substr(0, 4095), text.substr(0, 4095)},
               {5, "", true, -36, kNothing, "/var/adm/pacct"},
               {5, "$(a)", false, 1, kNothing, "/var/adm/pacct"},
               {5, "$(a)", true, 0, "$(a)", "$(a)"},
               {5, "$(a)", false, 0, kNothing, "$(a)"},
               {5, text, true, 0, text, text.substr(0, 4095)},
               {15, "1440", false, 0, kNothing, "1440"},
               {15, "0", true, -36, kNothing, "1440"},
               {15, "+5", true, -36, kNothing, "1440"},
               {15, "-5", true, -36, kNothing, "1440"},
               {15, "5 ", true, -36, kNothing, "1440"},
               {15, "", true, -36, kNothing, "1440"},
               {15, "7", false, 1, kNothing, "1440"},
               {15, "007", true, 0, "007", "007"},
               {15, digits, true, 0, digits, digits.substr(0, 2047)}};
  for (const auto& row : cases) {
    SCOPED_TRACE(std::to_string(row.id) + " " + row.text.substr(0, 20));
    Forget();
    Node().iniWrites = row.writes;
    EXPECT_EQ(row.result, Update(row.id, row.text));
    const Setting& setting = settings.at(row.id);
    EXPECT_EQ(row.written == kNothing ? Written{} : (Written{{setting.key, row.written}}),
              Node().iniWritten);
    EXPECT_EQ("Node config (Type=" + std::to_string(row.id) + ") update start.",
              Node().lines.front().text);
    EXPECT_EQ("Node config (Type=" + std::to_string(row.id) + ") update end. (Value=" +
                  row.text.substr(0, 254) + ", rc=" + std::to_string(row.result) + ")",
              Node().lines.back().text);
    EXPECT_EQ(row.id == 15 && row.result == -36 ? 1U : 0U,
              Node().LinesWith("Invalid User Defined Record DataMaxCount found! ").size());
    EXPECT_EQ(row.inForce, row.id == 3 ? ShownTime() : Option(setting.section, setting.name));
  }
}

TEST_F(ConfigUpdatesTest, ChoicesBecomeLetters) {
  for (const auto& [id, key, before] :
       {std::tuple<std::uint16_t, std::string, std::string>{6, kUseAccountingLabel, "Y"},
        {10, kLogDiedLabel, "Y"},
        {11, kTruncateLabel, "N"}}) {
    SCOPED_TRACE(key);
    const std::uint16_t same = before == "Y" ? 0 : 1;
    const std::uint16_t other = before == "Y" ? 9 : 0;
    const std::string after = before == "Y" ? "N" : "Y";
    Forget();
    Node().iniWrites = false;
    EXPECT_EQ(0, Update(id, same));
    EXPECT_EQ(-36, Update(id, std::string("No"))) << "a text is no choice";
    EXPECT_EQ(1, Update(id, other));
    EXPECT_EQ(1, Update(id, other)) << "a failed write has changed the agent";
    Node().iniWrites = true;
    EXPECT_EQ(0, Update(id, other));
    EXPECT_EQ((Written{{key, after}}), Node().iniWritten);
    EXPECT_EQ("Node config (Type=" + std::to_string(id) +
                  ") update end. (Value=" + std::to_string(other) + ", rc=0)",
              Node().lines.back().text);
    EXPECT_EQ(0, Update(id, other));
    EXPECT_EQ(1U, Node().iniWritten.size());
  }
}

TEST_F(ConfigUpdatesTest, ApplicationsAreAddedAndDeleted) {
  const auto names = [this] {
    Texts texts;
    for (int i = 0; i < m_agent->GetApplications().GetCount(); ++i) {
      texts.emplace_back(m_agent->GetApplications().GetName(i));
    }
    return texts;
  };
  const struct {
    bool isAddition;
    const char* text;
    std::uint16_t choice;
    int result;
    Texts names;
    bool isSaved;
    const char* trace;
  } cases[] = {
      {true, "", 0, 0, {"app0", "app1"}, false, ""},
      {true, "new", 0, 0, {"app0", "app1", "new"}, false, ""},
      {true,
       "app1",
       0,
       -36,
       {"app0", "app1", "new"},
       false,
       "Config error. (NAME=ADD AN APPLICATION MONITORING SETTING)(PARAM=app1)."},
      {false, "", 0, 0, {"app0", "app1", "new"}, true, ""},
      {false,
       "",
       4,
       -36,
       {"app0", "app1", "new"},
       true,
       "Config error. (NAME=DELETE AN APPLICATION MONITORING SETTING)(PARAM=4)."},
      {false, "", 2, 0, {"app0", "new"}, true, ""},
      {false, "", 1, 0, {"new"}, true, ""},
      {false, "", 1, 0, {}, true, ""},
      {true, "one", 0, 0, {"one"}, true, ""},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::string(row.text) + std::to_string(row.choice));
    Forget();
    std::ofstream(kApplications) << "before\n";
    EXPECT_EQ(row.result, row.isAddition ? Update(kAddApplicationId, std::string(row.text))
                                         : Update(kDeleteApplicationId, row.choice));
    EXPECT_EQ(row.names, names());
    const std::string saved = m_root.Read(kApplications);
    EXPECT_EQ(row.isSaved, saved != "before\n");
    EXPECT_EQ(row.isSaved && !row.names.empty(), saved.starts_with("A\t"));
    EXPECT_EQ(row.trace[0] == '\0' ? 2U : 3U, Node().lines.size());
    EXPECT_EQ(row.trace, row.trace[0] == '\0' ? "" : Node().lines.at(1).text);
  }
  std::filesystem::remove(kApplications);
  std::filesystem::create_directory(kApplications);
  EXPECT_EQ(1, Update(kDeleteApplicationId, std::uint16_t{0})) << "not written";
  EXPECT_EQ(10, Node().LinesWith("QMTX10100-E").at(0).level);
  EXPECT_EQ(1U,
            Node().LinesWith("qmtapp write error. (FILE=/opt/qmtrx/mond/agent/qmtapp).").size());
}

TEST_F(ConfigUpdatesTest, OtherIdentifiersAreApplicationItemsOrRefused) {
  const auto item = [](int application, int process, int part) {
    return static_cast<std::uint16_t>(1001 + 64 * application + 4 * process + part);
  };
  EXPECT_EQ(0, Update(item(1, 14, 0), std::uint16_t{2}));
  EXPECT_EQ(0, Update(item(1, 14, 1), std::string("java; *")));
  EXPECT_EQ(0, Update(item(1, 14, 2), std::string("5")));
  const ApplicationMonitor& applications = m_agent->GetApplications();
  EXPECT_EQ(2, applications.GetKind(1, 14));
  EXPECT_STREQ("java; *", applications.GetPattern(1, 14));
  EXPECT_EQ(5, applications.GetRangeMax(1, 14));
  for (const std::uint16_t id : std::initializer_list<std::uint16_t>{0, 1, 2, 7, 14, 23, 1000}) {
    EXPECT_EQ(0, Update(id, std::string("x"))) << id;
  }
  EXPECT_EQ(0, Node().CountMessages(10203));

  for (const std::uint16_t id :
       {item(2, 0, 0), item(63, 0, 1), item(0, 15, 1), item(0, 0, 3), item(0, 0, 2)}) {
    SCOPED_TRACE(id);
    Forget();
    EXPECT_EQ(-36, Update(id, std::string("bad")));
    ASSERT_EQ(1, Node().CountMessages(10203));
    const LoggedLine line = Node().LinesWith("QMTX10203-W").front();
    EXPECT_EQ("QMTX10203-W Invalid entry in /opt/qmtrx/mond/agent/qmtapp.", line.text);
    EXPECT_EQ(10, line.level);
    EXPECT_EQ(2, line.kind);
    EXPECT_EQ(1U, Node().LinesWith("(NAME=Applicatoin Param)(PARAM=bad).").size());
  }
  EXPECT_EQ(-36, Update(item(0, 0, 0), std::uint16_t{3}));
  EXPECT_EQ(0, applications.GetKind(0, 0));
  EXPECT_EQ(-36, Update(item(0, 0, 1), std::string("a\nA\tb"))) << "would break the file";
}

TEST_F(ConfigUpdatesTest, WhatIsEnteredIsLeft) {
  const int level = std::exchange(g_msgLogLevel, 40);
  Forget();
  Update(kAddApplicationId, std::string("new"));
  Update(kDeleteApplicationId, std::uint16_t{1});
  g_msgLogLevel = level;
  std::map<std::string, int> calls;
  for (const LoggedLine& line : Node().lines) {
    const bool isEntry = line.text.starts_with("Started the function (");
    if (isEntry || line.text.starts_with("Exited the function (")) {
      EXPECT_EQ(40, line.level);
      const std::size_t begin = line.text.find('(') + 1;
      calls[line.text.substr(begin, line.text.find(')') - begin)] += isEntry ? 101 : -1;
    }
  }
  for (const char* name :
       {"UnixAgent::NotifyEvent", "ApplicationMonitor::add", "ApplicationMonitor::remove"}) {
    EXPECT_EQ(name == std::string("UnixAgent::NotifyEvent") ? 200 : 100, calls[name]) << name;
  }
}

TEST_F(ConfigUpdatesTest, WithoutApplicationsEveryItemIsRefused) {
  MakeAgent(0);
  ASSERT_EQ(0, Init());
  EXPECT_EQ(-36, Update(1001, std::uint16_t{1}));
  EXPECT_EQ(-36, Update(65535, std::string("x")));
  EXPECT_EQ(-36, Update(kAddApplicationId, std::string("a\tb")));
  EXPECT_EQ(0, Update(kDeleteApplicationId, std::uint16_t{0}));
  m_agent.reset();
  EXPECT_TRUE(Node().LinesWith("qmtapp write error").empty()) << "there is nothing to write";
}

TEST_F(ConfigUpdatesTest, WithoutAnEventOrAnIniFileNothingIsDone) {
  EXPECT_EQ(-1, m_agent->NotifyEvent(static_cast<CMBNodeConfigUpdate*>(nullptr)));
  EXPECT_EQ("pNodeConfigUpdate is NULL", Node().lines.back().text);
  MakeAgent(0);
  EXPECT_EQ(-1, Update(4, std::string("x")));
  EXPECT_EQ("GetIniFile failed", Node().lines.back().text);
}

TEST_F(ConfigUpdatesTest, TheScanTimeExistsOnlyWithItsRecord) {
  std::filesystem::remove("opt/qmtrx/mond/agent/optrecs.dat");
  ScriptedNode::Reset();
  g_kernelVariant = 2;
  MakeAgent(0);
  ASSERT_EQ(0, Init());
  Forget();
  EXPECT_EQ(0, Update(3, std::string("bad")));
  EXPECT_TRUE(Node().scheduled.empty());
  EXPECT_TRUE(Node().iniWritten.empty());
}

}  // namespace
