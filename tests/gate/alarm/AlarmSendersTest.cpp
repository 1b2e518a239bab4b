#include <mutex>

#include "gate/GateLoop.h"
#include "gate/alarm/AlertmanagerSender.h"
#include "gate/alarm/WebhookSender.h"
#include "json/JsonText.h"
#include "tests/gate/FakeServer.h"
#include "tests/support/Testing.h"

namespace {

AlarmPtr MakeAlarm(std::int64_t id, std::int64_t until = 0) {
  return ReadAlarm(Json{{"id", std::uint64_t(id)},
                        {"alarm", "disk-full"},
                        {"record", "FSL"},
                        {"key", Json{{"Mount Point", "/"}}},
                        {"severity", "warning"},
                        {"state", until == 0 ? "active" : "ended"},
                        {"since", std::uint64_t{1700000000}},
                        {"until", until == 0 ? Json(nullptr) : Json(std::uint64_t(until))},
                        {"text", "full"},
                        {"values", Json{{"Used %", 97.5}, {"State", "rw"}}}});
}

TEST(AlertTest, AnAlertHoldsWhatAReceiverTellsAlarmsApartBy) {
  const struct {
    const char* key;
    const char* labels;
  } cases[] = {
      {R"({"Mount Point":"/a"})", R"("mount_point":"/a")"},
      {R"({"I/O Name (x) ":"a","PID":7,"None":null,"Empty":""})", R"("io_name_x":"a","pid":"7")"},
      {R"({"Instance":"eth0","2nd":"x","%":"y"})",
       R"("key_instance":"eth0","key_2nd":"x","key_":"y")"},
  };
  for (const auto& row : cases) {
    Alarm alarm(*MakeAlarm(1));
    alarm.told["key"] = ParseJson(row.key).value;
    EXPECT_EQ(JsonText(AlertOf(alarm, "web-07", "http://link", 1700000100)),
              std::string(R"({"labels":{"alertname":"disk-full","severity":"warning",)") +
                  R"("instance":"web-07","record":"FSL",)" + row.labels +
                  R"(},"annotations":{"summary":"full","values":"Used % = 97.5, State = rw"},)" +
                  R"("startsAt":"2023-11-14T22:13:20Z","endsAt":"2023-11-14T22:19:00Z",)" +
                  R"("generatorURL":"http://link"})");
  }
  EXPECT_THAT(JsonText(AlertOf(*MakeAlarm(1, 1700000060), "", "", 1700000100)),
              HasSubstr(R"("endsAt":"2023-11-14T22:14:20Z"})"));
  // The clock was set back to a time before the begin.
  EXPECT_THAT(JsonText(AlertOf(*MakeAlarm(1), "", "", 1699999400)),
              HasSubstr(R"("startsAt":"2023-11-14T22:03:20Z","endsAt":"2023-11-14T22:07:20Z"})"));
  EXPECT_THAT(JsonText(AlertOf(*MakeAlarm(1, 1700000060), "", "", 1699999400)),
              HasSubstr(R"("startsAt":"2023-11-14T22:03:20Z","endsAt":"2023-11-14T22:03:20Z"})"));
  for (const char* text : {"{}", "[]", R"({"id":-1,"alarm":"x","since":5})",
                           R"({"id":1,"alarm":5,"since":5})", R"({"id":1,"alarm":"x"})"}) {
    EXPECT_EQ(ReadAlarm(ParseJson(text).value), nullptr) << text;
  }
}

/// A loop on a thread of its own, and a server that answers by a list of statuses, the last of
/// which goes on.
class SendersTest : public ::testing::Test {
 protected:
  ~SendersTest() override { End(); }
  /// From the loop's thread, where it runs already.
  void Do(std::function<void()> action) {
    loop.Post(std::move(action));
    if (!runner.joinable()) {
      runner = std::thread([this] { loop.Run(); });
    }
  }
  void End() {
    loop.Stop();
    if (runner.joinable()) {
      runner.join();
    }
  }
  /// What has come, once it is so many requests.
  std::vector<std::string> Bodies(std::size_t count) {
    EXPECT_TRUE(WaitUntil([&] {
      const std::lock_guard lock(mutex);
      return bodies.size() >= count;
    }));
    const std::lock_guard lock(mutex);
    return bodies;
  }
  AlarmReceiverSettings Settings() {
    return {"web-07", "", {}, [this](const std::string& text) { log.push_back(text); }, [] {}};
  }

  std::mutex mutex;
  std::vector<std::string> statuses;
  std::function<std::string(const std::string& body)> answerTo;  ///< instead of the list
  std::vector<std::string> bodies;
  std::vector<std::string> log;
  GateLoop loop;
  HttpSender sender{loop};
  std::thread runner;
  FakeServer server{[this](const FakeServer::Request& request) {
    const std::lock_guard lock(mutex);
    const std::string status =
        answerTo ? answerTo(request.body) : statuses[std::min(bodies.size(), statuses.size() - 1)];
    bodies.push_back(request.head.substr(0, request.head.find(" HTTP")) + ' ' + request.body);
    if (status.empty()) {
      // It breaks off.
      static_cast<void>(request.Say("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n"));
      return false;
    }
    return request.Answer(status);
  }};
};

TEST_F(SendersTest, AnAlertmanagerHearsOfWhatIsActiveAgainAndOfAnEndUntilItHasTakenIt) {
  statuses = {"500 Oops", "", "200 OK", "200 OK", "200 OK", "503 Busy", "429 Slowly", "200 OK"};
  const std::string url = "http://user@127.0.0.1:" + std::to_string(server.Port()) + "/secret/";
  AlertmanagerSender alertmanager(loop, sender, url, Settings(),
                                  {.gather = std::chrono::milliseconds(10),
                                   .again = std::chrono::milliseconds(300),
                                   .first = std::chrono::milliseconds(10)});
  Do([&] { alertmanager.Take(MakeAlarm(1), true); });
  const std::string active = Bodies(4).at(3);
  EXPECT_THAT(active,
              HasSubstr("POST /secret/api/v2/alerts [{\"labels\":{\"alertname\":\"disk-full\""));
  const std::int64_t now = std::time(nullptr);
  EXPECT_THAT(active, AnyOf(HasSubstr(JsonText(AlertOf(*MakeAlarm(1), "web-07", "", now))),
                            HasSubstr(JsonText(AlertOf(*MakeAlarm(1), "web-07", "", now - 1)))));
  // News goes alone, what is active comes again with its end.
  Do([&] { alertmanager.Take(MakeAlarm(2), true); });
  EXPECT_THAT(Bodies(5).at(4), Not(HasSubstr("},{\"labels")));
  const std::int64_t late = std::time(nullptr);
  Do([&] {
    alertmanager.Take(MakeAlarm(1, late), true);
    alertmanager.Take(MakeAlarm(2, late), true);
  });
  const std::vector<std::string> all = Bodies(8);
  ASSERT_EQ(all.size(), 8);
  EXPECT_EQ(all[7], "POST /secret/api/v2/alerts " +
                        JsonText(Json::Array({AlertOf(*MakeAlarm(1, late), "web-07", "", late),
                                              AlertOf(*MakeAlarm(2, late), "web-07", "", late)})));
  EXPECT_EQ(all[6], all[7]);
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_EQ(Bodies(0).size(), 8);
  End();
  const ReceiverFigures& figures = alertmanager.Figures();
  EXPECT_EQ(figures.sent, 4) << "two begins and two ends";
  EXPECT_EQ(figures.failures, 4);
  EXPECT_EQ(figures.dropped, 0);
  std::set<AlarmKey> owed;
  alertmanager.AddOwed(owed);
  EXPECT_TRUE(owed.empty());
  EXPECT_THAT(
      log, ElementsAre(HasSubstr("500"), HasSubstr("again"), HasSubstr("503"), HasSubstr("again")));
}

TEST_F(SendersTest, OneAlarmThatIsRefusedCostsNoOther) {
  const auto isBad = [](const std::string& body) {
    return body.find("\"severity\":\"odd\"") != std::string::npos;
  };
  answerTo = [&](const std::string& body) { return isBad(body) ? "400 Bad" : "200 OK"; };
  AlertmanagerSender alertmanager(loop, sender, server.Url(), Settings(),
                                  {.gather = std::chrono::milliseconds(1),
                                   .again = std::chrono::milliseconds(300),
                                   .first = std::chrono::milliseconds(1)});
  Do([&] {
    for (const std::int64_t id : {1, 2, 3, 4, 5, 6, 7, 8}) {
      Alarm alarm(*MakeAlarm(id));
      alarm.severity = id == 6 ? "odd" : "warning";
      alertmanager.Take(std::make_shared<Alarm>(alarm), true);
    }
  });
  // All, 1-4, 5-8, 5-6, 5, 6-7, 6, 7, 8, and a round later all that are left.
  const std::vector<std::string> all = Bodies(10);
  EXPECT_EQ(std::ranges::count_if(all, isBad), 5);
  EXPECT_FALSE(isBad(all.at(9)));
  End();
  EXPECT_EQ(alertmanager.Figures().sent, 7);
  EXPECT_EQ(alertmanager.Figures().dropped, 1);
  EXPECT_EQ(alertmanager.Figures().failures, 5);
  EXPECT_THAT(log,
              ElementsAre(HasSubstr("the alarm disk-full is refused and given up: status 400")));
}

TEST_F(SendersTest, AnEndThatIsNotTakenIsDroppedLate) {
  statuses = {"404 Not Found"};
  AlertmanagerSender alertmanager(
      loop, sender, server.Url(), Settings(),
      {.gather = std::chrono::milliseconds(1), .first = std::chrono::milliseconds(1)});
  Do([&] { alertmanager.Take(MakeAlarm(1, 1700000060), true); });
  Bodies(1);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  End();
  EXPECT_EQ(alertmanager.Figures().dropped, 1);
  EXPECT_EQ(bodies.size(), 1);
}

TEST_F(SendersTest, AWebhookIsTriedFiveTimesAndHearsOfTheNextInItsOrder) {
  statuses = {"500 Oops", "500 Oops", "302 Found", "",
              "500 Oops", "200 OK",   "500 Oops",  "204 None"};
  WebhookSender webhook(loop, sender, server.Url("/hook"), Settings(),
                        std::chrono::milliseconds(1));
  Do([&] {
    webhook.Take(MakeAlarm(9), false);
    for (const std::int64_t id : {1, 2, 3}) {
      webhook.Take(MakeAlarm(id), true);
    }
  });
  const std::vector<std::string> all = Bodies(8);
  ASSERT_EQ(all.size(), 8);
  for (const auto& [place, id] : {std::pair{4, 1}, std::pair{5, 2}, std::pair{7, 3}}) {
    EXPECT_EQ(all[static_cast<std::size_t>(place)],
              "POST /hook " + JsonText(Json{{"host", "web-07"}, {"alarm", MakeAlarm(id)->told}}));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  // Too many at once: the oldest but the one on its way give way.
  Do([&] {
    for (std::size_t id = 1; id <= WebhookSender::kMostWaiting + 2; ++id) {
      webhook.Take(MakeAlarm(std::int64_t(id)), true);
    }
  });
  EXPECT_THAT(Bodies(10).at(9), HasSubstr("\"id\":4,"));
  End();
  EXPECT_EQ(webhook.Figures().failures, 6);
  EXPECT_EQ(webhook.Figures().dropped, 3);
}

}  // namespace
