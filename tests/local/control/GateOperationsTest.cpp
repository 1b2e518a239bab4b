#include "local/control/ConsoleTokens.h"
#include "local/log/RecentMessages.h"
#include "node/MessageCatalog.h"
#include "tests/local/ServedControl.h"

namespace {

class ConsoleTokensTest : public ::testing::Test {
 protected:
  ConsoleTokens Tokens() {
    return {"tokens", [this](const std::string& text) { m_told.push_back(text); },
            [this] { return m_now; }};
  }

  const ScratchDirectory m_directory;
  std::time_t m_now = 1000000;
  std::vector<std::string> m_told;
};

TEST_F(ConsoleTokensTest, ATokenIsGoodForItsTimeAlsoAfterARestart) {
  ConsoleTokens first = Tokens();
  const ConsoleToken token = first.Make();
  EXPECT_EQ(token.text.size(), 43U);
  EXPECT_EQ(token.expires, m_now + 12 * 3600);
  struct stat status {};
  ASSERT_EQ(::stat("tokens", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  ConsoleTokens second = Tokens();
  for (ConsoleTokens* tokens : {&first, &second}) {
    EXPECT_EQ(tokens->Check(token.text), token.expires);
    for (const std::string& wrong :
         {std::string(), token.text + "A", token.text.substr(1), std::string(43, 'A')}) {
      EXPECT_EQ(tokens->Check(wrong), 0) << wrong;
    }
  }
  m_now = token.expires - 1;
  EXPECT_EQ(second.Check(token.text), token.expires);
  m_now = token.expires;
  EXPECT_EQ(second.Check(token.text), 0);

  std::set<std::string> others;
  for (std::size_t i = 0; i < ConsoleTokens::kMost; ++i) {
    others.insert(first.Make().text);
  }
  EXPECT_EQ(others.size(), ConsoleTokens::kMost);
  EXPECT_NE(first.Check(*others.begin()), 0);
  const ConsoleToken last = first.Make();
  ConsoleTokens third = Tokens();
  EXPECT_NE(third.Check(last.text), 0);
  std::size_t good = 0;
  for (const std::string& other : others) {
    good += third.Check(other) != 0 ? 1 : 0;
  }
  EXPECT_EQ(good, ConsoleTokens::kMost - 1) << "the oldest has gone";
  EXPECT_THAT(m_told, IsEmpty());
}

TEST_F(ConsoleTokensTest, AHostileFileIsBegunAnew) {
  const std::string good = std::string(43, 'A') + " 1000100\n";
  const auto write = [](const std::string& text) {
    std::ofstream("tokens") << text;
    std::filesystem::permissions("tokens", std::filesystem::perms(0600));
  };
  std::string many;
  for (int i = 0; i < 65; ++i) {
    many += good;
  }
  const struct {
    const char* what;
    std::function<void()> make;
    bool isTaken;
  } rows[] = {
      {"good", [&] { write(good); }, true},
      {"empty", [&] { write(""); }, false},
      {"cut", [&] { write(good + std::string(43, 'B')); }, false},
      {"zero bytes", [&] { write(good + std::string(20, '\0') + "\n"); }, false},
      {"for ever", [&] { write(good + std::string(43, 'B') + " 9999999999\n"); }, false},
      {"overflow", [&] { write(good + std::string(43, 'B') + " 99999999999999999999\n"); }, false},
      {"too many", [&] { write(many); }, false},
      {"long", [&] { write(good + std::string(1 << 20, 'x')); }, false},
      {"read by others", [&] { write(good), ::chmod("tokens", 0640); }, false},
      {"a link",
       [&] {
         std::ofstream("target") << good;
         std::filesystem::create_symlink("target", "tokens");
       },
       false},
      {"a pipe", [] { ASSERT_EQ(::mkfifo("tokens", 0600), 0); }, false},
  };
  for (const auto& row : rows) {
    std::filesystem::remove("tokens");
    m_told.clear();
    row.make();
    ConsoleTokens tokens = Tokens();
    EXPECT_EQ(tokens.Check(std::string(43, 'A')), row.isTaken ? 1000100 : 0) << row.what;
    EXPECT_EQ(m_told.size(), row.isTaken || std::string(row.what) == "empty" ? 0U : 1U) << row.what;
    const ConsoleToken token = tokens.Make();
    EXPECT_EQ(Tokens().Check(token.text), token.expires) << row.what;
    struct stat status {};
    ASSERT_EQ(::lstat("tokens", &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0600U) << row.what;
  }
}

TEST_F(ConsoleTokensTest, ATokenThatCannotBeKeptIsGoodUntilTheDaemonEnds) {
  const auto tokens = [this] {
    return ConsoleTokens(
        "none/tokens", [this](const std::string& text) { m_told.push_back(text); },
        [this] { return m_now; });
  };
  ConsoleTokens first = tokens();
  const ConsoleToken token = first.Make();
  EXPECT_EQ(first.Check(token.text), token.expires);
  EXPECT_EQ(tokens().Check(token.text), 0);
  EXPECT_THAT(m_told, ElementsAre("none/tokens: No such file or directory; console tokens end "
                                  "with the daemon"));
}

TEST(RecentMessagesTest, TheLastAreKeptWithinBounds) {
  RecentMessages recent;
  for (int i = 0; i < 300; ++i) {
    recent.Add(i, kWarning, std::to_string(i) + "\x1b");
  }
  EXPECT_EQ(recent.Last(1000).size(), RecentMessages::kMost);
  EXPECT_EQ(recent.Last(2).at(0).text, "298\\x1b");
  EXPECT_EQ(recent.Last(1).at(0).time, 299);
  for (int i = 0; i < 300; ++i) {
    recent.Add(i, kError, std::string(10000, 'x'));
  }
  EXPECT_EQ(recent.Last(1000).size(), RecentMessages::kMostBytes / RecentMessages::kMostText);
}

class GateOperationsTest : public ::testing::Test, protected ServedControl {};

TEST_F(GateOperationsTest, AGateLearnsItsSettingsAndTellsWhereItListens) {
  operations.TheGate().SetFacts({"unit",
                                 {"[::1]:1"},
                                 {"n"},
                                 "/c",
                                 "/k",
                                 "/u",
                                 "/t",
                                 false,
                                 "/s",
                                 Json::Array({Json{{"name", "far"}}}),
                                 Json{{"link", "l"}}});
  operations.TheGate().SetLog([](std::size_t count) {
    return std::vector<RecentMessage>(std::min<std::size_t>(count, 3), {7, kError, "text"});
  });
  Serve([&] {
    TestClient client;
    const auto shown = [&] { return client.Ask(R"({"op":"status"})")["status"]["http"].Text(); };
    {
      TestClient gate;
      Json facts = gate.Ask(R"({"op":"gate","addresses":["127.0.0.1:80","[::1]:81"]})")["gate"];
      facts.Erase("version");
      EXPECT_EQ(JsonText(facts),
                R"({"mode":"unit","listen":["[::1]:1"],"names":["n"],"certificate":"/c",)"
                R"("key":"/k","users":"/u","tokens":"/t","arguments":false,"state":"/s",)"
                R"("push":[{"name":"far"}],"alarms":{"link":"l"},"host":""})");
      TestClient other;
      EXPECT_EQ(other.Ask(R"({"op":"gate","addresses":[]})")["ok"], true);
      EXPECT_EQ(shown(), "127.0.0.1:80, [::1]:81") << "nobody else takes them away";
      const Json console = client.Ask(R"({"op":"console_token"})")["console"];
      EXPECT_EQ(console["addresses"].Size(), 2U);
      EXPECT_EQ(client.Ask(R"({"op":"console_token"})")["error"]["code"], "busy");
      const auto check = [&](const std::string& token) {
        return JsonText(client.Ask(R"({"op":"token_check","token":")" + token + "\"}"));
      };
      EXPECT_EQ(check(console["token"].Text()),
                "{\"ok\":true,\"valid\":true,\"expires\":" + JsonText(console["expires"]) + "}");
      EXPECT_EQ(check("x"), R"({"ok":true,"valid":false,"expires":0})");
    }
    EXPECT_TRUE(WaitUntil([&] { return shown().empty(); }, std::chrono::seconds(5))) << shown();
    EXPECT_EQ(JsonText(client.Ask(R"({"op":"log","lines":1})")),
              R"({"ok":true,"log":[{"time":7,"level":"error","text":"text"}]})");
    EXPECT_EQ(client.Ask(R"({"op":"log"})")["log"].Size(), 3U);
    const std::string tooMany = JsonText(std::vector<std::string>(17, "1.1.1.1:1"));
    const struct {
      std::string line;
      const char* field;
    } refused[] = {{R"({"op":"gate","addresses":["evil"]})", "addresses"},
                   {R"({"op":"gate","addresses":"1.1.1.1:1"})", "addresses"},
                   {R"({"op":"gate","addresses":)" + tooMany + "}", "addresses"},
                   {R"({"op":"token_check"})", "token"},
                   {R"({"op":"log","lines":0})", "lines"},
                   {R"({"op":"log","lines":201})", "lines"},
                   {R"({"op":"log","lines":1.5})", "lines"}};
    for (const auto& row : refused) {
      EXPECT_EQ(client.Ask(row.line)["error"]["field"], row.field) << row.line;
    }
  });
  EXPECT_THAT(problems, IsEmpty());
}

TEST_F(GateOperationsTest, WhatAGateSendsIsShownForAsLongAsItIsThere) {
  const std::string push =
      R"([{"name":"far","url":"http://h:1/w?key=secret","error":"refused","oldest":1000,"sent_rows":1,)"
      R"("sent_samples":2,"refused_samples":3,"skipped_samples":4,"requests":5,"failures":6,)"
      R"("bytes":7,"seconds":1.5}])";
  const auto withoutSecrets = [](std::string text) {
    for (const char* secret : {"?key=secret", "/secret", "/other"}) {
      if (const std::size_t place = text.find(secret); place != std::string::npos) {
        text.erase(place, std::string(secret).size());
      }
    }
    return text;
  };
  const std::string notices = R"([{"url":"http://h/secret","sent":1,"failures":2,"dropped":3},)"
                              R"({"url":"http://h/other","sent":10,"failures":20,"dropped":30}])";
  Serve([&] {
    TestClient client;
    const auto shown = [&] {
      const Json status = client.Ask(R"({"op":"status"})")["status"];
      return JsonText(status["push"]) + JsonText(status["notices"]);
    };
    const auto metrics = [&] {
      const Json head = client.Ask(R"({"op":"metrics"})");
      return client.ReceiveBytes(static_cast<std::size_t>(head["metrics"]["bytes"].Whole()));
    };
    {
      TestClient gate;
      gate.Ask(R"({"op":"gate","push":)" + push + "}");
      EXPECT_EQ(shown(), withoutSecrets(push) + "[]");
      gate.Ask(R"({"op":"gate","notices":)" + notices + "}");
      TestClient other;
      other.Ask(R"({"op":"gate","push":[]})");
      EXPECT_EQ(shown(), withoutSecrets(push + notices))
          << "each stands until it is told anew, by the same gate";
      const std::string text = metrics();
      for (const char* line : {"qmt_agent_push_failing{target=\"far\"} 1\n",
                               "qmt_agent_push_sent_rows_total{target=\"far\"} 1\n",
                               "qmt_agent_push_skipped_samples_total{target=\"far\"} 4\n",
                               "qmt_agent_push_bytes_total{target=\"far\"} 7\n",
                               "qmt_agent_push_seconds_total{target=\"far\"} 1.5\n",
                               "qmt_agent_push_oldest_age_seconds{target=\"far\"} 1",
                               "qmt_agent_notices_sent_total{receiver=\"http://h\"} 11\n",
                               "qmt_agent_notices_dropped_total{receiver=\"http://h\"} 33\n"}) {
        EXPECT_THAT(text, HasSubstr(line));
      }
      EXPECT_THAT(text, Not(HasSubstr("secret")));
    }
    EXPECT_TRUE(WaitUntil([&] { return shown() == "[][]"; }, std::chrono::seconds(5))) << shown();
    client.Ask(R"({"op":"gate","notices":[]})");
    EXPECT_EQ(shown(), "[][]") << "what the gate before has told is not its own";
    EXPECT_THAT(metrics(), Not(HasSubstr("qmt_agent_push_")));
    const std::string tooMany = JsonText(std::vector<Json>(65, Json{{"name", "n"}}));
    const std::pair<std::string, const char*> refused[] = {
        {R"("push":{})", "push"},
        {R"("push":[1])", "push"},
        {R"("push":[{}])", "push"},
        {R"("push":[{"name":1}])", "push"},
        {R"("push":[{"name":"n","requests":-1}])", "push"},
        {R"("push":[{"name":"n","seconds":-0.5}])", "push"},
        {R"("push":[{"name":"n","oldest":18446744073709551615}])", "push"},
        {"\"push\":" + tooMany, "push"},
        {R"("notices":[{"sent":1}])", "notices"}};
    for (const auto& [members, field] : refused) {
      EXPECT_EQ(client.Ask(R"({"op":"gate",)" + members + "}")["error"]["field"], field) << members;
    }
  });
}

TEST_F(GateOperationsTest, AGateReadsAtTheMostAndFollowsAlarmsWhoeverElseDoes) {
  bool isGate = false;
  settings.isGate = [&](const PeerIdentity& peer) { return isGate && peer.process == ::getpid(); };
  const std::pair<const char*, bool> rows[] = {{R"({"op":"status"})", true},
                                               {R"({"op":"console_token"})", false},
                                               {R"({"op":"schedule_remove","record":"X"})", false},
                                               {R"({"op":"shutdown"})", false},
                                               {R"({"op":"alarm_follow"})", true}};
  Serve([&] {
    TestClient own;
    EXPECT_EQ(own.Ask(R"({"op":"schedule_remove","record":"X"})")["error"]["code"],
              "not-scheduled");
    const std::string follow = R"({"op":"alarm_follow"})";
    std::list<TestClient> followers(AlarmQueries::kMostFollowers);
    for (TestClient& follower : followers) {
      EXPECT_EQ(follower.Ask(follow)["ok"], true);
    }
    EXPECT_EQ(own.Ask(follow)["error"]["code"], "busy");
    isGate = true;
    TestClient gate;
    for (const auto& [line, isAllowed] : rows) {
      const Json answer = gate.Ask(line);
      EXPECT_EQ(answer["ok"], isAllowed) << line;
      EXPECT_TRUE(isAllowed || answer["error"]["code"] == "permission-denied") << line;
    }
  });
}

}  // namespace
