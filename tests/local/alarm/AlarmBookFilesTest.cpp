#include "tests/local/alarm/AlarmBookFixture.h"

namespace {

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
  EXPECT_TRUE(life->book.Active().empty());
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

TEST_F(AlarmBookTest, NoActiveAlarmIsForgottenHoweverManyThereAre) {
  constexpr int kAlarms = 10001;
  std::ofstream alarms("alarms");
  Json states = Json::Array();
  for (int i = 0; i < kAlarms; ++i) {
    if (i % 1000 == 0) {
      const std::string name = std::to_string(i / 1000);
      alarms << "alarm = " << name << "\nrecord = FAKE\ncondition = Count > 90\n";
      states.PushBack(
          Json{{"alarm", name}, {"record", "FAKE"}, {"time", now}, {"states", Json::Array()}});
    }
    states[static_cast<std::size_t>(i / 1000)]["states"].PushBack(
        Json{{"phase", "active"}, {"id", i + 1}, {"key", Json{{"Label", std::to_string(i)}}}});
  }
  alarms.close();
  Start();
  Batch(95);  // makes the tables
  life->history.Database()->Execute(
      "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 10000) "
      "INSERT OR REPLACE INTO \"qmt alarms\" (id, alarm, record, since, \"key\") "
      "SELECT i + 1, i / 1000, 'FAKE', 5, '{\"Label\":\"' || i || '\"}' FROM n");
  life.reset();
  std::ofstream("alarms.state") << JsonText(Json{{"next", kAlarms + 1}, {"alarms", states}});
  Start();
  EXPECT_EQ(life->book.Active().size(), std::size_t{kAlarms});
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

}  // namespace
