#include "client/view/PaneKinds.h"

#include "client/view/HeadFigures.h"
#include "client/view/KeyHelp.h"
#include "client/view/RowView.h"
#include "tests/client/view/ViewRows.h"
#include "tests/support/Testing.h"

namespace {

/// The labels of each record, by the tables of all layouts.
std::map<std::string, std::set<std::string>> LabelsOfRecords() {
  constexpr std::size_t kRecord = 2;
  constexpr std::size_t kLabel = 8;
  std::map<std::string, std::set<std::string>> labels;
  for (const char* path : {"/records/records.tsv", "/records/modern_records.tsv"}) {
    std::ifstream file(std::string(QMT_TEST_DIR) + path);
    for (std::string line; std::getline(file, line);) {
      const std::vector<std::string> cells = CutAt('\t', line);
      labels[cells.at(kRecord)].insert(cells.at(kLabel));
    }
  }
  return labels;
}

TEST(PaneKindsTest, NameLabelsThatTheRecordsHave) {
  const auto labels = LabelsOfRecords();
  for (const PaneKind& pane : PaneKinds()) {
    for (const PaneRecord& record : pane.records) {
      ASSERT_TRUE(labels.contains(record.record)) << record.record;
      const std::set<std::string>& own = labels.at(record.record);
      EXPECT_TRUE(record.sort.empty() || own.contains(record.sort))
          << record.record << ": " << record.sort;
      for (const PaneColumn& column : record.columns) {
        EXPECT_TRUE(own.contains(column.label)) << record.record << ": " << column.label;
        EXPECT_FALSE(column.heading.empty()) << record.record << ": " << column.label;
      }
      for (const std::string& label : TreeLabels(record.tree)) {
        EXPECT_TRUE(own.contains(label)) << record.record << ": " << label;
      }
    }
  }
}

TEST(PaneKindsTest, AreNumberedInTheirOrder) {
  char key = '1';
  std::set<std::string> records;
  for (const PaneKind& pane : PaneKinds()) {
    EXPECT_EQ(pane.key, key++) << pane.title;
    EXPECT_LE(pane.shortTitle.size(), pane.title.size());
    for (const PaneRecord& record : pane.records) {
      EXPECT_TRUE(records.insert(record.record).second) << record.record;
    }
  }
}

TEST(PaneKindsTest, TheHeadAsksForLabelsThatTheRecordsHave) {
  const auto labels = LabelsOfRecords();
  const std::vector<Listing> modern{{"CPUX", "4", true}, {"PRES", "4", true}, {"NETD", "4", true},
                                    {"DISK", "4", true}, {"CPUP", "4", true}, {"NIND", "4", true},
                                    {"DEVD", "4", true}};
  const std::vector<Listing> classic{
      {"CPUX", "4", false}, {"CPUP", "4", true}, {"NIND", "4", true}, {"DEVD", "4", true}};
  for (const auto& [listing, records] :
       {std::pair(modern, "PI CPUX PRES NETD "), std::pair(classic, "PI CPUP NIND DEVD "),
        std::pair(std::vector<Listing>(), "PI ")}) {
    std::string asked;
    for (const WantedRows& wanted : HeadRecords(listing)) {
      asked += wanted.record + ' ';
      for (const std::string& label : wanted.columns) {
        EXPECT_TRUE(labels.at(wanted.record).contains(label)) << wanted.record << ": " << label;
      }
    }
    EXPECT_EQ(asked, records);
  }
}

/// The keys that are told, without the words between them.
std::vector<std::string> ToldKeys(const KeyHelp& help) {
  std::vector<std::string> keys;
  std::istringstream text(help.keys);
  for (std::string word; text >> word;) {
    word.erase(std::min(word.find(','), word.size()));
    if (word.size() == 1 || word.starts_with("Ctrl")) {
      keys.push_back(word);
    }
  }
  return keys;
}

TEST(KeyHelpTest, TellsEachKeyOnce) {
  std::set<std::string> told;
  for (const KeyHelp& help : AllKeyHelp()) {
    EXPECT_STRNE(help.text, "");
    for (const std::string& key : ToldKeys(help)) {
      EXPECT_TRUE(told.insert(key).second) << key;
    }
  }
  for (const char* key : {"1", "8", "v", "P", "/", "[", "]", "{", "}", "j", "n", "?", "q"}) {
    EXPECT_TRUE(told.contains(key)) << key;
  }
}

TEST(KeyHelpTest, TellsTheKeysOfTheRows) {
  const PaneRecord kind{"PDI", "", "", {}, TreeKind::kParents};
  RowView view(kind);
  view.Update(SeenOf(Json::Array(), ProcessSchema()));
  std::string taken;
  for (const KeyHelp& help : AllKeyHelp()) {
    for (const std::string& key : ToldKeys(help)) {
      taken += key.size() == 1 && view.Take(CharacterKeyOf(key), {0, 10}) ? key : "";
    }
  }
  EXPECT_EQ(taken, "<>PMDNRt");
  // And none besides.
  for (char key = '!'; key <= '~'; ++key) {
    EXPECT_EQ(view.Take(CharacterKeyOf(std::string(1, key)), {0, 10}),
              taken.find(key) != std::string::npos)
        << key;
  }
}

}  // namespace
