#include "tests/agent/ConfigFixture.h"

namespace {

using Texts = std::vector<std::string>;

/// One line for each element of a tree: folders with their label, tables with their values, items
/// with identifier, label, value and flags.
void Describe(const CMBNodeConfigBase& parent, const std::string& indent, Texts& lines) {
  for (const auto& child : parent.Children()) {
    std::string line = indent;
    if (const auto* folder = dynamic_cast<const CMBNodeConfigRequest*>(child.get())) {
      line += "[" + folder->Label() + "]";
    } else if (const auto* table = dynamic_cast<const CMBNodeConfigPossibleValues*>(child.get())) {
      line += "table " + std::to_string(table->Id());
      for (const std::string& value : table->Values()) {
        line += "|" + value;
      }
    } else {
      const auto& item = dynamic_cast<const CMBNodeConfigItem&>(*child);
      line += std::to_string(item.Id()) + " " + item.Label();
      line += item.IsChoice()
                  ? " table " + std::to_string(item.PossibleValuesId()) + " at " +
                        std::to_string(item.CurrentIndex()) + " flag " +
                        std::to_string(item.FlagA())
                  : " '" + item.Value() + "' of " + std::to_string(item.MaxLength()) + " flags " +
                        std::to_string(item.FlagA()) + std::to_string(item.FlagB());
    }
    lines.push_back(line);
    Describe(*child, indent + " ", lines);
  }
}

/// The help of the item, wherever it stands; empty if there is none.
std::string HelpOf(const CMBNodeConfigBase& parent, std::uint16_t id) {
  for (const auto& child : parent.Children()) {
    const auto* item = dynamic_cast<const CMBNodeConfigItem*>(child.get());
    const std::string help =
        item != nullptr && item->Id() == id ? item->Help() : HelpOf(*child, id);
    if (!help.empty()) {
      return help;
    }
  }
  return "";
}

class ConfigTreeTest : public ConfigFixture {
 protected:
  Texts Tree() {
    m_request = std::make_unique<CMBNodeConfigRequest>();
    EXPECT_EQ(0, m_agent->Dispatch(m_request.get()));
    Texts lines;
    Describe(*m_request, "", lines);
    return lines;
  }

  std::unique_ptr<CMBNodeConfigRequest> m_request;
};

TEST_F(ConfigTreeTest, WithoutApplicationsNothingCanBeDeleted) {
  ASSERT_EQ(0, Init());
  Node().lines.clear();
  EXPECT_EQ((Texts{"table 1|Yes|No", "table 1001|None|Execute|Command Line", "table 1002|None",
                   "[Agent Configuration]", " [Application monitoring setting]",
                   " [ADDITION OR DELETION A SETTING]",
                   "  21 ADD AN APPLICATION MONITORING SETTING '' of 1 flags 01",
                   "  22 DELETE AN APPLICATION MONITORING SETTING table 1002 at 0 flag 1",
                   " 15 User Defined Record DataMaxCount '1440' of 2048 flags 01"}),
            Tree());
  ASSERT_EQ(2U, Node().lines.size());
  EXPECT_EQ("Processing configuration request parameters.", Node().lines[0].text);
  EXPECT_EQ("Configuration request processing complete.", Node().lines[1].text);
}

TEST_F(ConfigTreeTest, EachApplicationHasAFolderOfFifteenProcesses) {
  SwitchUFSSOn();
  MakeAgent(0);
  std::ofstream file(kApplications);
  file << "A\tapp0\nA\t" << std::string(80, 'n') << "\n";
  for (int i = 0; i < 14; ++i) {
    file << "P\t0\t0\t0\t\n";
  }
  file << "P\t2\t0\t65535\t/usr/bin/*\nA\tapp2\nP\t1\t-2147483647\t2147483647\n";
  file.close();
  ASSERT_EQ(0, Init());
  const Texts tree = Tree();
  EXPECT_EQ("table 1002|None|app0|" + std::string(63, 'n') + "|app2", tree.at(2));
  ASSERT_EQ(5U + 3 * 46 + 5, tree.size());
  EXPECT_EQ("  [app0]", tree[5]);
  EXPECT_EQ("   1001 Process01 Kind table 1001 at 0 flag 0", tree[6]);
  EXPECT_EQ("   1002 Process01 Name '' of 128 flags 01", tree[7]);
  EXPECT_EQ("   1003 Process01 Range '0-0' of 12 flags 01", tree[8]);
  EXPECT_EQ("   1121 Process15 Kind table 1001 at 2 flag 0", tree[94]);
  EXPECT_EQ("   1122 Process15 Name '/usr/bin/*' of 128 flags 01", tree[95]);
  EXPECT_EQ("   1123 Process15 Range '0-65535' of 12 flags 01", tree[96]);
  EXPECT_EQ("   1131 Process01 Range '-2147483647' of 12 flags 01", tree[100]);
  EXPECT_EQ(" [ADDITION OR DELETION A SETTING]", tree[143]);
  EXPECT_EQ("  22 DELETE AN APPLICATION MONITORING SETTING table 1002 at 0 flag 0", tree[145]);
  EXPECT_EQ(" 3 UFSS background collection time '00:00' of 2048 flags 01", tree[146]);
}

TEST_F(ConfigTreeTest, EachItemHasItsHelp) {
  SwitchUFSSOn();
  MakeAgent(1);
  ASSERT_EQ(0, Init());
  (void)Tree();
  const std::pair<std::uint16_t, const char*> helps[] = {
      {3,
       "Daily time for PD UFSS record background data collection in the form HH:MM or \"Never\"."},
      {15, "Maximum Number of User Defined Records"},
      {21, "Input an Application monitoring setting to be ADD."},
      {22, "Choose an Application monitoring setting to be DELETE."},
      {1001, "The specified type of the condition is displayed."},
      {1002, "Process name."},
      {1003,
       "The range conditions for each process. The conditions are displayed as \"Minimum "
       "value-Maximum value\"."}};
  for (const auto& [id, help] : helps) {
    EXPECT_EQ(help, HelpOf(*m_request, id)) << id;
  }
}

TEST_F(ConfigTreeTest, OnlySixtyFourApplicationsAreOffered) {
  MakeAgent(70);
  ASSERT_EQ(0, Init());
  EXPECT_EQ(1U, Node().LinesWith("qmtapp read error. (FILE=").size());
  EXPECT_EQ(1U, Node().LinesWith("qmtapp:65: there are more than 64 applications.").size());
  const Texts tree = Tree();
  ASSERT_EQ(5U + 64 * 46 + 4, tree.size());
  EXPECT_EQ("  [app63]", tree[5 + 63 * 46]);
  EXPECT_EQ("   5091 Process15 Range '0-0' of 12 flags 01", tree[5 + 64 * 46 - 1]);
  EXPECT_EQ("|app63", tree[2].substr(tree[2].size() - 6));
}

TEST_F(ConfigTreeTest, AnOptionIsShownFromTheNearestPlaceThatHasIt) {
  ASSERT_EQ(0, Init());
  ProductOptions::Instance().Set("Show", "Set", "stored");
  Node().ini[{"Show", "", "Set"}] = "not asked";
  Node().ini[{"Show", "", "File"}] = "from file";
  CMBNodeConfigRequest folder;
  m_agent->addConfigLine(5, "A", "Show", "default", "Set", "Help", folder);
  m_agent->addConfigLine(5, "B", "Show", "default", "File", "Help", folder);
  m_agent->addConfigLine(-9, "C", "Show", "default", "None", "Help", folder);
  m_agent->addConfigLine(0, "D", "Show", nullptr, "None", "Help", folder);
  Texts lines;
  Describe(folder, "", lines);
  EXPECT_EQ(
      (Texts{"106 A 'stored' of 4096 flags 01", "106 B 'from file' of 4096 flags 01",
             "9 C 'default' of 4096 flags 01", "101 D '<attribute not set>' of 4096 flags 01"}),
      lines);
  const auto helpAt = [&](std::size_t i) {
    return dynamic_cast<const CMBNodeConfigItem&>(*folder.Children().at(i)).Help();
  };
  EXPECT_EQ("Help", helpAt(1));
  EXPECT_EQ("Help (Default)", helpAt(2));
  EXPECT_EQ("Help", helpAt(3));
}

}  // namespace
