#include "node/NodeConfig.h"
#include "tests/local/ServedControl.h"

namespace {

/// Tables first, a folder in a folder, and a choice whose table doesn't exist.
void FillFakeTree(CMBNodeConfigRequest& root) {
  char kinds[] = "None\0\0\0\0Execute\0Fullname";
  root.push_back(new CMBNodeConfigPossibleValues(7, 24, kinds, 8));
  char twins[] = "web\0Web";
  root.push_back(new CMBNodeConfigPossibleValues(9, 8, twins, 4));
  char shadowed[] = "Other";
  root.push_back(new CMBNodeConfigPossibleValues(7, 5, shadowed, 5));
  auto* outer = new CMBNodeConfigRequest("Outer", "Outer help.");
  auto* inner = new CMBNodeConfigRequest("Inner\xff");
  inner->push_back(new CMBNodeConfigItem(1001, "Kind", "Help.", 7, 1, 0));
  inner->push_back(new CMBNodeConfigItem(1002, "Lost", "", 8, 3, 1));
  inner->push_back(new CMBNodeConfigItem(1004, "Twins", "", 9, 0, 1));
  outer->push_back(inner);
  char value[] = "00:00";
  outer->push_back(new CMBNodeConfigItem(3, "Time", "", value, 2048, 0, 1));
  root.push_back(outer);
  root.push_back(new CMBNodeConfigRequest("Empty"));
}

class ConfigOperationsTest : public ::testing::Test, protected ServedControl {
 protected:
  ConfigOperationsTest() {
    agent.onConfig = [this](CMBNodeConfigRequest& root) {
      FillFakeTree(root);
      return treeStatus;
    };
    agent.onUpdate = [this](CMBNodeConfigUpdate& update) {
      const char* text = update;
      updates.push_back(std::to_string(update.id()) + "|" + text + "|" +
                        (update.HasChoice() ? std::to_string(update.currentValue()) : "none"));
      return updateResult;
    };
  }

  Json Ask(const std::string& line) { return ServedControl::Ask(line, peer); }

  std::shared_ptr<FakePeer> peer = std::make_shared<FakePeer>(Rights::kChange);
  int treeStatus = kNotifyDone;
  int updateResult = 0;
  std::vector<std::string> updates;
};

TEST_F(ConfigOperationsTest, TheTreeComesInItsOrderWithItsTablesLookedUp) {
  EXPECT_EQ(Ask(R"({"op":"config","id":5})"), JsonOf(
                                                  R"({"id":5,"ok":true,"config":{"children":[
            {"kind":"folder","label":"Outer","help":"Outer help.","children":[
              {"kind":"folder","label":"Inner)"
                                                  "\xEF\xBF\xBD"
                                                  R"(","help":"","children":[
                {"kind":"choice","id":1001,"label":"Kind","help":"Help.","value":"Execute",
                 "current":1,"choices":["None","Execute","Fullname"],"flags":[0]},
                {"kind":"choice","id":1002,"label":"Lost","help":"","value":"",
                 "current":3,"choices":[],"flags":[1]},
                {"kind":"choice","id":1004,"label":"Twins","help":"","value":"web",
                 "current":0,"choices":["web","Web"],"flags":[1]}]},
              {"kind":"text","id":3,"label":"Time","help":"","value":"00:00",
               "max_length":2048,"flags":[0,1]}]},
            {"kind":"folder","label":"Empty","help":"","children":[]}],
            "facts":{}}})"));
}

TEST_F(ConfigOperationsTest, AChangeReachesTheAgentAsItsItemTakesIt) {
  const struct {
    const char* item;
    const char* value;
    const char* update;
  } cases[] = {
      {"3", R"("12:30")", "3|12:30|none"},
      {"3", R"("")", "3||none"},
      {"3", R"("-1")", "3|-1|none"},
      // What the tree lacks may be a text or a choice: the agent knows.
      {"4", R"("../a;rm -rf b\u001b\n")", "4|../a;rm -rf b\x1b\n|none"},
      {"6", R"("1")", "6|1|1"},
      {"6", R"("No")", "6|No|none"},
      {"1004", R"("Web")", "1004|Web|1"},
      {"65535", R"("65535")", "65535|65535|65535"},
      {"65535", R"("65536")", "65535|65536|none"},
      {"1001", R"("Fullname")", "1001|Fullname|2"},
      {"1001", R"("nONE")", "1001|nONE|0"},
      {"1001", R"("1")", "1001|1|1"},
  };
  for (const auto& entry : cases) {
    const Json answer = Ask(std::string(R"({"op":"config_set","item":)") + entry.item +
                            R"(,"value":)" + entry.value + "}");
    EXPECT_EQ(answer["ok"], true) << answer;
    EXPECT_THAT(std::exchange(updates, {}), ElementsAre(entry.update));
  }
}

TEST_F(ConfigOperationsTest, AWrongChangeNeverReachesTheAgent) {
  const struct {
    const char* members;
    const char* field;
  } cases[] = {
      {R"("value":"x")", "item"},
      {R"("item":"3","value":"x")", "item"},
      {R"("item":3.0,"value":"x")", "item"},
      {R"("item":-1,"value":"x")", "item"},
      {R"("item":65536,"value":"x")", "item"},
      {R"("item":18446744073709551619,"value":"x")", "item"},
      {R"("item":3)", "value"},
      {R"("item":3,"value":7)", "value"},
      {R"("item":3,"value":"a\u0000b")", "value"},
      {R"("item":3,"value":"x","rates":true)", "rates"},
  };
  for (const auto& entry : cases) {
    const Json answer = Ask(std::string(R"({"op":"config_set",)") + entry.members + "}");
    EXPECT_EQ(answer["error"]["code"], "bad-field") << entry.members;
    EXPECT_EQ(answer["error"]["field"], entry.field) << entry.members;
  }
  for (const char* members : {R"("item":1001,"value":"Nothing")", R"("item":1001,"value":"3")",
                              R"("item":1001,"value":"")", R"("item":1002,"value":"0")",
                              R"("item":1004,"value":"WEB")"}) {
    const Json answer = Ask(std::string(R"({"op":"config_set",)") + members + "}");
    EXPECT_EQ(answer["result"]["outcome"], "refused") << members;
    EXPECT_EQ(answer["result"]["code"], -36) << members;
  }
  treeStatus = kNotifyNotServed;
  EXPECT_EQ(Ask(R"({"op":"config_set","item":3,"value":"x"})")["error"]["code"], "config-failed");
  EXPECT_EQ(Ask(R"({"op":"config"})")["error"]["code"], "config-failed");
  EXPECT_THAT(updates, ElementsAre());
}

TEST_F(ConfigOperationsTest, TheAgentsResultIsToldInWords) {
  const std::pair<int, const char*> cases[] = {
      {0, "done"}, {1, "not-written"}, {-36, "refused"}, {-1, "failed"}, {68, "failed"}};
  for (const auto& [code, outcome] : cases) {
    updateResult = code;
    EXPECT_EQ(Ask(R"({"op":"config_set","item":3,"value":"x"})")["result"],
              Json({{"item", 3}, {"outcome", outcome}, {"code", code}}));
  }
}

TEST_F(ConfigOperationsTest, ItIsServedInsideABatchThatYieldsAndAnsweredOnce) {
  loop.Post({[&](CMBNode&) {
               operations.Handle(R"({"op":"config_set","item":3,"value":"x"})", peer);
               EXPECT_EQ(peer->answers.size(), 0U);
               loop.Yield(0);
               EXPECT_EQ(peer->answers.size(), 1U);
               loop.Post({[](CMBNode&) { EventLoop::RequestStop(); }, {}, false});
             },
             {},
             true});
  loop.Run(agent);
  EXPECT_EQ(peer->answers.size(), 1U);
  EXPECT_THAT(updates, ElementsAre("3|x|none"));
}

TEST_F(ConfigOperationsTest, AStopOvertakesAChangeAndAClientThatHasGoneDoesNot) {
  loop.Post({[](CMBNode&) { EventLoop::RequestStop(); }, {}, false});
  EXPECT_EQ(Ask(R"({"op":"config_set","item":3,"value":"x"})")["error"]["code"], "stopping");
  EXPECT_THAT(updates, ElementsAre());
  peer->isGone = true;
  Ask(R"({"op":"config_set","item":3,"value":"x"})");
  EXPECT_THAT(updates, ElementsAre("3|x|none"));
}

}  // namespace
