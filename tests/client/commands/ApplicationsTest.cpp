#include "client/ask/Errors.h"
#include "tests/client/ClientHarness.h"
#include "tests/json/JsonOf.h"
#include "tests/support/Testing.h"

namespace {

Json Item(const char* kind, int id, const std::string& label, const std::string& value,
          int current = 0) {
  Json item{{"kind", kind}, {"id", id}, {"label", label}, {"help", ""}, {"value", value}};
  if (item["kind"] == "choice") {
    item["current"] = current;
    item["choices"] = Json::Array();
  }
  return item;
}

Json Folder(const std::string& label, Json children) {
  return {{"kind", "folder"}, {"label", label}, {"help", ""}, {"children", std::move(children)}};
}

/// An application whose second condition looks for httpd.
Json Application(const std::string& name, int place) {
  Json items = Json::Array();
  for (int n = 0; n < 15; ++n) {
    const int id = 1001 + 64 * place + 4 * n;
    const std::string label = (n < 9 ? "Process0" : "Process") + std::to_string(n + 1);
    items.PushBack(Item("choice", id, label + " Kind", n == 1 ? "Execute" : "None", n == 1));
    items.PushBack(Item("text", id + 1, label + " Name", n == 1 ? "httpd\x1b" : ""));
    items.PushBack(Item("text", id + 2, label + " Range", "1-2"));
  }
  return Folder(name, std::move(items));
}

Json Tree() {
  const std::vector<std::string> names{
      "None", "ADD AN APPLICATION MONITORING SETTING", "web", "twice", "4", "twice"};
  Json folders = Json::Array();
  Json remove = Item("choice", 22, "DELETE AN APPLICATION MONITORING SETTING", "None");
  remove["choices"].PushBack("None");
  for (std::size_t i = 0; i < names.size(); ++i) {
    folders.PushBack(Application(names[i], static_cast<int>(i)));
    remove["choices"].PushBack(names[i]);
  }
  return {{"children",
           {Folder("Agent Configuration",
                   {Folder("Application monitoring setting", std::move(folders)),
                    Folder("ADDITION OR DELETION A SETTING",
                           {Item("text", 21, "ADD AN APPLICATION MONITORING SETTING", ""),
                            std::move(remove)})})}}};
}

std::string Serve(const Json& request) {
  const std::string op = request["op"].Text();
  if (op == "config") {
    return Answer(request, {{"config", Tree()}});
  }
  if (op == "get") {
    return Answer(request, JsonOf(R"({"results": [{"record": "APP", "category": "3",
        "time": 5, "rows": [{"Application Name": "web", "Application Status": "ABNORMAL",
        "Monitor 2 Count": 3, "Monitor 2 Status": "ABNORMAL"}]}]})"));
  }
  if (op == "report") {
    return Answer(request, JsonOf(R"({"report": {"columns": ["PID", "Rule"],
        "rows": [["7", "Users=a\u001b"], ["12", ""]], "notes": ["1 process is in two."]}})"));
  }
  const bool isRefused = request["value"] == "bad";
  return Answer(request, {{"result",
                           {{"item", request["item"]},
                            {"outcome", isRefused ? "refused" : "done"},
                            {"code", isRefused ? -36 : 0}}}});
}

class Applications : public testing::Test {
 protected:
  Outcome Run(std::vector<std::string> words) {
    words.insert(words.begin(), {"--socket", m_server.Path()});
    return RunProgram(QMTCTL_PATH, words);
  }
  /// The changes asked for since the last call, as "item=value" with a blank behind each.
  std::string Changes() {
    std::string text;
    const std::vector<Json> requests = m_server.Requests();
    for (; m_seen < requests.size(); ++m_seen) {
      const Json& request = requests[m_seen];
      if (request["op"] == "config_set") {
        text += JsonText(request["item"]) + "=" + request["value"].Text() + " ";
      }
    }
    return text;
  }

  ScratchFolder m_folder;
  std::size_t m_seen = 0;
  ScriptedServer m_server{m_folder.Path(), "s", Serve};
};

TEST_F(Applications, ChangesReachTheItemsOfTheirLabels) {
  const std::string longest = "21=" + std::string(63, 'n') + " ";
  const struct {
    std::vector<std::string> words;
    int exit;
    const char* changes;
  } cases[] = {
      {{"add", "db"}, kExitDone, "21=db "},
      {{"add", "bad"}, kExitRefused, "21=bad "},
      {{"add", ""}, kExitUsage, ""},
      // The daemon would lose them at its next start, or cut them.
      {{"add", "a:b"}, kExitRefused, ""},
      {{"add", std::string(70, 'n')}, kExitRefused, ""},
      {{"add", std::string(63, 'n')}, kExitDone, longest.c_str()},
      {{"delete", "web"}, kExitDone, "22=web "},
      // The first choice means that nothing is deleted.
      {{"delete", "None"}, kExitDone, "22=1 "},
      {{"delete", "WEB"}, kExitRefused, ""},
      // By its place it would be the application "4".
      {{"delete", "twice"}, kExitRefused, ""},
      {{"set", "web", "2", "--kind", "command-line", "--name", "a*", "--range", "1-3"},
       kExitDone,
       "1134=a* 1135=1-3 1133=Command Line "},
      {{"set", "web", "15", "--range", "bad", "--kind", "none"}, kExitRefused, "1187=bad "},
      {{"set", "None", "1", "--name", ""}, kExitDone, "1002= "},
      {{"set", "web", "16", "--range", "1"}, kExitUsage, ""},
      {{"set", "web", "0", "--range", "1"}, kExitUsage, ""},
      {{"set", "web", "1", "--kind", "Program"}, kExitUsage, ""},
      {{"set", "web", "1"}, kExitUsage, ""},
      {{"set", "nothing", "1", "--range", "1"}, kExitRefused, ""},
  };
  for (const auto& row : cases) {
    std::vector<std::string> words{"app"};
    words.insert(words.end(), row.words.begin(), row.words.end());
    const Outcome run = Run(words);
    EXPECT_EQ(run.exit, row.exit) << run.err;
    EXPECT_EQ(run.out, row.exit == kExitDone ? "done\n" : "");
    EXPECT_EQ(run.err.empty(), row.exit == kExitDone) << run.err;
    EXPECT_EQ(Changes(), row.changes);
  }
}

TEST_F(Applications, TheListShowsConditionsAndHowTheyDo) {
  EXPECT_THAT(Run({"app", "list"}).out,
              HasSubstr("web                                    ABNORMAL   2  Execute  "
                        "httpd\\x1B  1-2        3  ABNORMAL\n"));
  EXPECT_THAT(Run({"complete-applications"}).out, testing::MatchesRegex("(.*\n)?web\n(.*\n)?"));
}

TEST_F(Applications, WorkgroupExplainShowsTheReport) {
  const Outcome run = Run({"workgroup", "explain", "g", "--pid", "7"});
  EXPECT_EQ(run.exit, kExitDone) << run.err;
  EXPECT_EQ(run.out, "PID  Rule\n  7  Users=a\\x1B\n 12  -\n\n1 process is in two.\n");
  EXPECT_EQ(JsonText(m_server.Requests().at(0)),
            R"({"op":"report","report":"workgroups","arguments":{"name":"g","pid":"7"}})");
  EXPECT_EQ(Run({"workgroup", "explain", "--pid", "x"}).exit, kExitUsage);
}

}  // namespace
