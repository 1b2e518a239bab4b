#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>

#include "gate/GateLoop.h"
#include "gate/alarm/AlarmDesk.h"
#include "tests/gate/FakeServer.h"
#include "tests/gate/GateHarness.h"

namespace {

Json ToldAlarm(int id, std::int64_t since, std::int64_t until = 0) {
  return Json{{"id", id},
              {"alarm", "swap"},
              {"state", until == 0 ? "active" : "ended"},
              {"since", since},
              {"until", until == 0 ? Json(nullptr) : Json(until)}};
}

/// A desk with a webhook, of a daemon whose alarms a test lists.
class AlarmDeskTest : public ::testing::Test {
 protected:
  /// What a gate is for as long as it runs.
  struct Session {
    Session(const std::string& path, const AlarmTargets& targets, AlarmDesk::Hooks hooks)
        : desk(loop, path),
          sender(loop),
          alarms(std::make_unique<AlarmDesk>(desk, sender, targets, std::move(hooks))),
          runner([this] { loop.Run(); }) {}
    ~Session() { Stop(); }
    void Stop() {
      loop.Stop();
      if (runner.joinable()) {
        runner.join();
      }
    }
    GateLoop loop;
    DaemonDesk desk;
    HttpSender sender;
    std::unique_ptr<AlarmDesk> alarms;
    std::thread runner;
  };

  ~AlarmDeskTest() override {
    session.reset();
    daemon.Stop();
  }
  std::string Answer(const Json& request) {
    const std::lock_guard lock(mutex);
    if (request["op"] == Json("alarm_follow")) {
      Json active = Json::Array();
      for (const Json& alarm : alarms.Elements()) {
        if (alarm["state"] == Json("active")) {
          active.PushBack(alarm);
        }
      }
      return JsonText(Json{{"ok", true}, {"alarms", active}}) + '\n';
    }
    Json noted = request;
    // A minute before a contact, all of which are of this test.
    const std::int64_t contact = request["since"].Whole() + 60;
    noted["since"] = contact >= begun && contact <= std::time(nullptr) ? 1 : contact;
    asked.push_back(JsonText(noted));
    if (isRefusing) {
      return "busy\n";
    }
    Json list = Json::Array();
    const Json* until = request.Find("until");
    for (const Json& alarm : alarms.Elements()) {
      if (list.Size() < request["limit"].Unsigned() &&
          (until == nullptr || alarm["since"].Whole() <= until->Whole())) {
        list.PushBack(alarm);
      }
    }
    return JsonText(Json{{"ok", true}, {"alarms", Json{{"list", list}}}}) + '\n';
  }
  void Set(const Json& list) {
    const std::lock_guard lock(mutex);
    alarms = list;
  }
  void Begin() {
    AlarmTargets targets;
    targets.webhooks = {server.Url()};
    targets.webhooks.insert(targets.webhooks.end(), others.begin(), others.end());
    targets.folder = folder.Path().string();
    const auto report = [this](const std::string& line) {
      const std::lock_guard lock(mutex);
      log.push_back(line);
    };
    session.emplace(Path(), targets,
                    AlarmDesk::Hooks{report, [] {}, [this] { return std::time(nullptr) + ahead; }});
  }
  void TellEvent(const Json& alarm) {
    EXPECT_TRUE(WaitUntil([&] { return daemon.Followers("alarm_follow") != 0; }));
    daemon.Tell(JsonText(Json{{"event", "alarm"}, {"alarm", alarm}}), "alarm_follow");
  }
  /// What the webhook was told since the last call, once it is so much, as "ID STATE".
  std::vector<std::string> Told(std::size_t count) {
    EXPECT_TRUE(WaitUntil([&] {
      const std::lock_guard lock(mutex);
      return told.size() >= count;
    }));
    // More than is expected has time to come, too.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::lock_guard lock(mutex);
    return std::exchange(told, {});
  }
  [[nodiscard]] std::string Path() const { return (folder.Path() / "control.sock").string(); }
  [[nodiscard]] std::string Kept() const { return folder.Read("alarms.json"); }
  /// Whether it comes to hold the text.
  [[nodiscard]] bool Keeps(const std::string& text) const {
    return WaitUntil([&] { return Kept().find(text) != std::string::npos; });
  }

  TempFolder folder;
  std::mutex mutex;
  Json alarms = Json::Array();
  std::vector<std::string> asked;
  const std::time_t begun = std::time(nullptr);
  std::vector<std::string> told;
  std::vector<std::string> log;
  std::atomic<bool> isRefusing = false;  ///< to list alarms
  std::string status = "200 OK";
  std::atomic<std::time_t> ahead = 0;  ///< seconds that the gate's clock is
  std::vector<std::string> others;     ///< further webhooks
  FakeServer server{[this](const FakeServer::Request& request) {
    const std::lock_guard lock(mutex);
    const Json alarm = ParseJson(request.body).value["alarm"];
    told.push_back(JsonText(alarm["id"]) + ' ' + alarm["state"].Text());
    return request.Answer(status);
  }};
  FakeDaemon daemon{Path(), [this](const Json& request) { return Answer(request); }};
  std::optional<Session> session;
};

TEST_F(AlarmDeskTest, WhatBeganAndEndedWhileTheDaemonWasAwayIsToldOnce) {
  Set(Json::Array({ToldAlarm(1, 1000, 1001), ToldAlarm(2, 1002), ToldAlarm(3, 1003)}));
  Begin();
  // What ended before the first contact is nobody's news.
  EXPECT_THAT(Told(2), ElementsAre("2 active", "3 active"));
  TellEvent(ToldAlarm(4, 1004));
  TellEvent(ToldAlarm(4, 1004));
  TellEvent(ToldAlarm(4, 1004, 1005));
  TellEvent(ToldAlarm(4, 1004, 1005));
  TellEvent(ToldAlarm(5, 1005));
  EXPECT_THAT(Told(3), ElementsAre("4 active", "4 ended", "5 active"));
  daemon.Stop();
  // 2 has ended, 3 goes on, 5 has ended and is known no more, 6 began and ended, 7 has begun.
  Set(Json::Array({ToldAlarm(7, 1007), ToldAlarm(6, 1006, 1007), ToldAlarm(4, 1004, 1005),
                   ToldAlarm(3, 1003), ToldAlarm(2, 1002, 1006), ToldAlarm(1, 1000, 1001)}));
  daemon.Start();
  EXPECT_THAT(Told(4), ElementsAre("7 active", "2 ended", "6 ended", "5 ended"));
  EXPECT_THAT(asked, ElementsAre(R"({"op":"alarms","since":1,"limit":1000})"));
  // A history that has begun anew counts from 1 again; 3 and 7 are others then.
  session.reset();
  Set(Json::Array({ToldAlarm(3, 2000), ToldAlarm(1, 2000)}));
  Begin();
  EXPECT_THAT(Told(2), ElementsAre("1 active", "3 active"));
  TellEvent(ToldAlarm(3, 1003, 2001));
  TellEvent(ToldAlarm(7, 2001, 2002));
  TellEvent(ToldAlarm(3, 2000, 2002));
  EXPECT_THAT(Told(2), ElementsAre("7 ended", "3 ended"));
}

TEST_F(AlarmDeskTest, AClockThatWasAheadKeepsNoAlarmOfANewHistoryBack) {
  const std::int64_t now = std::time(nullptr);
  const Json old{{"id", 500}, {"since", now + 100'000}};
  // That of then has ended with its history, goes on, or another of then is told to have ended.
  for (const Json& active : {Json::Array(), Json::Array({ToldAlarm(500, now + 100'000)}),
                             Json::Array({ToldAlarm(499, now + 90'000, now + 90'001)})}) {
    std::ofstream(folder.Path() / "alarms.json")
        << JsonText(Json{{"contact", now + 100'001},
                         {"newest", 500},
                         {"newest_since", now + 100'000},
                         {"active", active.Size() == 0 ? active : Json::Array({old})}});
    Set(active);
    Begin();
    EXPECT_THAT(Told(0), IsEmpty());
    const std::int64_t begin = std::time(nullptr);
    TellEvent(ToldAlarm(3, begin));
    TellEvent(ToldAlarm(3, begin, begin + 1));
    EXPECT_THAT(Told(2), ElementsAre("3 active", "3 ended"));
    session.reset();
  }
}

TEST_F(AlarmDeskTest, WhatEndedIsFoundBehindAsManyAsAnAnswerHolds) {
  Set(Json::Array({ToldAlarm(2000, 9000), ToldAlarm(1, 1000)}));
  Begin();
  EXPECT_THAT(Told(2), ElementsAre("1 active", "2000 active"));
  daemon.Stop();
  Json list = Json::Array({ToldAlarm(2000, 9000)});
  for (int id = 1500; id > 1; --id) {
    list.PushBack(ToldAlarm(id, 1000 + id, 1001 + id));
  }
  list.PushBack(ToldAlarm(1, 1000, 1001));
  Set(list);
  daemon.Start();
  EXPECT_THAT(Told(1), ElementsAre("1 ended"));
  EXPECT_THAT(asked, ElementsAre(R"({"op":"alarms","since":1,"limit":1000})",
                                 R"({"op":"alarms","since":1,"limit":1000,"until":1502})"));
}

TEST_F(AlarmDeskTest, WhatCannotBeToldIsCountedAndLogged) {
  Set(Json::Array({ToldAlarm(1, 1000)}));
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("1 active"));
  // As full as an answer may be, and its second asked for twice.
  const std::pair<int, std::vector<std::string>> rounds[] = {{500, {"500 ended", "1 ended"}},
                                                             {502, {"502 ended"}}};
  for (const auto& [id, heard] : rounds) {
    daemon.Stop();
    Json list = Json::Array();
    for (int count = 0; count < 1000; ++count) {
      list.PushBack(ToldAlarm(id, 1500 + id, 2002));
    }
    Set(list);
    daemon.Start();
    EXPECT_THAT(Told(heard.size()), testing::ElementsAreArray(heard));
  }
  session->Stop();
  EXPECT_THAT(log, ElementsAre(HasSubstr("498 alarms began and ended"),
                               StartsWith("an alarm began and ended")));
  EXPECT_EQ(session->alarms->Figures().at(0).dropped, 499U);
}

TEST_F(AlarmDeskTest, WhatWasMissedIsToldAlsoAfterAnAnswerThatFailedAndARestart) {
  Set(Json::Array({ToldAlarm(1, 1000)}));
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("1 active"));
  daemon.Stop();
  isRefusing = true;
  Set(Json::Array({ToldAlarm(3, 1003), ToldAlarm(2, 1001, 1002), ToldAlarm(1, 1000)}));
  daemon.Start();
  EXPECT_TRUE(WaitUntil([&] {
    const std::lock_guard lock(mutex);
    return asked.size() > 1;
  }));
  EXPECT_THAT(Told(1), ElementsAre("3 active"));
  session.reset();
  isRefusing = false;
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("2 ended"));
}

/// Alarms `newest` to 1 that have ended; so many of them began in each second.
Json EndedAlarms(int newest, int inSecond) {
  Json list = Json::Array();
  for (int id = newest; id > 0; --id) {
    list.PushBack(ToldAlarm(id, 10000 + id / inSecond, 90000));
  }
  return list;
}

TEST(MissedAlarmsTest, WhatIsBeyondTheBoundsIsCounted) {
  constexpr int kListed = 10;
  constexpr int kAnswers = 3;
  // The alarms of the oldest second are asked for once more.
  constexpr int kAll = kListed * kAnswers - (kAnswers - 1);
  struct Case {
    int newest;    ///< number
    int inSecond;  ///< alarms
    std::int64_t told;
    std::int64_t toldSince;
    std::size_t found;
    std::uint64_t lost;
  };
  const Case cases[] = {
      {kListed - 1, 1, 0, 1, kListed - 1, 0},
      {kAll - 1, 1, 0, 1, kAll - 1, 0},
      {2 * kAll, 1, 0, 1, kAll, kAll},
      {2 * kAll, 1, 5, 1, kAll, kAll - 5},
      // A history that has begun anew, and one that tells nothing new.
      {2 * kAll, 1, 5 * kAll, 1, kAll, kAll},
      {2 * kAll, 1, 5 * kAll, 20000, 0, 0},
      // A second with three times what an answer holds.
      {6 * kListed - 1, 3 * kListed, 0, 1, 2 * kListed, 4 * kListed - 1},
      // A clock that was set back each time.
      {2 * kAll, -1, 0, 1, kListed, 2 * kAll - kListed},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(testing::Message() << one.newest << ' ' << one.inSecond << ' ' << one.told);
    AlarmMemory before;
    before.contact = 10000;
    before.newest = one.told;
    before.newestSince = one.toldSince;
    MissedAlarms missed(before, before, {}, {kListed, kAnswers});
    // As it is read, which tells numbers without a sign.
    const Json all = ParseJson(JsonText(EndedAlarms(one.newest, one.inSecond))).value;
    Json list;
    do {
      list = Json::Array();
      const Json question = missed.Question();
      const Json* until = question.Find("until");
      for (const Json& alarm : all.Elements()) {
        if (list.Size() < kListed &&
            (until == nullptr || alarm["since"].Whole() <= until->Whole())) {
          list.PushBack(alarm);
        }
      }
    } while (missed.Take(list));
    EXPECT_EQ(missed.Ended().size(), one.found);
    EXPECT_EQ(missed.Lost(), one.lost);
  }
}

TEST(MissedAlarmsTest, WhatIsOwedIsAskedForSinceItsBegin) {
  AlarmMemory before;
  before.contact = 10000;
  before.active = {{1000, 1}};
  EXPECT_EQ(MissedAlarms(before, before, {}, {}).Question()["since"], Json(9940));
  before.owed = {{{5000, 2}, {}}, {{3000, 3}, {}}};
  EXPECT_EQ(MissedAlarms(before, before, {{3000, 3}}, {}).Question()["since"], Json(5000));
}

TEST_F(AlarmDeskTest, AGateThatComesBackTellsWhatItHasMissedOrStillOwes) {
  Set(Json::Array({ToldAlarm(1, 1000), ToldAlarm(2, 1001)}));
  Begin();
  EXPECT_THAT(Told(2), ElementsAre("1 active", "2 active"));
  status = "500 Oops";
  TellEvent(ToldAlarm(3, 1002));
  EXPECT_THAT(Told(1), Contains("3 active"));
  EXPECT_TRUE(Keeps(R"("owed":[{"id":3,"since":1002}])")) << Kept();
  session.reset();
  Told(0);
  status = "200 OK";
  Set(Json::Array({ToldAlarm(4, 1003, 1004), ToldAlarm(3, 1002, 1003), ToldAlarm(2, 1001),
                   ToldAlarm(1, 1000, 1004)}));
  Begin();
  EXPECT_THAT(Told(3), ElementsAre("1 ended", "3 ended", "4 ended"));
  session.reset();
  Begin();
  EXPECT_THAT(Told(0), IsEmpty());
  EXPECT_THAT(log, Not(Contains(HasSubstr("alarms.json"))));
  // What can't be read is as none, and told.
  session.reset();
  std::ofstream(folder.Path() / "alarms.json") << "{\"contact\":\"x\",\"active\":[5";
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("2 active"));
  EXPECT_THAT(log, Contains(HasSubstr("alarms.json: it is no file of this program's; all alarms")));
}

TEST_F(AlarmDeskTest, WhatOneReceiverIsOwedIsToldToThatOneAlone) {
  std::atomic<bool> isAway = true;
  std::atomic<int> taken = 0;
  FakeServer other([&](const FakeServer::Request& request) {
    taken += isAway ? 0 : 1;
    return request.Answer(isAway ? "500 Oops" : "200 OK");
  });
  others = {other.Url()};
  Set(Json::Array({ToldAlarm(7, 1000)}));
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("7 active"));
  EXPECT_TRUE(Keeps(R"("owed":[{"id":7,"since":1000,"to":[)")) << Kept();
  session.reset();
  isAway = false;
  Begin();
  EXPECT_TRUE(WaitUntil([&] { return taken == 1; }));
  EXPECT_THAT(Told(0), IsEmpty());
  EXPECT_TRUE(Keeps(R"("owed":[])")) << Kept();
}

TEST_F(AlarmDeskTest, WhatIsReadAfterAStopDoesNotEndTheGapBeforeIt) {
  Set(Json::Array({ToldAlarm(1, 1000)}));
  Begin();
  EXPECT_THAT(Told(1), ElementsAre("1 active"));
  ahead = 3600;
  TellEvent(ToldAlarm(2, 1001));
  EXPECT_THAT(Told(1), ElementsAre("2 active"));
  daemon.Stop();
  daemon.Start();
  EXPECT_THAT(Told(1), ElementsAre("2 ended"));
  EXPECT_THAT(asked, ElementsAre(R"({"op":"alarms","since":1,"limit":1000})"));
}

TEST(AlarmMemoryTest, AllThatTheDaemonMayHaveActiveIsKept) {
  const TempFolder folder;
  const std::string path = folder.Path() / "alarms.json";
  AlarmMemory memory;
  constexpr std::int64_t kMost = std::int64_t{1} << 62;
  constexpr int kShare = 20;  // of 500 definitions with 1000 rows each
  for (int count = 0; count < 500 * 1000 / kShare; ++count) {
    memory.active.insert({kMost, kMost - count});
  }
  std::string error;
  EXPECT_EQ(ReadAlarmMemory(path, error), AlarmMemory{});
  EXPECT_EQ(error, "") << "there is none yet";
  const std::string text = AlarmMemoryText(memory);
  EXPECT_LT(text.size() * kShare, kMostMemoryBytes);
  std::ofstream(path) << text;
  EXPECT_TRUE(ReadAlarmMemory(path, error) == memory);
  EXPECT_EQ(error, "");
  std::filesystem::resize_file(path, kMostMemoryBytes + 1);
  EXPECT_EQ(ReadAlarmMemory(path, error), AlarmMemory{});
  EXPECT_THAT(error, HasSubstr("longer than " + std::to_string(kMostMemoryBytes)));
}

TEST_F(GateFixture, ReceiversOfTheSettingsAreToldAndTheDaemonHearsHowItWent) {
  std::mutex guard;
  std::string body;
  FakeServer server([&](const FakeServer::Request& request) {
    const std::lock_guard lock(guard);
    body = request.body;
    return request.Answer("200 OK");
  });
  Begin(
      [](const Json& request) {
        return request["op"] == Json("alarm_follow")
                   ? JsonText(Json{{"ok", true}, {"alarms", Json::Array({ToldAlarm(1, 1000)})}}) +
                         '\n'
                   : std::string("{\"ok\":true}\n");
      },
      Json{{"alarms",
            Json{{"alertmanager", Json::Array({"http://u:p@" + server.Url("/x").substr(7)})},
                 {"link", "http://l"}}}});
  const std::string wanted =
      R"([{"url":")" + server.Url("") + R"(","sent":1,"failures":0,"dropped":0}])";
  EXPECT_TRUE(WaitUntil([&] { return Told("notices") == wanted; })) << Told("notices");
  const std::lock_guard lock(guard);
  EXPECT_THAT(body, HasSubstr(R"("instance":"own.example")"));
  EXPECT_THAT(body, HasSubstr(R"("generatorURL":"http://l")"));
}

}  // namespace
