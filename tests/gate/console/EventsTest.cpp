#include <crypt.h>

#include "tests/gate/KeyPair.h"
#include "tests/gate/TlsClient.h"

namespace {

constexpr const char* kRowsOfPi =
    R"({"event":"rows","record":"PI","category":"4","time":7,"rows":[]})";
constexpr const char* kBatch = R"({"event":"batch","time":7})";

class EventsTest : public GateFixture {
 protected:
  EventsTest() : now(std::time(nullptr)) {}
  /// The daemon's history: two rows of one time on two pages, and one of the next, of each record.
  std::string History(const Json& request) {
    const std::lock_guard lock(mutex);
    asked.push_back(JsonText(request));
    const bool isSecond = request.Find("after") != nullptr;
    const auto row = [&](std::int64_t time, int number) {
      return Json{{"Record Time", time}, {"N", number}};
    };
    const Json rows =
        isSecond ? Json::Array({row(now - 5, 2), row(now - 4, 3)}) : Json::Array({row(now - 5, 1)});
    return JsonText(Json{
               {"ok", true},
               {"history", Json{{"record", request["record"]},
                                {"category", "4"},
                                {"rows", rows},
                                {"next", isSecond ? Json(nullptr) : Json::Array({now - 5, 1})}}}}) +
           '\n';
  }
  void Listen(HttpClient& client, const std::string& query, const std::string& headers = "") {
    client.Ask("/api/1/events" + query, kToken + headers);
    client.Receive(": events\n");
  }
  void Follow(std::size_t count = 1, const std::string& operation = "follow") {
    EXPECT_TRUE(WaitUntil([&] { return daemon->Followers(operation) == count; }))
        << daemon->Followers(operation);
  }
  FakeDaemon::Answer Answers() {
    return [this](const Json& request) {
      if (request["op"] == Json("records")) {
        return std::string(R"({"ok":true,"records":[{"record":"PI"},{"record":"CPUP"},)") +
               R"({"record":"PDI"}]})" + '\n';
      }
      return request["op"] == Json("history") ? History(request) : std::string("{\"ok\":true}\n");
    };
  }

  std::int64_t now;
  std::vector<std::string> asked;
};

TEST_F(EventsTest, EachReaderGetsWhatItAskedForByOneQuestionToTheDaemon) {
  Begin(Answers());
  HttpClient all(Address());
  HttpClient some(Address());
  Listen(all, "");
  Listen(some, "?records=4:CPUP,PDI,PDI");
  EXPECT_THAT(Ask("/api/1/events?records=PI,NONE"),
              AllOf(HasSubstr("HTTP/1.1 404"), HasSubstr("no record \\\"NONE\\\"")));
  Follow();
  daemon->Tell(kRowsOfPi);
  daemon->Tell(R"({"event":"rows","record":"CPUP","category":"4","time":7,"rows":[1]})");
  daemon->Tell(kBatch);
  const std::string text = all.Receive("\"batch\",");
  EXPECT_THAT(text, HasSubstr("Content-Type: text/event-stream"));
  EXPECT_THAT(text, HasSubstr("event: rows\ndata: " + std::string(kRowsOfPi) + "\n\n"));
  const std::string other = some.Receive("\"batch\",");
  EXPECT_THAT(other, Not(HasSubstr("\"PI\"")));
  EXPECT_THAT(other, HasSubstr("\"CPUP\""));
  EXPECT_THAT(other, HasSubstr("id: 7\nevent: batch\ndata: " + std::string(kBatch)));
  // The daemon ends and comes again: that is told, and the readers are to come again too.
  daemon->Stop();
  EXPECT_THAT(all.Receive("gone"), HasSubstr("event: daemon\ndata: {\"state\":\"gone\"}"));
  daemon->Start();
  EXPECT_THAT(all.Receive(), HasSubstr("event: daemon\ndata: {\"state\":\"back\"}"));
}

TEST_F(EventsTest, AlarmsAreToldToAllAndRowsComeWithoutThem) {
  bool isRefused = false;
  Begin([&](const Json& request) {
    return isRefused && request["op"] == Json("alarm_follow")
               ? std::string("{\"ok\":false,\"error\":{\"code\":\"bad-field\"}}\n")
               : Answers()(request);
  });
  HttpClient client(Address());
  Listen(client, "?records=PI");
  Follow(1, "alarm_follow");
  daemon->Tell(R"({"event":"alarm"})", "alarm_follow");
  daemon->Tell(R"({"event":"alarm","alarm":{"id":17,"text":"a\nb"}})", "alarm_follow");
  EXPECT_THAT(client.Receive("\"id\":17"), HasSubstr("event: alarm\ndata: {\"alarm\":{\"id\":17,"));
  // A daemon that knows none.
  daemon->Stop();
  client.Receive("gone");
  isRefused = true;
  daemon->Start();
  EXPECT_THAT(client.Receive(), HasSubstr("event: daemon\ndata: {\"state\":\"back\"}"));
  HttpClient other(Address());
  Listen(other, "?records=PI");
  Follow();
  daemon->Tell(kRowsOfPi);
  EXPECT_THAT(other.Receive("rows\":[]"), Not(HasSubstr("gone")));
}

TEST_F(EventsTest, WhatWasMissedIsReadBackBeforeWhatIsNew) {
  Begin(Answers());
  HttpClient client(Address());
  const std::string id = std::to_string(now - 6);
  Listen(client, "?records=PI,CPUP&since=1", "Last-Event-ID: " + id + "\r\n");
  Follow();
  daemon->Tell(kBatch);
  const std::string text = client.Receive("\"batch\",");
  const auto rows = [&](const char* record, std::int64_t time, const std::string& list) {
    return std::string(R"({"event":"rows","record":")") + record + R"(","category":"4","time":)" +
           std::to_string(time) + ",\"rows\":[" + list + "]}\n";
  };
  const auto row = [](std::int64_t time, int number) {
    return JsonText(Json{{"Record Time", time}, {"N", number}});
  };
  for (const char* record : {"PI", "CPUP"}) {
    EXPECT_THAT(text, HasSubstr(rows(record, now - 5, row(now - 5, 1) + ',' + row(now - 5, 2))));
    EXPECT_THAT(text, HasSubstr(rows(record, now - 4, row(now - 4, 3))));
  }
  EXPECT_LT(text.find("\"N\":3"), text.find("event: batch"));
  EXPECT_THAT(text, Not(HasSubstr("event: lost")));
  EXPECT_THAT(asked.front(), HasSubstr("\"since\":" + id));
  // A time to come is now.
  HttpClient early(Address());
  Listen(early, "?records=PI&since=9223372036854775807");
  EXPECT_THAT(early.Receive("\"N\":3"), Not(HasSubstr("event: lost")));
  // What lies too far back is told to be lost.
  HttpClient late(Address());
  Listen(late, "?records=PI&since=5");
  EXPECT_THAT(late.Receive("\"N\":3"), HasSubstr("event: lost\ndata: {\"since\":5,"));
}

TEST_F(EventsTest, WhoIsLetInNoLongerIsGivenNothingMore) {
  const std::string stem = folder.Path() / "own";
  const std::string tokens = folder.Path() / "tokens";
  MakeKeyPair(stem, std::time(nullptr) + 1000);
  std::ofstream(tokens) << "t:" << ::crypt("secret", "$5$rounds=1000$salt$") << ":read\n";
  Begin(Answers(),
        Json{{"certificate", stem + ".crt"}, {"key", stem + ".key"}, {"tokens", tokens}});
  const auto listen = [this](const char* login) {
    auto client = std::make_unique<TlsClient>(Address());
    const bool isIn =
        client->Ask("/api/1/events", login, ": events\n").starts_with("-HTTP/1.1 200");
    return isIn ? std::move(client) : nullptr;
  };
  std::pair<std::unique_ptr<TlsClient>, const char*> all[] = {{nullptr, "Bearer t.secret"},
                                                              {nullptr, "Bearer good"}};
  // Those that have gone take nobody's place.
  for (std::size_t count = 0; count < 2 + EventDesk::kMostOfOneLogin; ++count) {
    ASSERT_TRUE(all[0].first = listen(all[0].second)) << count;
  }
  Follow();
  daemon->Tell(kBatch);
  EXPECT_THAT(all[0].first->Receive("batch"), HasSubstr("batch"));
  // The console token may end before a slow machine has let it in.
  ASSERT_TRUE(WaitUntil([&] {
    tokenEnd = std::time(nullptr) + 2;
    return (all[1].first = listen(all[1].second)) != nullptr;
  }));
  std::ofstream(tokens) << "# nobody\n";
  // The file is looked at once a second.
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  ASSERT_TRUE(WaitUntil([&] { return std::time(nullptr) > tokenEnd; }));
  daemon->Tell(kRowsOfPi);
  Follow(0);
  for (const auto& [client, login] : all) {
    EXPECT_THAT(client->Receive("rows"), Not(HasSubstr("rows"))) << login;
    EXPECT_THAT(TlsClient(Address()).Ask("/api/1/events", login, "\r\n"), HasSubstr(" 401 "));
  }
}

TEST(EventListenerTest, WhatWaitsForOneWhoIsLetInNoLongerIsDropped) {
  GateLoop loop;
  DaemonDesk desk(loop, "");
  bool isLetIn = true;
  const auto stream = std::make_shared<HttpStream>();
  EventListener listener(desk, {"a", [&] { return isLetIn; }}, {}, stream, true);
  listener.Start(0);
  EXPECT_NE(stream->Waiting(), 0U);
  isLetIn = false;
  listener.Give(FrameOf("daemon", "{}"));
  EXPECT_TRUE(stream->IsEnded());
  EXPECT_EQ(stream->Waiting(), 0U);
}

TEST_F(EventsTest, ReadersBeyondTheLimitAndSlowOnesGiveWay) {
  Begin(Answers());
  for (std::size_t place = 0; place < 2 + EventDesk::kMostOfOneLogin; ++place) {
    HttpClient gone(Address());
    Listen(gone, "");
    EXPECT_THAT(gone.Receive("\n\n"), HasSubstr("HTTP/1.1 200")) << place;
  }
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (std::size_t place = 0; place < EventDesk::kMostListeners; ++place) {
    clients.push_back(std::make_unique<HttpClient>(Address()));
    const std::size_t login = place / EventDesk::kMostOfOneLogin;
    const std::string token = "Authorization: Bearer good" + std::to_string(login) + "\r\n";
    clients.back()->Ask("/api/1/events", token);
    EXPECT_THAT(clients.back()->Receive(": events\n"), HasSubstr("HTTP/1.1 200"));
    if ((place + 1) % EventDesk::kMostOfOneLogin == 0 && login < 3) {
      EXPECT_THAT(Ask("/api/1/events", token),
                  AllOf(HasSubstr("HTTP/1.1 503"), HasSubstr("login")));
    }
  }
  EXPECT_THAT(Ask("/api/1/events"), HasSubstr("HTTP/1.1 503"));
  Follow();
  // None of them reads; each event is shared by all.
  const std::string rows = R"({"event":"rows","record":"PI","category":"4","time":7,"rows":[")" +
                           std::string(1 << 20, 'x') + "\"]}";
  for (int count = 0; count < 20; ++count) {
    daemon->Tell(rows);
  }
  EXPECT_THAT(Ask("/-/healthy"), HasSubstr("healthy"));
  clients.clear();
  Follow(0);
  EXPECT_THAT(Ask("/api/1/gate"), HasSubstr("\"listeners\":0"));
}

}  // namespace
