#include "userdata/WorkGroup.h"

#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/userdata/DefinitionText.h"

namespace {

TEST(WorkGroup, TextsAreCutAtTwentyNineCharacters) {
  struct Case {
    std::vector<std::size_t> lengths;  ///< of the items: "aa", "bbb", ...
    std::string text;
  };
  const auto a = [](std::size_t n) { return std::string(n, 'a'); };
  for (const Case& c : std::initializer_list<Case>{{{}, ""},
                                                   {{28}, a(28)},
                                                   {{29}, a(29)},
                                                   {{30}, a(28) + ">"},
                                                   {{31}, a(28) + ">"},
                                                   {{3, 2}, "aaa,bb"},
                                                   {{26, 2}, a(26) + ",bb"},
                                                   {{26, 3}, a(26) + ",b>"},
                                                   {{27, 1}, a(27) + ",b"},
                                                   {{28, 1}, a(28) + ">"},
                                                   {{29, 1}, a(28) + ">"},
                                                   {{26, 2, 1}, a(26) + ",b>"}}) {
    WorkGroup group("g");
    for (std::size_t i = 0; i < c.lengths.size(); ++i) {
      group.AddUsers(std::string(c.lengths[i], static_cast<char>('a' + i)).c_str(), i == 1);
    }
    EXPECT_EQ(c.text, group.Users());
  }
}

TEST(WorkGroup, TakesProcessesByTheFirstItemInTheOrderOfTheTests) {
  WorkGroup filled("g");
  filled.AddArguments02("all", false);
  filled.AddArguments02("^start", true);
  filled.AddUsers("root", false);
  filled.AddUsers02("^r/i", true);
  filled.AddGroups("wheel", false);
  filled.AddGroups02("w", true);
  filled.AddPrograms("init", false);
  filled.AddPrograms02("in it", false);
  WorkGroup copy("other");
  copy.AddUsers("gone", false);
  copy = filled;
  struct Case {
    const char *user, *group, *program, *arguments;
    int list;  ///< -1 for none
  };
  for (const Case& c :
       {Case{"root", "wheel", "init", "all", 0}, Case{"Root", "wheel", "init", "all", 1},
        Case{"Root", "www", "init", "all", 2}, Case{"Root", "www", "in it", "all", 4},
        Case{"u", "www", "in it", "all", 5}, Case{"u", "g", "in it", "all", 6},
        Case{"u", "g", "p", "start it", 3}, Case{"gone", "g", "init ", "all ", -1},
        Case{nullptr, nullptr, nullptr, nullptr, -1}}) {
    const auto rule = copy.FindRule(c.user, c.group, c.program, c.arguments);
    EXPECT_EQ(c.list, rule ? static_cast<int>(rule->list) : -1) << c.program;
    EXPECT_EQ(rule.has_value(), copy.Matches(c.user, c.group, c.program, c.arguments));
  }
  EXPECT_EQ("^r/i", copy.FindRule("Root", "", "", "")->text);
  EXPECT_EQ(1, copy.MatchUsers02("rob"));
  EXPECT_EQ(0, copy.MatchPrograms("in it"));
  EXPECT_EQ("g", copy.Name());
}

TEST(WorkGroup, TheFirstOfLiteralsAndExpressionsTakesAProcess) {
  WorkGroup filled("g");
  const struct {
    const char* text;
    bool isRegexp;
  } items[] = {{"zz", false}, {"^a", true}, {"ab", false}, {"cb", false}, {"b$", true}};
  for (const auto& item : items) {
    filled.AddPrograms(item.text, item.isRegexp);
  }
  const WorkGroup copy(filled);
  const struct {
    const char* program;
    const char* item;  ///< null for none
  } cases[] = {{"zz", "zz"}, {"ab", "^a"},    {"cb", "cb"},
               {"xb", "b$"}, {"b$", nullptr}, {"", nullptr}};
  for (const auto& c : cases) {
    const auto rule = copy.FindRule("u", "g", c.program, "");
    EXPECT_EQ(c.item != nullptr, rule.has_value()) << c.program;
    EXPECT_STREQ(c.item == nullptr ? "" : c.item, rule ? rule->text.c_str() : "") << c.program;
  }
}

TEST(WorkGroup, DuplicatesAreDroppedWhateverTheirKind) {
  ScriptedNode::Reset();
  g_msgLogLevel = 30;
  WorkGroup group("g");
  for (const bool isRegexp : {false, true, false}) {
    group.AddPrograms("a.c", isRegexp);
  }
  group.AddPrograms02("a.c", true);
  EXPECT_STREQ("a.c", group.Programs());
  EXPECT_EQ(0, group.MatchPrograms("abc"));
  EXPECT_EQ(1, group.MatchPrograms02("abc"));
  ScriptedNode& node = ScriptedNode::Instance();
  EXPECT_EQ(2U, node.LinesWith("Duplicate Item a.c found in the workgroup file. Ignored").size());
  EXPECT_EQ(1U, node.LinesWith("Item is a regular expression").size());
}

TEST(WorkGroup, FiguresCountOnlyWithAStartTime) {
  const auto realTime = Os().time;
  Os().time = [](std::time_t*) -> std::time_t { return 1000; };
  WorkGroup group("g");
  WorkgroupDelta delta{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0, 77};
  group.Add(delta);
  EXPECT_EQ(0U, group.totals.userCpu);
  for (const std::uint32_t start : {900U, 960U}) {
    delta.startTime = start;
    group.Add(delta);
  }
  Os().time = realTime;
  EXPECT_EQ(3U, group.count);
  const WorkgroupTotals& t = group.totals;
  EXPECT_EQ((std::array<std::uint64_t, 2>{14, 16}),
            (std::array<std::uint64_t, 2>{t.realMemKbytes, t.virtualMemKbytes}));
  const std::array<std::int64_t, 11> figures{
      t.contextSwitches, t.ioKbytes,  t.blockOps, t.majorFaults, t.reads,  t.writes,
      t.swaps,           t.systemCpu, t.userCpu,  t.startTime,   t.elapsed};
  EXPECT_EQ((std::array<std::int64_t, 11>{2, 4, 6, 8, 10, 12, 18, 20, 22, 960, 140}), figures);
}

TEST(WorkGroup, FileBecomesMap) {
  ScriptedNode::Reset();
  g_msgLogLevel = 30;
  const DefinitionText text(
      "workgroup = b\nusers = first\nworkgroup = Other\nusers = mine\nworkgroup = a\nbad\n"
      "workgroup = B\nusers = u\nworkgroup = b\nusers = second\n");
  WgMap map;
  ASSERT_EQ(0, WorkGroup::GetIniFile(map, text.Path().c_str()));
  std::string names;
  for (const auto& [name, group] : map) {
    names += name + "=" + group->Users() + " ";
  }
  EXPECT_EQ("B=u Other= b=second ", names);
  EXPECT_EQ(2U, ScriptedNode::Instance().LinesWith("Workgroup name = b").size());
  EXPECT_EQ(1U, ScriptedNode::Instance().LinesWith("users = second").size());
  WgMap none;
  EXPECT_EQ(0, WorkGroup::GetIniFile(none, (text.Path() + ".gone").c_str()));
  EXPECT_EQ(1U, none.count("Other"));
}

}  // namespace
