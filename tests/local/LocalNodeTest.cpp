#include "local/LocalNode.h"

#include <atomic>

#include "node/FigureRegistry.h"
#include "node/MessageCatalog.h"
#include "tests/json/JsonOf.h"
#include "tests/local/ServedControl.h"

namespace {

/// Counts the objects that live.
class CountedObject : public CMBUserObject {
 public:
  explicit CountedObject(std::atomic<int>& count) : m_count(count) { ++m_count; }
  ~CountedObject() override { --m_count; }

 private:
  std::atomic<int>& m_count;
};

/// Each test has a working directory of its own; the node is the one that the program is linked
/// with.
class LocalNodeTest : public ::testing::Test {
 protected:
  LocalNodeTest() { PublishFakeRecords(); }
  ~LocalNodeTest() override {
    agent.reset();
    MBStatTerminate();
    MBDebugTerm();
  }

  void WriteIni(const std::string& text) { std::ofstream("qmtagt.ini") << text; }
  static std::string Log() { return FileText("log/qmtdmon.log"); }

  /// Runs the node while `script` plays the clients on another thread, and stops it afterwards
  /// where the script doesn't.
  void Serve(const std::function<void()>& script, bool scriptStops = false) {
    ASSERT_EQ(MBDebugInit(0, "qmtdmon", "tag", 24, 'U', 'A', 'D'), 0);
    ASSERT_EQ(MBStatInitialize('U', 'A', 'D', nullptr), 0);
    ASSERT_EQ(agent->Connect(), 0);
    std::thread clients([&] {
      script();
      if (!scriptStops) {
        CMBRunnableNode::setSignalStatus(15);
      }
    });
    EXPECT_EQ(agent->Run(), 0);
    clients.join();
    EXPECT_FALSE(std::filesystem::exists("run/control.sock"));
  }

  ScratchDirectory directory;
  std::unique_ptr<FakeAgent> agent = std::make_unique<FakeAgent>();
};

void WaitFor(const std::atomic<bool>& flag) {
  EXPECT_TRUE(WaitUntil([&] { return flag.load(); }));
}

TEST_F(LocalNodeTest, AGetIsOneBatchWithEachNameInItsOrder) {
  std::vector<std::size_t> batches;
  std::set<CMBRecordRequest*> requests;
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    batches.push_back(batch.m_events.size());
    for (CMBRecordRequestEvent* event : batch.m_events) {
      requests.insert(event->m_requests.at(0));
      EXPECT_EQ(event->IsRealtime(), 1);
      EXPECT_EQ(event->ShouldCalcRates(), 0);
      event->m_records.push_back(new FakeRecord(static_cast<std::uint32_t>(requests.size())));
    }
    return kNotifyDone;
  };
  Serve([&] {
    TestClient client;
    const Json first = client.Ask(
        R"({"op":"get","id":{"n":1},"records":["NOPE",{"record":"FAKE","category":"4"},"IDLE",)"
        R"({"record":"FAKE","category":"3"},"BARE","FAKE"]})");
    EXPECT_EQ(first["id"], Json({{"n", 1}}));
    EXPECT_EQ(first["ok"], true);
    std::vector<std::string> seen;
    for (const Json& result : first["results"].Elements()) {
      seen.push_back(result["record"].Text() + " " +
                     (result.Find("error") != nullptr ? result["error"]["code"].Text()
                                                      : JsonText(result["rows"][0]["Count"])));
    }
    EXPECT_THAT(seen, ElementsAre("NOPE unknown-record", "FAKE 1", "IDLE not-served",
                                  "FAKE unknown-record", "BARE unknown-record", "FAKE 2"));
    EXPECT_EQ(first["results"][1]["time"], 1700000000);
    EXPECT_EQ(first["results"][1]["category"], "4");
    const Json status = client.Ask(R"({"op":"status"})")["status"];
    EXPECT_EQ(status["last_batch"]["records"], 6);
    EXPECT_EQ(status["last_batch"]["errors"], 4);
    EXPECT_TRUE(status["last_scheduled_batch"].IsNull());

    Json many{{"op", "get"}, {"records", std::vector<std::string>(1000, "FAKE")}};
    EXPECT_EQ(client.Ask(JsonText(many))["results"].Size(), 1000U);
    EXPECT_EQ(client.Ask(R"({"op":"get","records":["NOPE"]})")["results"].Size(), 1U);
  });
  EXPECT_THAT(batches, ElementsAre(2U, 1000U));
  // The requests of the first batch were used again.
  EXPECT_EQ(requests.size(), 1000U);
}

TEST_F(LocalNodeTest, AConnectionRemembersItsLastAnswerAndForgetsItAtItsEnd) {
  std::atomic<int> objects{0};
  std::vector<std::size_t> previous;
  std::vector<int> rates;
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    CMBRecordRequestEvent& event = *batch.m_events.at(0);
    previous.push_back(event.PreviousRecords().size());
    rates.push_back(event.ShouldCalcRates());
    if (event.m_requests.at(0)->GetUserObject() == nullptr) {
      event.m_requests.at(0)->SetUserObject(new CountedObject(objects));
    }
    event.m_records.push_back(new FakeRecord(1));
    event.m_records.push_back(new FakeRecord(2));
    return kNotifyDone;
  };
  Serve([&] {
    TestClient client;
    client.Ask(R"({"op":"get","records":["FAKE"]})");
    client.Ask(R"({"op":"get","records":["FAKE"],"rates":false})");
    client.Ask(R"({"op":"get","records":["FAKE"],"rates":true})");
    EXPECT_EQ(objects, 2);
    TestClient other;
    other.Ask(R"({"op":"get","records":["FAKE"]})");
    EXPECT_EQ(objects, 3);
    client.Hangup();
    while (objects != 1) {
      other.Ask(R"({"op":"status"})");
    }
  });
  EXPECT_THAT(previous, ElementsAre(0U, 2U, 0U, 0U));
  EXPECT_THAT(rates, ElementsAre(0, 0, 1, 0));
}

TEST_F(LocalNodeTest, AHostileLineGetsAnErrorAndTheConnectionLivesOn) {
  struct Case {
    std::string line;
    const char* code;
    const char* field;
  };
  const Json manyNames{{"op", "get"}, {"records", std::vector<std::string>(1025, "FAKE")}};
  const std::vector<Case> cases{
      {"", "bad-json", ""},
      {"hello", "bad-json", ""},
      {"[1]", "bad-json", ""},
      {"{\"op\":\"status\xff\"}", "bad-json", ""},
      {R"({"op":"status"} {})", "bad-json", ""},
      {R"({"op":"status","id":)" + std::string(30000, '[') + std::string(30000, ']') + "}",
       "bad-json", ""},
      {R"({"op":"status","id":")" + std::string(70000, 'x') + "\"}", "too-long", ""},
      {"{}", "bad-field", "op"},
      {R"({"op":7})", "bad-field", "op"},
      {R"({"op":"dance"})", "unknown-op", "op"},
      {R"({"op":"status","records":[]})", "bad-field", "records"},
      {R"({"op":"schema"})", "bad-field", "record"},
      {R"({"op":"schema","record":"NOPE"})", "unknown-record", "record"},
      {R"({"op":"schema","record":"FAKE","category":4})", "bad-field", "category"},
      {R"({"op":"get","records":"FAKE"})", "bad-field", "records"},
      {R"({"op":"get","records":[1]})", "bad-field", "records"},
      {R"({"op":"get","records":[{"record":"FAKE","op":"x"}]})", "bad-field", "op"},
      {R"({"op":"get","records":[{"record":"FAKE","category":"44"}]})", "bad-field", "category"},
      {R"({"op":"get","records":["FAKE"],"rates":1})", "bad-field", "rates"},
      {JsonText(manyNames), "bad-field", "records"},
      {R"({"op":"last","records":["FAKE","NOPE"],"rates":true})", "bad-field", "rates"},
  };
  Serve([&] {
    TestClient client;
    for (const Case& entry : cases) {
      const Json answer = client.Ask(entry.line);
      const std::string shown = entry.line.substr(0, 60) + " -> " + JsonText(answer);
      ASSERT_TRUE(answer.IsObject()) << shown;
      EXPECT_EQ(answer["ok"], false) << shown;
      EXPECT_EQ(answer["error"]["code"], entry.code) << shown;
      const Json* field = answer["error"].Find("field");
      EXPECT_EQ(field == nullptr ? Json("") : *field, entry.field) << shown;
    }
    EXPECT_EQ(client.Ask(R"({"op":"last","records":["FAKE"]})")["results"][0]["error"]["code"],
              "not-scheduled");
    EXPECT_EQ(client.Ask(R"({"op":"records","id":1})")["records"][1],
              Json({{"record", "IDLE"}, {"category", "3"}, {"served", false}, {"layout", true}}));
    const Json fields = client.Ask(R"({"op":"schema","record":"FAKE"})")["schema"]["fields"];
    EXPECT_EQ(fields[0], Json({{"label", "Record Type"},
                               {"type", "char[8]"},
                               {"offset", 0},
                               {"width", 8},
                               {"meaning", "text"}}));
    EXPECT_EQ(fields[4]["of"], "Count");
    EXPECT_TRUE(fields[5]["two_looks"].Bool());
  });
}

TEST_F(LocalNodeTest, AFailedBuildIsAnErrorOfItsRecordOrOfTheWholeBatch) {
  LayoutRegistry::Instance().PublishListing({{"FAKE", '4', true}, {"IDLE", '3', true}});
  std::atomic<int> status{kNotifyDone};
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    batch.m_events.at(0)->m_records.push_back(new FakeRecord(1));
    const char* args[] = {"FAKE"};
    __MBDebugPrintMsg(10300, 10, kWarning, "file.cpp", 1, "failed (record=%1)", 1, args, 0);
    return status.load();
  };
  Serve([&] {
    TestClient client;
    const char* get = R"({"op":"get","records":["FAKE","IDLE"]})";
    const Json first = client.Ask(get)["results"];
    EXPECT_EQ(first[0]["error"]["code"], "build-failed");
    EXPECT_EQ(first[1]["rows"], Json::Array());
    EXPECT_GT(first[1]["time"].Whole(), 1700000000);
    status = kNotifyNotServed;
    EXPECT_EQ(client.Ask(get)["results"][1]["error"]["code"], "build-failed");
    EXPECT_EQ(client.Ask(R"({"op":"status"})")["status"]["last_batch"]["errors"], 2);
  });
}

TEST_F(LocalNodeTest, ABatchThatYieldsServesOthersWhileASecondBatchAndAGoneClientsRequestsWait) {
  std::atomic<bool> isBuilding{false};
  std::atomic<bool> mayEnd{false};
  std::atomic<int> objects{0};
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const Descriptor reader(pipe[0]);
  const Descriptor writer(pipe[1]);
  int depth = 0;
  int batches = 0;
  int objectsAtEnd = 0;
  bool hadSocketEvent = false;
  agent->onSocket = [&](int descriptor) {
    hadSocketEvent = true;
    EXPECT_EQ(agent->CancelEvent(descriptor), 0);
  };
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    EXPECT_EQ(++depth, 1);
    if (++batches == 1) {
      batch.m_events.at(0)->m_requests.at(0)->SetUserObject(new CountedObject(objects));
      EXPECT_EQ(agent->ScheduleEvent(reader.Get()), 0);
      isBuilding = true;
      while (!mayEnd || !hadSocketEvent) {
        batch.m_events.at(0)->yield();
      }
      for (int i = 0; i < 20; ++i) {
        batch.m_events.at(0)->yield();
      }
      objectsAtEnd = objects;
    }
    --depth;
    return kNotifyDone;
  };
  Serve([&] {
    TestClient gone;
    EXPECT_TRUE(gone.Send(R"({"op":"get","records":["FAKE"]})"));
    WaitFor(isBuilding);
    TestClient second;
    EXPECT_TRUE(second.Send(R"({"op":"get","records":["FAKE"]})"));
    TestClient third;
    EXPECT_TRUE(third.Ask(R"({"op":"status"})")["ok"].Bool());
    gone.Hangup();
    EXPECT_TRUE(third.Ask(R"({"op":"status"})")["ok"].Bool());
    EXPECT_EQ(::write(writer.Get(), "x", 1), 1);
    mayEnd = true;
    EXPECT_TRUE(second.Receive()["ok"].Bool());
    while (objects != 0) {
      third.Ask(R"({"op":"status"})");
    }
  });
  EXPECT_EQ(batches, 2);
  EXPECT_EQ(objectsAtEnd, 1);
}

TEST_F(LocalNodeTest, AChangeOfAClientThatHangsUpIsMadeAllTheSame) {
  std::atomic<int> updates{0};
  agent->onUpdate = [&](CMBNodeConfigUpdate&) {
    ++updates;
    return 0;
  };
  Serve([&] {
    for (int i = 1; i <= 20; ++i) {
      TestClient gone;
      EXPECT_TRUE(gone.Send(R"({"op":"config_set","item":3,"value":"x"})"));
      gone.Hangup();
      TestClient next;
      while (updates < i) {
        ASSERT_TRUE(next.Ask(R"({"op":"config"})")["ok"].Bool());
      }
    }
  });
  EXPECT_EQ(updates, 20);
}

TEST_F(LocalNodeTest, ABatchThatIsHeldBackLetsOthersBeAnsweredAndFailsForItself) {
  std::atomic<int> batches{0};
  std::atomic<bool> isServed{false};
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    const bool isFirst = ++batches == 1;
    while (isFirst && !isServed && batch.hold(1)) {
    }
    EXPECT_NE(batch.hold(0), !isFirst);
    batch.m_events.at(0)->m_records.push_back(new FakeRecord(1));
    if (isFirst) {
      const char* args[] = {"FAKE"};
      __MBDebugPrintMsg(10300, 10, kWarning, "file.cpp", 1, "failed (record=%1)", 1, args, 0);
    }
    return kNotifyDone;
  };
  Serve([&] {
    const char* get = R"({"op":"get","records":["FAKE"]})";
    TestClient held;
    EXPECT_TRUE(held.Send(get));
    EXPECT_TRUE(WaitUntil([&] { return batches != 0; }));
    TestClient other;
    EXPECT_EQ(other.Ask(get)["results"][0]["rows"].Size(), 1U);
    isServed = true;
    EXPECT_EQ(held.Receive()["results"][0]["error"]["code"], "build-failed");
  });
}

TEST_F(LocalNodeTest, AShutdownAnswersThoseWhoStillWait) {
  std::atomic<bool> isBuilding{false};
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    isBuilding = true;
    while (!EventLoop::IsStopRequested()) {
      batch.m_events.at(0)->yield();
    }
    return kNotifyDone;
  };
  const auto script = [&] {
    TestClient first;
    EXPECT_TRUE(first.Send(R"({"op":"get","records":["FAKE"]})"));
    WaitFor(isBuilding);
    TestClient second;
    EXPECT_TRUE(second.Send(R"({"op":"get","id":2,"records":["FAKE"]})"
                            "\n"
                            R"({"op":"status","id":3})"
                            "\n"
                            R"({"op":"status","id":4})"));
    TestClient operatorClient;
    EXPECT_TRUE(operatorClient.Ask(R"({"op":"status"})")["ok"].Bool());
    // It needs nobody who waits for the answer.
    operatorClient.Send(R"({"op":"shutdown"})");
    operatorClient.EndRequests();
    EXPECT_EQ(operatorClient.Receive(), Json({{"ok", true}}));
    EXPECT_TRUE(first.Receive()["ok"].Bool());
    const Json refused = second.Receive();
    EXPECT_EQ(refused["id"], 2);
    EXPECT_EQ(refused["error"]["code"], "stopping");
    for (const int id : {3, 4}) {
      const Json next = second.Receive();
      EXPECT_EQ(next["id"], id);
      EXPECT_EQ(next["error"]["code"], "stopping");
    }
    EXPECT_TRUE(second.Receive().IsNull());
  };
  Serve(script, true);
  EXPECT_THAT(Log(), HasSubstr("Shutdown requested"));
}

TEST_F(LocalNodeTest, TheScheduleOfTheIniFileIsServedAndItsBadLinesAreReported) {
  WriteIni(
      "[Schedule]\nFAKE = 1\nbroken\n# note\nIDLE = never\n[Node]\nmessage log level = high\n");
  FigureRegistry::Instance().Add({"kernel_variant", "Help.", FigureKind::kGauge, [] { return 3; }});
  std::uint32_t count = 0;
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    if (++count > 1) {
      batch.m_events.at(0)->m_records.push_back(new FakeRecord(count));
    }
    return kNotifyDone;
  };
  Serve([&] {
    TestClient client;
    Json last;
    do {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      last = client.Ask(R"({"op":"last","records":["FAKE"]})")["results"][0];
    } while (last["rows"].Elements().empty());
    EXPECT_EQ(last["rows"][0]["Label"], "a\xEF\xBF\xBD");
    const Json status = client.Ask(R"({"op":"status"})")["status"];
    const Json& schedule = status["schedules"][0];
    EXPECT_EQ(schedule["record"], "FAKE");
    EXPECT_EQ(schedule["seconds"], 1);
    EXPECT_GE(schedule["runs"].Whole(), 2);
    EXPECT_EQ(schedule["last_time"], 1700000000);
    EXPECT_EQ(status["node"], "U/instance");
    EXPECT_EQ(status["figures"][0]["value"], 3);
    EXPECT_EQ(status["pid"], ::getpid());
  });
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:3: "));
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:5: the seconds of IDLE"));
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:7: \"message log level\" must be 0 to 999"));
}

TEST_F(LocalNodeTest, AGateIsToldWholePathsAndChildrenOfAServiceAreWarnedOf) {
  WriteIni(
      "[Http]\nListen = 127.0.0.1:0\nGate = child\nCertificate = c\nKey = /k\nUsers = a/u\n"
      "[Push]\nUrl = http://h\nRecords = FAKE NONE\nToken File = t\n[Push.bad]\nUrl = h\n"
      "[Alarms]\nAlertmanager = http://h\nCommand = /bin/true\n");
  ::setenv("NOTIFY_SOCKET", "/nowhere", 1);
  Serve([] {
    TestClient client;
    const Json gate = client.Ask(R"({"op":"gate"})")["gate"];
    const std::string folder = std::filesystem::current_path().string();
    EXPECT_EQ(gate["certificate"], folder + "/c");
    EXPECT_EQ(gate["users"], folder + "/a/u");
    EXPECT_EQ(gate["key"], "/k");
    EXPECT_EQ(gate["tokens"], "");
    EXPECT_EQ(gate["state"], folder + "/run/gate-state");
    ASSERT_EQ(gate["push"].Size(), 1U);
    EXPECT_EQ(gate["push"][0]["token_file"], folder + "/t");
    EXPECT_EQ(JsonText(gate["push"][0]["records"]), R"(["FAKE"])");
    EXPECT_EQ(JsonText(gate["alarms"]["alertmanager"]), R"(["http://h"])");
  });
  EXPECT_THAT(Log(), HasSubstr("Gate = child: "));
  EXPECT_THAT(Log(), HasSubstr("[Alarms]: Command: the service manager's rules "));
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:9: [Push]: the record NONE is unknown"));
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:10: [Push]: \"Token File\": t is not there; "));
  EXPECT_THAT(Log(), HasSubstr("qmtagt.ini:12: [Push.bad]: \"Url\" must be "));
}

TEST_F(LocalNodeTest, TheScheduleIsChangedInTheFileFirst) {
  WriteIni("[Schedule]\nbare = 9\nBARE = 7\n# note\n[Node]\nHttp Listen =\n");
  const auto ini = [] { return FileText("qmtagt.ini"); };
  std::atomic<int> fakes = 0;
  agent->onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    for (CMBRecordRequestEvent* event : batch.m_events) {
      fakes += event->m_requests.at(0)->GetRecordType() == std::string("FAKE") ? 1 : 0;
    }
    return kNotifyDone;
  };
  Serve([&] {
    TestClient client;
    const struct {
      const char* members;
      const char* code;
    } refused[] = {{R"("schedule_set","record":"NONE","seconds":5)", "unknown-record"},
                   {R"("schedule_set","record":"IDLE","seconds":5)", "not-served"},
                   {R"("schedule_set","record":"FAKE","seconds":0)", "bad-field"},
                   {R"("schedule_set","record":"FAKE","seconds":86401)", "bad-field"},
                   {R"("schedule_set","record":"FAKE","seconds":"5")", "bad-field"},
                   {R"("schedule_set","record":"FAKE","seconds":1.5)", "bad-field"},
                   {R"("schedule_set","seconds":5)", "bad-field"},
                   {R"("schedule_remove","record":"FAKE")", "not-scheduled"},
                   {R"("schedule_remove","record":"bare")", "not-scheduled"},
                   {R"("schedule_remove","record":"FAKE","x":1)", "bad-field"}};
    for (const auto& row : refused) {
      EXPECT_EQ(client.Ask(std::string("{\"op\":") + row.members + "}")["error"]["code"], row.code)
          << row.members;
    }
    ASSERT_TRUE(client.Ask(R"({"op":"schedule_set","record":"BARE","seconds":60})")["ok"].Bool());
    ASSERT_TRUE(client.Ask(R"({"op":"schedule_set","record":"FAKE","seconds":1})")["ok"].Bool());
    EXPECT_EQ(ini(), "[Schedule]\nBARE = 60\nBARE = 7\nFAKE = 1\n# note\n[Node]\nHttp Listen =\n");
    EXPECT_TRUE(WaitUntil([&] { return fakes >= 3; }));
    ASSERT_TRUE(
        client.Ask(R"({"op":"schedule_set","record":"FAKE","seconds":86400})")["ok"].Bool());
    ASSERT_TRUE(client.Ask(R"({"op":"schedule_remove","record":"BARE"})")["ok"].Bool());
    EXPECT_EQ(ini(), "[Schedule]\nFAKE = 86400\n# note\n[Node]\nHttp Listen =\n");
    client.Ask(R"({"op":"get","records":["FAKE","NOPE"]})");
    const Json status = client.Ask(R"({"op":"status"})")["status"];
    EXPECT_EQ(status["last_batch"]["errors"], 1);
    EXPECT_EQ(status["last_scheduled_batch"]["errors"], 0);
    const Json& schedules = status["schedules"];
    ASSERT_EQ(schedules.Size(), 1U);
    EXPECT_EQ(schedules[0]["seconds"], 86400);
    const int before = fakes;
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(fakes, before) << "the former second is forgotten";
    ASSERT_EQ(::chmod("qmtagt.ini", 0444), 0);
    EXPECT_EQ(client.Ask(R"({"op":"schedule_remove","record":"FAKE"})")["error"]["code"],
              "not-written");
    EXPECT_EQ(client.Ask(R"({"op":"status"})")["status"]["schedules"].Size(), 1U);
  });
}

TEST_F(LocalNodeTest, TheSocketReplacesAStaleOneAndNothingElse) {
  struct stat status {};
  Serve([&] {
    TestClient client;
    EXPECT_TRUE(client.Ask(R"({"op":"status"})")["ok"].Bool());
    ASSERT_EQ(::stat("run/control.sock", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0660U);
    // As a crashed daemon leaves it.
    ASSERT_EQ(::link("run/control.sock", "run/stale"), 0);
  });
  std::filesystem::rename("run/stale", "run/control.sock");
  EXPECT_EQ(agent->Connect(), 0);
  MBDebugTerm();
  ASSERT_EQ(MBDebugInit(0, "qmtdmon", "tag", 24, 'U', 'A', 'D'), 0);
  std::ofstream("run/control.sock") << "precious";
  EXPECT_EQ(agent->Connect(), -1);
  EXPECT_THAT(Log(), HasSubstr("run/control.sock: "));
  EXPECT_EQ(std::filesystem::file_size("run/control.sock"), 8U);
}

}  // namespace
