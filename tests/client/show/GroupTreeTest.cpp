#include "client/show/GroupTree.h"

#include "client/ask/Errors.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

Json Group(const std::string& path, Json memory = nullptr, Json cpu = nullptr, Json read = nullptr,
           Json write = nullptr) {
  return {{"Record Type", "CGRP"},
          {"Path", path},
          {"Kind", "group"},
          {"Container ID", ""},
          {"Processes", 1.0},
          {"CPU %", std::move(cpu)},
          {"Memory Bytes", std::move(memory)},
          {"Limit %", nullptr},
          {"Read Bytes/sec", std::move(read)},
          {"Write Bytes/sec", std::move(write)}};
}

Schema GroupSchema() {
  Schema schema{"CGRP", "recordPI_CGRP", "4", 928, {}};
  for (const char* label : {"Processes", "CPU %", "Memory Bytes"}) {
    schema.fields.push_back({label, "double", 0, 8, "gauge", ""});
  }
  schema.fields.push_back({"Path", "char[512]", 0, 512, "key", ""});
  return schema;
}

/// "/(a(b c) d)" by the names.
std::string Shape(const std::vector<GroupNode>& groups) {
  std::string text;
  for (const GroupNode& group : groups) {
    text += (text.empty() ? "" : " ") + group.name;
    text += group.children.empty() ? "" : "(" + Shape(group.children) + ")";
  }
  return text;
}

std::vector<GroupNode> TreeOf(const std::vector<std::string>& paths) {
  Json rows = Json::Array();
  for (const std::string& path : paths) {
    rows.PushBack(Group(path));
  }
  return MakeGroupTree(std::move(rows));
}

TEST(GroupTree, FollowsThePaths) {
  const struct {
    std::vector<std::string> paths;
    const char* shape;
  } cases[] = {
      {{}, ""},
      {{"/b/c", "/b", "/", "/a"}, "/(a b(c))"},
      // A letter below the slash stands between a name and what is below it, in plain order.
      {{"/", "/a", "/a-b", "/a/c", "/a.x/y"}, "/(a(c) a-b a.x/y)"},
      {{"/", "/a", "/a/b/c/d.service", "/a/b/c/e.scope"}, "/(a(b/c/d.service b/c/e.scope))"},
      {{"/a/b", "/c", "/a/b/d"}, "/a/b(d) /c"},
      {{"/", "...c/d", "...c/d", "...c/d/e", "/x"}, "/(x ...c/d ...c/d(e))"},
      {{"/", "/a//b", "/a"}, "/(a(/b))"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(Shape(TreeOf(row.paths)), row.shape);
  }
  EXPECT_THROW(static_cast<void>(MakeGroupTree(JsonOf(R"([{"Kind": "group"}])"))), ClientError);
}

TEST(GroupTree, SumsWhatAGroupDoesNotTell) {
  Json rows = Json::Array();
  rows.PushBack(Group("/"));
  rows.PushBack(Group("/a", 10.0, nullptr, 1.0));
  rows.PushBack(Group("/b"));
  rows.PushBack(Group("/b/c", 5, 1.5));
  rows.PushBack(Group("/b/d", 7, 2.0));
  rows.PushBack(Group("/b/d/e", 100, 100.0));
  rows[4]["Limit %"] = 50.0;
  const std::vector<GroupNode> tree = MakeGroupTree(std::move(rows));
  const Json& root = tree.at(0).row;
  EXPECT_EQ(root["Memory Bytes"], 22.0) << "and of /b what is summed itself; /b/d tells its own";
  EXPECT_EQ(root["CPU %"], 3.5);
  EXPECT_EQ(root["Processes"], 1.0) << "a group's own figure stays";
  EXPECT_TRUE(root["Limit %"].IsNull()) << "no sum of shares";
  EXPECT_TRUE(root["Write Bytes/sec"].IsNull()) << "nobody tells it";
  EXPECT_EQ(root["Read Bytes/sec"], 1.0);
}

TEST(GroupTree, SortsWithinEachGroup) {
  const struct {
    std::vector<std::string> sort;
    const char* shape;
  } cases[] = {
      {{}, "/(b(e d) a c)"},          {{"memory"}, "/(b(e d) a c)"},
      {{"+memory"}, "/(a b(d e) c)"}, {{"cpu"}, "/(a c b(d e))"},
      {{"io"}, "/(c a b(d e))"},      {{"-io", "Path"}, "/(c a b(d e))"},
      {{"path"}, "/(a b(d e) c)"},    {{"tasks", "-Path"}, "/(c b(e d) a)"},
  };
  for (const auto& row : cases) {
    Json rows = Json::Array();
    rows.PushBack(Group("/"));
    rows.PushBack(Group("/a", 10, 9.0, 2.0, 2.0));
    rows.PushBack(Group("/b", nullptr));
    rows.PushBack(Group("/b/d", 8, 1.0));
    rows.PushBack(Group("/b/e", 9, 1.0));
    rows.PushBack(Group("/c", nullptr, 3.0, 1.0, 5.0));
    std::vector<GroupNode> tree = MakeGroupTree(std::move(rows));
    SortGroups(tree, GroupOrder(row.sort, GroupSchema()));
    EXPECT_EQ(Shape(tree), row.shape) << (row.sort.empty() ? "" : row.sort[0]);
  }
  EXPECT_THROW(static_cast<void>(GroupOrder({"memori"}, GroupSchema())), UsageError);
}

TEST(GroupTree, FindsAndCutsGroups) {
  std::vector<GroupNode> tree = TreeOf({"/", "/a", "/a/b/c", "/a/b/c/d", "/ab"});
  EXPECT_EQ(FindGroup(tree, "/"), &tree[0]);
  ASSERT_NE(FindGroup(tree, "/a/b/c"), nullptr);
  EXPECT_EQ(Shape(FindGroup(tree, "/a/b/c")->children), "d");
  EXPECT_EQ(FindGroup(tree, "/a/b"), nullptr);
  EXPECT_EQ(FindGroup(tree, "/a/"), nullptr);
  CutGroups(tree, 2);
  EXPECT_EQ(Shape(tree), "/(a(b/c) ab)");
  CutGroups(tree, 0);
  EXPECT_EQ(Shape(tree), "/");
}

TEST(GroupTree, IsShownByLinesAndByJson) {
  Json rows = Json::Array();
  rows.PushBack(Group("/", 1536, 150.25));
  rows.PushBack(Group("/s", 1024, 0.0, 0.0, 3000.0));
  rows.PushBack(Group("/s/docker-0123456789abcdef.scope", 512));
  rows.PushBack(Group("/s/x\x1b\xEF\xBF\xBD", 0.0));
  rows[2]["Kind"] = "container";
  rows[2]["Container ID"] = "0123456789abcdef";
  rows[3]["Kind"] = "container";
  rows[3]["Container ID"] = "the-name-of-one\x1b";
  std::vector<GroupNode> tree = MakeGroupTree(std::move(rows));
  const std::string wide = GroupsText(tree, Screen{});
  for (const char* line :
       {"Procs   CPU%  Thr%  Memory  Limit%  Swap  Read/s  Write/s  OOM\n/    ",
        "    1  150.2     -    1.5K       -     -       0     3.0K    -\n  s    ",
        "\n    docker-0123456789abcdef.scope  (container 0123456789ab)      1      -     -     "
        "512 ",
        "\n    x\\x1B\xEF\xBF\xBD  (container the-name-of-one\\x1B)  "}) {
    EXPECT_NE(wide.find(line), std::string::npos) << line << wide;
  }
  Screen narrow;
  narrow.width = 97;
  const std::string text = GroupsText(tree, narrow);
  EXPECT_NE(text.find("\n    (container 0123456789ab)  "), std::string::npos) << text;
  EXPECT_NE(text.find("\n    (container the-name-of-one..."), std::string::npos) << text;
  EXPECT_EQ(text.find("\n\n"), std::string::npos) << "one block";
  narrow.width = 70;
  EXPECT_NE(GroupsText(tree, narrow).find("\n\nGroup "), std::string::npos)
      << "names stand before each block";

  const Json json = GroupsJson(tree);
  EXPECT_EQ(json.Size(), 1u);
  const Json& docker = json[0]["children"][0]["children"][0];
  EXPECT_EQ(JsonText(docker),
            R"({"path":"/s/docker-0123456789abcdef.scope","name":"docker-0123456789abcdef.scope",)"
            R"("Kind":"container","Container ID":"0123456789abcdef","Processes":1.0,"CPU %":null,)"
            R"("Memory Bytes":512,"Limit %":null,"Read Bytes/sec":null,"Write Bytes/sec":null,)"
            R"("children":[]})");
}

TEST(GroupTree, TakesManyAndDeepGroups) {
  std::vector<std::string> paths{"/"};
  for (int i = 0; i < 10000; ++i) {
    paths.push_back("/flat/g" + std::to_string(i));
  }
  std::string deep;
  for (int i = 0; i < 400; ++i) {
    paths.push_back(deep += "/d");
  }
  // Of processor time, which does not depend on what else the machine does.
  const std::clock_t start = std::clock();
  std::vector<GroupNode> tree = TreeOf(paths);
  SortGroups(tree, GroupOrder({}, GroupSchema()));
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 10);
  EXPECT_NE(FindGroup(tree, deep), nullptr);
  const std::string text = JsonText(GroupsJson(tree), 2);
  EXPECT_EQ(ParseJson(text).fault, JsonFault::kNone) << "no deeper than readers take";
}

}  // namespace
