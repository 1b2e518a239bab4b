#include "local/alarm/AlarmBook.h"

#include "local/alarm/CommandFile.h"
#include "local/control/ControlOperations.h"
#include "tests/json/JsonOf.h"
#include "tests/local/alarm/AlarmHarness.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kBookAlarms =
    "alarm = full\nrecord = FAKE\ncondition = Count > 90\ncapture = FAKE\n"
    "text = {Label} has {Count}\n"
    "alarm = bad\nrecord = FAKE\ncondition = Size > 1\n"
    "alarm = idle\nrecord = MORE\ncondition = Count > 1\n";

constexpr RecordLayout kMoreLayout{"MORE", "recordFake", '4', sizeof(recordFake), kFakeFields};

/// All that alarms hang on; a Life is the time between two starts of the daemon.
class AlarmBookTest : public ::testing::Test {
 protected:
  struct Life {
    explicit Life(AlarmBookTest& test)
        : history([&test](const std::string& text) { test.told.push_back(text); }),
          sinks({&lastRows, &history}),
          schedule(loop, desk, sinks),
          book(loop, desk, schedule, lastRows, history,
               [&test](const std::string& text) { test.told.push_back(text); }),
          operations(loop, desk, schedule, lastRows, history) {
      sinks.Add(book);
      operations.ServeAlarms(book);
      history.Configure(test.kept);
      schedule.Load({{test.scheduled, "60", 1}}, [](std::size_t, const std::string&) {});
      book.OnChange([&test](const Json& alarm) {
        test.changes.push_back(alarm["text"].Text() + ' ' + alarm["state"].Text());
      });
      book.OnOff([&test](const AlarmDefinition& definition, const std::string& why) {
        test.off.push_back(definition.name + ": " + why);
      });
      book.Configure(test.settings);
    }
    EventLoop loop;
    BatchDesk desk;
    LastRows lastRows;
    HistoryStore history;
    RecordSinks sinks;
    ScheduleBook schedule;
    AlarmBook book;
    ControlOperations operations;
    FakeAgent agent;
  };

  AlarmBookTest() {
    PublishFakeRecords();
    LayoutRegistry::Instance().Publish(kMoreLayout);
    LayoutRegistry::Instance().PublishListing(
        {{"FAKE", '4', true}, {"IDLE", '3', false}, {"MORE", '4', true}});
    std::ofstream("alarms") << kBookAlarms;
    settings.file = "alarms";
    settings.statesFile = "alarms.state";
  }

  void Start() { life = std::make_unique<Life>(*this); }
  void Batch(std::uint32_t count, std::size_t rows = 1) {
    Batch(std::vector<FakeRecord>(rows, FakeRecord(count, now += 60)));
  }
  template <class Record>
  void Batch(const std::vector<Record>& records) {
    life->sinks.Take({"FAKE", '4', now, PointersTo(records)});
    life->sinks.EndBatch();
    Turns();
  }
  void Turns(int turns = 20) {
    const std::function<void(CMBNode&)> step = [&](CMBNode&) {
      --turns <= 0 ? EventLoop::RequestStop() : life->loop.Post({step, {}, false});
    };
    life->loop.Post({step, {}, false});
    life->loop.Run(life->agent);
  }
  Json Ask(const std::string& line) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    life->operations.Handle(line, peer);
    Turns();
    return peer->answers.empty() ? Json() : JsonOf(peer->answers.back());
  }

  const ScratchDirectory folder;
  HistorySettings kept;
  AlarmBookSettings settings;
  std::int32_t now = static_cast<std::int32_t>(std::time(nullptr)) - 3000;
  std::string scheduled = "FAKE";
  std::vector<std::string> told;
  std::vector<std::string> off;
  std::vector<std::string> changes;
  std::unique_ptr<Life> life;
};

TEST_F(AlarmBookTest, AnAlarmIsToldKeptWithItsRowsAndAnswered) {
  Start();
  EXPECT_THAT(told, ElementsAre("alarms:8: FAKE has no label \"Size\""));
  EXPECT_THAT(off, ElementsAre("bad: line 8: FAKE has no label \"Size\"",
                               "idle: no schedule collects the record MORE"));
  const auto follower = std::make_shared<FakePeer>(Rights::kRead);
  life->operations.Handle(R"({"op":"alarm_follow"})", follower);
  Batch(5);
  Batch(95, 3);
  Batch(5);
  EXPECT_THAT(changes, ElementsAre("a\uFFFD has 95 active", "a\uFFFD has 95 ended"));
  std::string piece;
  follower->endless(piece);
  EXPECT_THAT(piece, HasSubstr("\"alarms\":[]}\n{\"event\":\"alarm\",\"alarm\":{\"id\":1,"));

  const Json alarms = Ask(R"({"op":"alarms","since":0})")["alarms"];
  ASSERT_EQ(alarms["list"].Size(), 1U);
  EXPECT_EQ(alarms["list"][0]["state"].Text(), "ended");
  EXPECT_EQ(alarms["list"][0]["values"], (Json{{"Count", 95}}));
  EXPECT_EQ(alarms["list"][0]["captured"][0].Text(), "FAKE");
  EXPECT_EQ(alarms["definitions"][0]["state"].Text(), "ok");
  EXPECT_EQ(alarms["definitions"][2]["state"].Text(), "off");
  EXPECT_EQ(Ask(R"({"op":"alarms","state":"active"})")["alarms"]["list"].Size(), 0U);
  EXPECT_EQ(Ask(R"({"op":"alarms","until":100})")["alarms"]["list"].Size(), 0U);

  const Json alarm = Ask(R"({"op":"alarm","id":1})")["alarm"];
  ASSERT_EQ(alarm["rows"].Size(), 1U);
  EXPECT_EQ(alarm["rows"][0]["record"].Text(), "FAKE");
  EXPECT_EQ(alarm["rows"][0]["rows"].Size(), 3U);
  EXPECT_EQ(alarm["rows"][0]["rows"][0]["Count"].Number(), 95);
  EXPECT_EQ(Ask(R"({"op":"alarm","id":9})")["error"]["code"].Text(), "unknown-alarm");
  EXPECT_THAT(Ask(R"({"op":"alarm_rules"})")["rules"].Text(), HasSubstr("- alert: \"full\""));
}

TEST_F(AlarmBookTest, RowsOfAFileThatHoldsAnythingAreToldWithoutArgumentsWhereTheyAreNotWanted) {
  static constexpr std::array kFields{
      FieldLayout{"Label", FieldType::kText, 12, 8, FieldMeaning::key},
      FieldLayout{"Argument List", FieldType::kText, 16, 8, FieldMeaning::text}};
  static constexpr RecordLayout kTold{"TOLD", "recordFake", '4', sizeof(recordFake), kFields};
  LayoutRegistry::Instance().Publish(kTold);
  Start();
  Batch(95);
  Batch(5);
  const struct {
    const char* record;
    const char* row;
    const char* all;
    const char* some;
  } cases[] = {{"TOLD", R"({"Label":"a","Argument List":"-p x"})",
                R"({"Label":"a","Argument List":"-p x"})", R"({"Label":"a","Argument List":null})"},
               {"TOLD", R"({"Old":"-p x"})", R"({"Old":"-p x"})", R"({"Old":null})"},
               {"GONE", R"({"Label":"a"})", R"({"Label":"a"})", "{}"},
               {"TOLD", "{}]}]}}\n{\"ok\":true}", "{}", "{}"},
               {"TOLD", "{\"Label\":\n\"a\"}", R"({"Label":"a"})", R"({"Label":"a"})"},
               {"", "{}", "{}", "{}"},
               {"TOLD", "[1]", "{}", "{}"},
               {"TOLD", "{\"Label\":\"\xff\"}", "{}", "{}"}};
  const std::string question = R"({"op":"alarm","id":1,"arguments":)";
  for (const auto& row : cases) {
    life->history.Database()->Execute("DELETE FROM \"qmt alarm rows\"");
    SqlStatement insert = life->history.Database()->Prepare(
        "INSERT INTO \"qmt alarm rows\" (id, record, time, row) VALUES (1, ?1, 5, ?2)");
    insert.Bind(1, std::string_view(row.record));
    insert.Bind(2, std::string_view(row.row));
    insert.Run();
    const auto rowsTold = [&](const char* arguments) {
      return JsonText(Ask(question + arguments + "}")["alarm"]["rows"][0]["rows"]);
    };
    EXPECT_EQ(rowsTold("true"), '[' + std::string(row.all) + ']') << row.row;
    EXPECT_EQ(rowsTold("false"), '[' + std::string(row.some) + ']') << row.row;
  }
  for (const char* asked :
       {"{\"op\":\"alarm\",\"id\":-1}", "{\"op\":\"alarm\"}",
        "{\"op\":\"alarm\",\"id\":1,\"arguments\":1}", "{\"op\":\"alarms\",\"state\":\"ended\"}",
        "{\"op\":\"alarms\",\"limit\":0}", "{\"op\":\"alarms\",\"since\":1e300}"}) {
    EXPECT_EQ(Ask(asked)["error"]["code"].Text(), "bad-field") << asked;
  }
}

TEST_F(AlarmBookTest, StatesAndNumbersSurviveAKill) {
  Start();
  Batch(95);
  life.reset();  // no Stop
  Start();
  Batch(95);
  EXPECT_EQ(changes.size(), 1U);
  Batch(5);
  EXPECT_EQ(changes.size(), 2U);
  // The file of states alone is lost, between two writes as it were.
  Batch(95);
  life.reset();
  std::filesystem::remove("alarms.state");
  Start();
  Batch(5);
  EXPECT_THAT(changes.back(), HasSubstr("ended"));
  EXPECT_EQ(changes.size(), 4U);
  Batch(95);
  EXPECT_EQ(Ask(R"({"op":"alarms"})")["alarms"]["list"][0]["id"].Number(), 3);
  // A definition that has gone takes its alarm with it, and no clock that is set back ends it
  // before it began.
  life->history.Database()->Execute(
      "UPDATE \"qmt alarms\" SET since = since + 100000 WHERE id = 3");
  life.reset();
  std::filesystem::remove("alarms.state");
  std::ofstream("alarms") << "# none\n";
  Start();
  EXPECT_EQ(changes.size(), 6U);
  Turns();
  EXPECT_EQ(Ask(R"({"op":"alarms","state":"active"})")["alarms"]["list"].Size(), 0U);
  const Json last = Ask(R"({"op":"alarms"})")["alarms"]["list"][0];
  EXPECT_EQ(last["id"].Number(), 3);
  EXPECT_EQ(last["until"].Number(), last["since"].Number());
}

TEST_F(AlarmBookTest, TimesOfFilesThatHoldAnythingCanBeReckonedWith) {
  Start();
  Batch(95);
  life->history.Database()->Execute("UPDATE \"qmt alarms\" SET since = -9223372036854775808");
  life.reset();
  std::filesystem::remove("alarms.state");
  Start();
  EXPECT_EQ(life->book.Active().at(0)["since"].Whole(), 0);
  life.reset();
  std::ofstream("alarms.state")
      << R"({"alarms":[{"alarm":"full","record":"FAKE","time":4000000000000000000,"states":)"
      << R"([{"phase":"active","begins":[-9223372036854775808,18446744073709551615,5]}]}]})";
  Start();
  EXPECT_EQ(JsonText(life->book.Watches().at(0)->ToJson()["states"][1]["begins"]), "[0,0,5]");
  Batch(5);
}

TEST_F(AlarmBookTest, AFileOfStatesThatIsNoneIsToldAndAlarmsBeginAnew) {
  std::ofstream("alarms") << "alarm = full\nrecord = FAKE\ncondition = Count > 90\n";
  const auto write = [](const char* text) { std::ofstream("alarms.state") << text; };
  const struct {
    std::function<void()> make;
    std::string problem;
    double id;  ///< of the next alarm
  } cases[] = {
      {[] { ::mkfifo("alarms.state", 0600); }, "alarms.state can't be read: ", 1},
      {[&] { write("x"); }, "alarms.state is none of the agent's; all alarms begin anew", 1},
      {[&] { write("{\"next\":5,\"alarms\":5}"); }, "alarms.state is none of the agent's", 1},
      {[&] {
         // Of an alarm of that name which looked at another record.
         write(R"({"next":5,"alarms":[5,{},{"alarm":"full","record":"X","time":1,"states":)"
               R"([{"phase":"active","id":2,"key":{"Label":"a\ufffd"}}]}]})");
       },
       "", 5},
      {[&] { write("{\"next\":18446744073709551615,\"alarms\":[]}"); }, "", 0x1p62},
      {[] { std::filesystem::create_directory("alarms.state"); },
       "alarms.state can't be written: ", 1},
  };
  for (const auto& row : cases) {
    life.reset();
    std::filesystem::remove("alarms.state");
    kept.file.clear();
    told.clear();
    row.make();
    Start();
    Batch(95);
    EXPECT_EQ(Ask(R"({"op":"alarms"})")["alarms"]["list"][0]["id"].Number(), row.id);
    life->book.Stop();
    Turns();
    EXPECT_EQ(told.empty(), row.problem.empty());
    if (!row.problem.empty()) {
      EXPECT_THAT(told, ::testing::Contains(HasSubstr(row.problem)));
    }
  }
}

TEST_F(AlarmBookTest, WhatTheAgentLosesBetweenTwoBatchesIsARow) {
  std::ofstream("alarms") << "alarm = lost\nrecord = AGENT\ncondition = Skipped Times > 2\n";
  Start();
  life->schedule.Entries().front()->skipped = 5;
  Batch(5);  // before it is nothing to compare with
  EXPECT_THAT(changes, ElementsAre());
  life->schedule.Entries().front()->skipped = 8;
  Batch(5);
  EXPECT_THAT(changes, ElementsAre("Skipped Times 3 active"));
  Batch(5);
  EXPECT_THAT(changes, ElementsAre("Skipped Times 3 active", "Skipped Times 3 ended"));
}

TEST_F(AlarmBookTest, AHistoryThatTakesNoAlarmsIsToldOnceAndAlarmsGoOn) {
  Start();
  told.clear();
  for (const char* table : {"qmt alarms", "qmt alarm rows"}) {
    life->history.Database()->Execute("CREATE TABLE \"" + std::string(table) + "\" (x)");
  }
  for (int i = 0; i < 3; ++i) {
    Batch(95);
    Batch(5);
  }
  EXPECT_EQ(changes.size(), 6U);
  ASSERT_EQ(told.size(), 1U);
  EXPECT_THAT(told[0], HasSubstr("can't be written: "));
  for (const char* asked : {R"({"op":"alarms"})", R"({"op":"alarm","id":1})"}) {
    EXPECT_EQ(Ask(asked)["error"]["code"].Text(), "no-history") << asked;
  }
  // It is kept as soon as that can be done.
  for (const char* table : {"qmt alarms", "qmt alarm rows"}) {
    life->history.Database()->Execute("DROP TABLE \"" + std::string(table) + "\"");
  }
  Batch(5);
  EXPECT_EQ(life->history.Database()->Number("SELECT count(*) FROM \"qmt alarms\""), 3);
  EXPECT_EQ(told.size(), 1U);
}

TEST_F(AlarmBookTest, ManyFaultsOfTheFileAreCounted) {
  std::ofstream file("alarms");
  for (int i = 0; i < 200; ++i) {
    file << "alarm = a" << i << "\nrecord = NONE\n";
  }
  file.close();
  Start();
  ASSERT_EQ(told.size(), 101U);
  EXPECT_EQ(told[99], "alarms:200: no record \"NONE\"");
  EXPECT_EQ(told[100], "alarms: and 100 more faults, which qmtctl check alarms lists");
  EXPECT_EQ(off.size(), 200U);
}

TEST_F(AlarmBookTest, AfterAKillEachEndIsToldOnce) {
  const struct {
    const char* alarms;
    const char* record;  ///< the one that is scheduled
    int emptyBatches;
  } cases[] = {{kBookAlarms, "MORE", 0},
               {"alarm = full\nrecord = FAKE\ncondition = Size > 1\n", "FAKE", 0},
               {"# none\n", "FAKE", 0},
               {kBookAlarms, "FAKE", 2}};
  for (const auto& row : cases) {
    std::ofstream("alarms") << kBookAlarms;
    scheduled = "FAKE";
    Start();
    Batch(95);
    life.reset();
    changes.clear();
    std::ofstream("alarms") << row.alarms;
    scheduled = row.record;
    Start();
    Turns();
    for (int i = 0; i < row.emptyBatches; ++i) {
      EXPECT_TRUE(changes.empty());
      Batch(std::vector<FakeRecord>{});
    }
    EXPECT_EQ(changes.size(), 1U) << row.alarms;
    life->book.Stop();
    life.reset();
  }
}

class KeyedRecord : public FakeRecord {
 public:
  KeyedRecord(const char* label, std::uint32_t count, std::int32_t time) : FakeRecord(count, time) {
    m_record.label = label;
  }
};

TEST_F(AlarmBookTest, EachKeyIsTakenUpAgainByItself) {
  Start();
  const auto rows = [&](std::uint32_t x, std::uint32_t y) {
    now += 60;
    return std::vector{KeyedRecord("x", x, now), KeyedRecord("y", y, now)};
  };
  Batch(rows(95, 95));
  life.reset();
  std::filesystem::remove("alarms.state");
  Start();
  Batch(std::vector<FakeRecord>{});  // as the first look of a schedule makes none
  EXPECT_EQ(changes.size(), 2U);
  Batch(rows(95, 5));
  EXPECT_THAT(changes.back(), HasSubstr("y has 95 ended"));
  EXPECT_EQ(life->book.Active().size(), 1U);
  EXPECT_EQ(Ask(R"({"op":"alarms","since":1,"state":"active"})")["alarms"]["list"].Size(), 1U);
  EXPECT_EQ(
      Ask(R"({"op":"alarms","since":)" + std::to_string(now + 1) + "}")["alarms"]["list"].Size(),
      1U);
}

TEST_F(AlarmBookTest, ManyAlarmsAreReadInTurns) {
  Start();
  std::vector<std::string> labels;
  std::vector<KeyedRecord> rows;
  now += 60;
  for (int i = 0; i < 50; ++i) {
    labels.push_back(std::to_string(i));
  }
  for (const std::string& label : labels) {
    rows.emplace_back(label.c_str(), 95, now);
  }
  Batch(rows);
  // They are written in turns too, by a machine that may be slow.
  const auto written = [this] {
    AlarmHistory::Look all;
    all.limit = 50;
    static_cast<void>(AlarmHistory::Read(*life->history.Database(), all,
                                         std::chrono::steady_clock::time_point::max()));
    return all.found.size();
  };
  EXPECT_TRUE(WaitUntil(
      [&] {
        Turns();
        return written() >= 50;
      },
      std::chrono::seconds(60)));
  AlarmHistory::Look look;
  look.limit = 40;
  int turns = 1;
  while (AlarmHistory::Read(*life->history.Database(), look, {})) {
    ++turns;
  }
  EXPECT_EQ(turns, 3);
  ASSERT_EQ(look.found.size(), 40U);
  EXPECT_EQ(look.found.front()["id"].Whole(), 50);
  EXPECT_EQ(look.found.back()["id"].Whole(), 11);
}

TEST_F(AlarmBookTest, ALineGoesThroughWhatTheHistoryHas) {
  std::ofstream("alarms") << "# none yet\n";
  Start();
  for (std::uint32_t count = 0; count <= 30; ++count) {
    Batch(count);
  }
  life.reset();
  std::ofstream("alarms") << "alarm = slope\nrecord = FAKE\ncondition = Count > 90\n"
                             "where = Label != b\npredict = 1h\nover = 40m\n";
  Start();
  Turns();
  Batch(31);  // 91 in an hour
  EXPECT_EQ(changes.size(), 1U);
}

TEST_F(AlarmBookTest, WithoutAHistoryThereAreAlarmsAllTheSame) {
  kept.file.clear();
  Start();
  Batch(95);
  EXPECT_EQ(Ask(R"({"op":"alarms"})")["alarms"]["list"][0]["text"].Text(), "a\uFFFD has 95");
  EXPECT_EQ(Ask(R"({"op":"alarm","id":1})")["alarm"]["rows"].Size(), 0U);
  EXPECT_FALSE(life->book.Figures().alarms.empty());
}

TEST_F(AlarmBookTest, AHistoryThatCannotBeOpenedIsNamedInAnswers) {
  kept.file = "none/records.db";
  Start();
  Batch(95);
  EXPECT_EQ(changes.size(), 1U);
  const Json error = Ask(R"({"op":"history","record":"FAKE","since":0})")["error"];
  EXPECT_EQ(error["code"].Text(), "no-history");
  EXPECT_EQ(error["message"].Text(), "the history can't be read: unable to open database file");
}

TEST_F(AlarmBookTest, RowsThatNoScheduleHasAreAskedForOnce) {
  std::ofstream("alarms") << "alarm = full\nrecord = FAKE\ncondition = Count > 90\n"
                             "capture = MORE\n";
  Start();
  int batches = 0;
  life->agent.onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    ++batches;
    for (std::uint32_t i = 0; i < 2; ++i) {
      batch.m_events.at(0)->m_records.push_back(new FakeRecord(i));
    }
    return kNotifyDone;
  };
  life->sinks.Take({"MORE", '4', now, {}});  // the first look of a schedule
  Batch(95);
  Batch(95);
  EXPECT_EQ(batches, 1);
  const Json alarm = Ask(R"({"op":"alarm","id":1})")["alarm"];
  EXPECT_EQ(alarm["rows"][0]["rows"].Size(), 2U);
  EXPECT_EQ(alarm["captured"][0].Text(), "MORE");
  life->agent.onBatch = [](CMBMultipleRecordRequestEvent&) { return kNotifyDone; };
  Batch(5);
  Batch(95);
  EXPECT_EQ(Ask(R"({"op":"alarm","id":2})")["alarm"]["captured"].Size(), 0U);
}

TEST_F(AlarmBookTest, RowsOlderThanTheirScheduleAreAskedForAnew) {
  std::ofstream("alarms") << "alarm = full\nrecord = FAKE\ncondition = Count > 90\n"
                             "capture = MORE\n";
  Start();
  life->schedule.Set("MORE", 60);
  Turns();
  int batches = 0;
  life->agent.onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    ++batches;
    batch.m_events.at(0)->m_records.push_back(new FakeRecord(1));
    return kNotifyDone;
  };
  const FakeRecord row(1);
  for (const auto& [age, asked] : {std::pair{30, 0}, std::pair{90, 1}}) {
    batches = 0;
    life->sinks.Take({"MORE", '4', static_cast<std::int32_t>(std::time(nullptr)) - age, {{&row}}});
    life->sinks.EndBatch();
    Turns();
    Batch(95);
    EXPECT_EQ(batches, asked) << age;
    EXPECT_EQ(Ask(R"({"op":"alarms"})")["alarms"]["list"][0]["captured"][0].Text(), "MORE") << age;
    Batch(5);
  }
}

TEST_F(AlarmBookTest, AScheduleThatGoesEndsWhatItsRowsHaveBegun) {
  Start();
  Batch(95);
  ASSERT_TRUE(life->schedule.Remove("FAKE"));
  life->sinks.EndBatch();
  Turns();
  EXPECT_THAT(off.back(), HasSubstr("full: no schedule collects"));
  EXPECT_THAT(changes.back(), HasSubstr("ended"));
}

/// Writes a shell script and gives its path.
std::string AlarmScript(const std::string& text) {
  std::ofstream("command") << "#!/bin/sh\n" << text;
  ::chmod("command", 0700);
  return std::filesystem::absolute("command").string();
}

TEST_F(AlarmBookTest, TheCommandGetsItsFiguresAndNeverStaysForLong) {
  settings.command = {AlarmScript("grep CapEff /proc/self/status >>env.txt\n"
                                  "env | grep -a ^QMT_ | sort >>env.txt\n"
                                  "[ $QMT_ALARM_STATE = ended ] && { echo hangs; sleep 60; }\n"
                                  "exit 0\n"),
                      std::chrono::seconds(1), 1};
  Start();
  Batch(95);
  Batch(5);
  EXPECT_TRUE(WaitUntil([&] {
    Turns(5);
    return life->book.Figures().commandFailures != 0;
  }));
  EXPECT_THAT(FileText("env.txt"),
              AllOf(HasSubstr("QMT_ALARM_KEY_LABEL=a\uFFFD\nQMT_ALARM_NAME=full\n"),
                    HasSubstr("QMT_ALARM_STATE=ended"), HasSubstr("CapEff:\t0000000000000000\n"),
                    HasSubstr("QMT_ALARM_VALUE_COUNT=95")));
  EXPECT_THAT(told, ::testing::Contains(HasSubstr("/command: hangs")));
  EXPECT_THAT(told.back(), HasSubstr("took longer than 1 seconds and has been ended"));
}

TEST_F(AlarmBookTest, CommandsBeyondTheBoundsWaitOrAreCountedAndGoAsAGroup) {
  EventLoop loop;
  FakeAgent agent;
  AlarmCommand command(loop, [this](const std::string& text) { told.push_back(text); });
  command.Configure(
      {AlarmScript("sleep 1000 & echo $! >pid.$$; yes\n"), std::chrono::seconds(1), 2});
  for (std::size_t i = 0; i < AlarmCommand::kMostWaiting + 5; ++i) {
    command.Run({"A=b"});
  }
  EXPECT_EQ(command.Runs(), 2U);
  EXPECT_EQ(command.Dropped(), 3U);
  EXPECT_TRUE(WaitUntil([&] {
    RunATurn(loop, agent);
    return command.Failures() == 2;
  }));
  // Of what `yes` says, 20 lines, how many more and why it has ended, of each command.
  EXPECT_EQ(std::ranges::count_if(told, [](const auto& text) { return text.ends_with(": y"); }),
            40);
  EXPECT_EQ(
      std::ranges::count_if(told, [](const auto& t) { return t.ends_with("lines were left out"); }),
      2);
  int pid = 0;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    if (entry.path().string().starts_with("./pid.")) {
      std::ifstream(entry.path()) >> pid;
      break;
    }
  }
  command.Stop();
  EXPECT_THAT(told.back(), HasSubstr("the daemon stops: "));
  command.Run({"A=b"});
  EXPECT_EQ(command.Runs() + command.Dropped(), AlarmCommand::kMostWaiting + 6);
  std::string state;
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  stat >> state >> state >> state;
  EXPECT_NE(pid, 0);
  EXPECT_TRUE(state.empty() || state == "Z") << state;
}

TEST_F(AlarmBookTest, ACommandThatFailsSaysWhy) {
  const struct {
    const char* script;             ///< null for a program that there is not
    std::vector<std::string> told;  ///< behind the program's name
  } cases[] = {
      {nullptr,
       {"No such file or directory, so it is not started for alarms",
        "can't be started: No such file or directory", "has ended with status 127"}},
      {"exit 3\n", {"has ended with status 3"}},
      {"echo x; kill -9 $$\n", {"x", "has ended by signal 9"}},
  };
  for (const auto& row : cases) {
    told.clear();
    const std::string program = row.script == nullptr ? "/none" : AlarmScript(row.script);
    EventLoop loop;
    FakeAgent agent;
    AlarmCommand command(loop, [this](const std::string& text) { told.push_back(text); });
    command.Configure({program, std::chrono::seconds(20), 1});
    command.Run({"A=b"});
    EXPECT_TRUE(WaitUntil([&] {
      RunATurn(loop, agent);
      return command.Failures() != 0;
    }));
    std::vector<std::string> expected;
    for (const std::string& text : row.told) {
      expected.push_back(program + ": " + text);
    }
    EXPECT_EQ(told, expected);
  }
}

TEST(AlarmEnvironmentTest, NamesAreThoseOfAShellAndValuesAreBounded) {
  const std::vector<std::string> all =
      AlarmEnvironment(Json{{"alarm", std::string("a\0b", 3)},
                            {"text", std::string(5000, 'x')},
                            {"until", nullptr},
                            {"key", Json{{"Mount Point", "/a"}, {"mount-point", "/b"}}},
                            {"values", Json{{"Free %", 1.5}}}});
  EXPECT_THAT(all, ElementsAre("QMT_ALARM_NAME=ab", "QMT_ALARM_STATE=", "QMT_ALARM_SEVERITY=",
                               "QMT_ALARM_TEXT=" + std::string(4096, 'x'), "QMT_ALARM_RECORD=",
                               "QMT_ALARM_ID=", "QMT_ALARM_SINCE=", "QMT_ALARM_UNTIL=",
                               "QMT_ALARM_KEY_MOUNT_POINT=/a", "QMT_ALARM_VALUE_FREE__=1.5"));
}

TEST(AlarmTextTest, ALongOneIsCutAndStaysUtf8) {
  const AlarmText text("{Label}: {Count}", kFakeLayout);
  const auto expand = [&](const Json& label) {
    return text.Expand([&](std::size_t place) { return place == 2 ? label : Json(nullptr); });
  };
  EXPECT_EQ(expand("a"), "a: ?");
  EXPECT_EQ(expand(std::string(2000, 'x')), std::string(1024, 'x'));
  EXPECT_EQ(expand(std::string(1023, 'x') + "\u00e4"), std::string(1023, 'x') + "\uFFFD");
}

TEST(CommandFileTest, NobodyElseMayBeAbleToReplaceTheCommand) {
  const ScratchDirectory folder;
  std::filesystem::create_directory("open");
  std::filesystem::create_directory("own");
  for (const char* name : {"open/run", "own/run", "own/wide"}) {
    std::ofstream(name) << "#!/bin/sh\n";
  }
  ::chmod("open/run", 0755);
  ::chmod("own/run", 0755);
  ::chmod("own/wide", 0775);
  ::chmod("own", 0755);
  ::chmod("open", 0757);
  std::filesystem::create_symlink("../open/run", "own/link");
  const struct {
    const char* path;
    uid_t user;
    const char* fault;  ///< null for none
  } cases[] = {{"own/run", ::geteuid(), nullptr},
               {"own/run", ::geteuid() + 1, "it belongs to another user"},
               {"own/wide", ::geteuid(), "it may be written to by others"},
               {"open/run", ::geteuid(), "its folder may be written to by others"},
               {"own/link", ::geteuid(), "its folder may be written to by others"},
               {"own", ::geteuid(), "it is no regular file"},
               {"own/none", ::geteuid(), "No such file or directory"}};
  for (const auto& row : cases) {
    if (row.user != ::geteuid() && ::geteuid() == 0) {
      continue;  // what is root's may be anybody's command
    }
    EXPECT_STREQ(CommandFault(row.path, row.user), row.fault) << row.path;
  }
}

TEST(AlarmLossLogTest, LossesAreToldOnceAnHour) {
  std::vector<std::string> told;
  AlarmLossLog log([&](const std::string& text) { told.push_back(text); });
  const auto now = std::chrono::steady_clock::now();
  log.Note({}, now);
  log.Note({1, 0, 0, 0}, now);
  log.Note({1, 2, 0, 0}, now + std::chrono::minutes(59));
  log.Note({1, 5, 0, 1}, now + std::chrono::minutes(60));
  EXPECT_THAT(told, ElementsAre("Alarms: 1 batches were not looked at",
                                "Alarms: 5 rows were left out, as too many keys are followed; 1 "
                                "records were not captured"));
}

TEST(AlarmCaptureTest, TheGreatestRowsOfARecordWithoutAnEndAreKept) {
  static constexpr std::array kFields{
      FieldLayout{"Path", FieldType::kText, 12, 8, FieldMeaning::key},
      FieldLayout{"Memory Bytes", FieldType::kUlong, 20, 4, FieldMeaning::gauge}};
  static constexpr RecordLayout kGroups{"CGRP", "recordFake", '4', sizeof(recordFake), kFields};
  KeptRows rows;
  std::vector<std::vector<unsigned char>> bytes;
  for (std::uint32_t i = 0; i < 1500; ++i) {
    bytes.push_back(AlarmRow("x", i * 7 % 1500));
    rows.rows.emplace_back(bytes.back());
  }
  const std::vector<std::size_t> chosen = ChosenRows(kGroups, rows);
  ASSERT_EQ(chosen.size(), AlarmCapture::kMostRows);
  EXPECT_EQ(chosen.front() * 7 % 1500, 1499U);
  EXPECT_EQ(chosen.back() * 7 % 1500, 500U);
  EXPECT_EQ(ChosenRows(kFakeLayout, rows)[5], 5U);
}

}  // namespace
