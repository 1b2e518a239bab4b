#include "local/history/HistoryStore.h"

#include <sched.h>
#include <sys/mount.h>

#include "local/control/HistoryQueries.h"
#include "local/history/HistoryTables.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

class HistoryStoreTest : public ::testing::Test {
 protected:
  HistoryStoreTest() { PublishFakeRecords(); }

  void Keep(const HistorySettings& settings = {}) { m_store.Configure(settings); }
  void Batch(std::int32_t time, std::size_t count = 1, std::size_t totals = 0) {
    const std::vector<FakeRecord> records(count, FakeRecord(4000000000U, time));
    std::vector<const CMBRecord*> rows = PointersTo(records);
    m_store.Take({"FAKE", '4', time, rows});
    m_store.Take({"BARE", '4', time, rows});
    rows.resize(totals);
    if (!rows.empty()) {
      m_store.TakeTotals({"FAKE", '4', time, rows});
    }
    m_store.EndBatch();
  }
  static std::int64_t Number(const std::string& text, const char* file = "records.db") {
    return SqlDatabase(file, 1000).Number(text);
  }
  static std::int64_t Rows() { return Number("SELECT count(*) FROM FAKE"); }
  static std::int64_t UsedPages() {
    return Number("PRAGMA page_count") - Number("PRAGMA freelist_count");
  }
  static std::int64_t Totals() { return Number("SELECT count(*) FROM \"qmt totals\""); }

  ScratchDirectory m_folder;
  std::vector<std::string> m_told;
  HistoryStore m_store{[this](const std::string& text) { m_told.push_back(text); }};
  const std::int32_t m_now = static_cast<std::int32_t>(std::time(nullptr));
};

TEST_F(HistoryStoreTest, KeepsEachFieldInAColumnOfItsTypeAndItsLabel) {
  Keep();
  Batch(m_now);
  SqlDatabase database("records.db", 1000);
  SqlStatement row = database.Prepare(
      "SELECT typeof(\"Record Time\"), Label, Count, Rate, CPU, typeof(Rate) FROM FAKE");
  ASSERT_TRUE(row.Step());
  EXPECT_EQ(row.Text(0), "integer");
  EXPECT_EQ(row.Text(1), "a\xff");
  EXPECT_EQ(row.Whole(2), 4000000000);
  EXPECT_EQ(row.Text(3), "0.1");
  EXPECT_EQ(row.Text(4), "12.5");
  EXPECT_EQ(row.Text(5), "real");
  EXPECT_THAT(m_told, ElementsAre(HasSubstr("rows of BARE are not kept")));
}

// The record tells the low 32 bits of its time alone.
TEST_F(HistoryStoreTest, KeepsTheWholeTimeOfARow) {
  constexpr std::int64_t kTurn = std::int64_t{1} << 31;
  Keep();
  for (const std::int64_t time : {kTurn - 1, kTurn, kTurn + 1, 2 * kTurn - 1, 2 * kTurn}) {
    const FakeRecord record(1, static_cast<std::int32_t>(static_cast<std::uint32_t>(time)));
    const std::vector<const CMBRecord*> rows{&record};
    m_store.Take({"FAKE", '4', time, rows});
    m_store.EndBatch();
    EXPECT_EQ(Number("SELECT \"Record Time\" FROM FAKE ORDER BY rowid DESC LIMIT 1"), time);
  }
}

TEST_F(HistoryStoreTest, AnAbandonedBatchLeavesNoRowAndNoLock) {
  Keep();
  Batch(m_now);
  const FakeRecord record(1, m_now + 1);
  const std::vector<const CMBRecord*> rows{&record};
  m_store.Take({"FAKE", '4', m_now + 1, rows});
  m_store.AbandonBatch();
  EXPECT_EQ(Rows(), 1);
  Batch(m_now + 2);
  EXPECT_EQ(Rows(), 2);
  m_store.AbandonBatch();
  EXPECT_EQ(Rows(), 2) << "there was none";
}

TEST_F(HistoryStoreTest, AStatementThatIsLeftKeepsNoLockOfAFileThatWasClosed) {
  auto file = std::make_unique<SqlDatabase>("records.db", 0);
  const SqlStatement left = file->Prepare("SELECT 1");
  file->Execute("BEGIN EXCLUSIVE");
  file.reset();
  Keep();
  Batch(m_now);
  EXPECT_EQ(Rows(), 1);
}

TEST_F(HistoryStoreTest, AQuestionIsAnsweredPageByPage) {
  Keep();
  for (const std::int32_t time : {100, 110, 120}) {
    Batch(m_now + time, 1200);
  }
  EventLoop loop;
  FakeAgent agent;
  RequestTurns turns(loop);
  HistoryQueries queries(turns, m_store);
  const auto peer = std::make_shared<FakePeer>(Rights::kRead);
  const auto ask = [&](const Json& members) {
    Json message{{"record", "FAKE"}};
    for (const auto& [name, value] : members.Members()) {
      message[name] = value;
    }
    queries.History(std::make_shared<ControlRequest>(message, peer));
    RunATurn(loop, agent);
    return JsonOf(std::exchange(peer->answers, {}).front());
  };
  std::map<std::int32_t, int> counts;
  int pages = 0;
  for (Json after = Json::Array({0, 0}); !after.IsNull(); ++pages) {
    const Json answer = ask({{"since", m_now + 110}, {"after", after}});
    for (const Json& row : answer["history"]["rows"].Elements()) {
      EXPECT_EQ(row["Rate"], 0.1);
      ++counts[static_cast<std::int32_t>(row["Record Time"].Whole()) - m_now];
    }
    after = answer["history"]["next"];
  }
  EXPECT_EQ(counts, (std::map<std::int32_t, int>{{110, 1200}, {120, 1200}}));
  EXPECT_GE(pages, 3);
  const std::pair<std::int64_t, std::int32_t> nearest[] = {
      {INT64_MIN, 100}, {m_now + 105, 100}, {m_now + 106, 110}, {INT64_MAX, 120}};
  for (const auto& [at, time] : nearest) {
    const Json answer = ask({{"at", at}});
    EXPECT_EQ(answer["history"]["rows"][0]["Record Time"], m_now + time);
  }
  EXPECT_EQ(ask({{"since", "x"}})["error"]["field"], "since");
  for (const char* name : {"since", "until", "at"}) {
    EXPECT_EQ(ask({{name, UINT64_MAX}})["error"]["field"], name);
  }
  EXPECT_EQ(ask({{"after", Json::Array({0, UINT64_MAX})}})["error"]["field"], "after");
  EXPECT_EQ(ask({{"after", Json::Array({1})}})["error"]["field"], "after");
  EXPECT_EQ(ask({{"record", "NONE"}})["error"]["code"], "unknown-record");
  EXPECT_EQ(ask({{"record", "IDLE"}})["history"]["rows"], Json::Array());
  Keep({"", 1, 1});
  EXPECT_EQ(ask(Json::Object())["error"]["code"], "no-history");
}

TEST_F(HistoryStoreTest, AChangedLayoutAddsColumnsOrBeginsANewTable) {
  Keep();
  Batch(m_now);
  // The registry keeps pointers.
  static std::vector<FieldLayout> fields(kFakeFields.begin(), kFakeFields.end());
  fields.push_back({"New", FieldType::kUshort, 12, 2, FieldMeaning::gauge});
  static RecordLayout changed{"FAKE", "recordFake", '4', sizeof(recordFake), fields};
  LayoutRegistry::Instance().Publish(changed);
  Keep();
  Batch(m_now);
  EXPECT_EQ(Number("SELECT count(*) FROM FAKE WHERE New IS NULL"), 1);
  EXPECT_EQ(Rows(), 2);
  fields[3].type = FieldType::kFloat;
  changed.fields = fields;
  Keep();
  Batch(m_now);
  Keep();
  Batch(m_now);
  EXPECT_EQ(Rows(), 2);
  m_told.erase(std::remove_if(m_told.begin(), m_told.end(),
                              [](const auto& text) { return text.find("BARE") != text.npos; }),
               m_told.end());
  EXPECT_THAT(m_told,
              ElementsAre("History: the layout of FAKE has changed: 1 columns were added to its "
                          "table.",
                          HasSubstr("its old rows stand in the table \"FAKE until ")));
  fields.assign(kFakeFields.begin(), kFakeFields.end());
  changed.fields = fields;
  for (const bool isLeftWithout : {false, true}) {
    SqlDatabase file("records.db", 1000);
    if (isLeftWithout) {
      SqlStatement index = file.Prepare("SELECT name FROM pragma_index_list('FAKE')");
      ASSERT_TRUE(index.Step());
      const std::string name(index.Text(0));
      index.Reset();
      file.Execute("DROP INDEX " + QuotedName(name));
    }
    Keep();
    Batch(m_now);
    EXPECT_EQ(file.Number("SELECT count(*) FROM pragma_index_list('FAKE')"), 1);
  }
}

TEST_F(HistoryStoreTest, OldRowsAndExcessGoInSmallSteps) {
  Keep();
  Batch(m_now - 3 * 86400, 1200);
  Keep({"records.db", 2, 1});
  Batch(m_now);
  EXPECT_EQ(Rows(), 701);
  Batch(m_now);
  Batch(m_now);
  EXPECT_EQ(Rows(), 3);
  for (int i = 0; i < 60; ++i) {
    Batch(m_now - 3 * 86400, 1, 1);
  }
  EXPECT_EQ(Rows(), 63) << "what is old is not looked for after each batch";
  EXPECT_EQ(Totals(), 60);
  Keep({"records.db", 2, 1});
  Batch(m_now);
  EXPECT_EQ(Totals(), 10);
  Batch(m_now);
  EXPECT_EQ(Totals(), 0);
  EXPECT_EQ(Rows(), 5);
  for (const char* strange :
       {"a (x)", "b (\"Record Time\" INTEGER)",
        "c (\"Record Time\" INTEGER PRIMARY KEY) WITHOUT ROWID", "copy AS SELECT * FROM FAKE"}) {
    SqlDatabase("records.db", 1000).Execute(std::string("CREATE TABLE ") + strange);
  }
  SqlDatabase("records.db", 1000).Execute("INSERT INTO a VALUES (1)");
  SqlDatabase("records.db", 1000).Execute("INSERT INTO b VALUES ('x')");
  SqlDatabase("records.db", 1000).Execute("UPDATE copy SET \"Record Time\" = 5");
  Batch(m_now - 6, 1, 1);
  Batch(m_now - 5, 30000, 10000);
  EXPECT_LE(UsedPages(), 256);
  for (int i = 0; i < 300 && m_store.SizeBytes() > 1 << 20; ++i) {
    Batch(m_now);
  }
  EXPECT_LE(m_store.SizeBytes(), 1 << 20);
  EXPECT_EQ(Number("SELECT count(*) FROM \"qmt totals\" WHERE \"Record Time\" < " +
                   std::to_string(m_now - 5)),
            0);
  EXPECT_EQ(Number("SELECT count(*) FROM copy"), 5) << "who has copied rows wants to keep them";
  EXPECT_GT(Rows(), 5000);
  EXPECT_GE(Number("SELECT count(*) FROM FAKE WHERE \"Record Time\" = " + std::to_string(m_now)),
            3);
}

TEST_F(HistoryStoreTest, LargePartsOfATableEndAtTheOldestRowOfAnother) {
  SqlDatabase database("parts.db", 0);
  const char* const columns = "(\"Record Time\" INTEGER)";
  const char* const times =
      "WITH RECURSIVE time(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM time "
      "WHERE n < 4000) INSERT INTO ";
  for (const auto& [table, chosen] : {std::pair{"few", "n % 1000 = 0"}, {"many", "n > 0"}}) {
    database.Execute(std::string("CREATE TABLE ") + table + columns);
    database.Execute(std::string(times) + table + " SELECT n FROM time WHERE " + chosen);
  }
  OldestRows rows(database);
  std::string left;
  for (const std::int64_t parts : {8, 8, 1, 1, 8}) {
    left += std::to_string(rows.Remove(parts));
    left += ':' + std::to_string(database.Number("SELECT count(*) FROM many")) + '+' +
            std::to_string(database.Number("SELECT count(*) FROM few")) + ' ';
  }
  EXPECT_EQ(left, "2:3000+4 1:3000+0 1:2500+0 1:2000+0 4:0+0 ");
  EXPECT_EQ(rows.Remove(8), 0);
}

TEST_F(HistoryStoreTest, MoreGoesThanALargeBatchBrings) {
  const std::int32_t old = m_now - 100 * 86400;
  for (int batch = 0; batch < 10; ++batch) {
    Keep({"records.db", 1, 512});
    Batch(old + batch * 2 * 86400, 1200);
  }
  EXPECT_EQ(Rows(), 0);
  Keep({"records.db", 1, 512});
  const FakeRecord record(1, old);
  const CMBRecord* const row = &record;
  for (int time = 0; time < 200; ++time) {
    m_store.TakeTotals({"FAKE", '4', old + time, {&row, 1}});
  }
  m_store.EndBatch();
  EXPECT_EQ(Totals(), 0);
}

TEST_F(HistoryStoreTest, ALockAtTheStartLosesNoBatch) {
  std::ofstream("records.db-waiting") << std::string(5000, 'x');
  SqlDatabase stranger("records.db", 0);
  stranger.Execute("BEGIN EXCLUSIVE");
  Keep();
  const FakeRecord record(1, m_now);
  const CMBRecord* const row = &record;
  m_store.Take({"FAKE", '4', m_now, {&row, 1}});
  EXPECT_EQ(m_store.Database(), nullptr);
  Batch(m_now);
  EXPECT_EQ(Number("SELECT count(*) FROM FAKE", "records.db-waiting"), 2);
  stranger.Execute("ROLLBACK");
  Batch(m_now);
  EXPECT_EQ(Rows(), 3);
  EXPECT_EQ(m_store.LostBatches(), 0U);
  EXPECT_THAT(m_told, testing::Contains(HasSubstr("records.db-waiting is damaged")));
}

TEST_F(HistoryStoreTest, AFailureIsToldOnceAndHistoryResumesByItself) {
  Keep({"missing/records.db", 14, 512});
  EXPECT_EQ(m_store.Database(), nullptr) << "which loses no batch";
  Batch(m_now);
  Batch(m_now);
  EXPECT_THAT(m_told, ElementsAre(StartsWith("History: missing/records.db can't be written: ")));
  std::filesystem::create_directory("missing");
  m_told.clear();
  Batch(m_now);
  EXPECT_THAT(m_told, testing::Contains("History: missing/records.db is written again; 2 batches "
                                        "since the start are missing."));
  EXPECT_EQ(Number("SELECT count(*) FROM FAKE", "missing/records.db"), 1);
}

TEST_F(HistoryStoreTest, AFullDiskIsToldOnceAndItsReleaseToo) {
  std::filesystem::create_directory("small");
  const pid_t child = ::fork();
  if (child == 0) {
    // A mount of this process alone, which its end takes away.
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", "small", "tmpfs", 0, "size=2m") != 0) {
      ::_exit(2);
    }
    std::ofstream("small/other") << std::string(1'500'000, 'x');
    Keep({.file = "small/records.db"});
    for (int batch = 0; batch < 100 && m_store.LostBatches() == 0; ++batch) {
      Batch(m_now, 500);
    }
    Batch(m_now, 500);
    const auto told = [this] {
      return std::count_if(m_told.begin(), m_told.end(), [](const std::string& text) {
        return text.starts_with("History: small/");
      });
    };
    const auto toldOfFull = told();
    const bool isFull = m_store.LostBatches() == 2 && !m_store.Problem().empty();
    std::filesystem::remove("small/other");
    const std::int64_t before = Number("SELECT count(*) FROM FAKE", "small/records.db");
    Batch(m_now, 500);
    const bool isBack = m_store.Problem().empty() && m_store.LostBatches() == 2 &&
                        Number("SELECT count(*) FROM FAKE", "small/records.db") == before + 500;
    ::_exit(!isFull ? 3 : !isBack ? 4 : toldOfFull != 1 ? 5 : told() != 2 ? 6 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) {
    GTEST_SKIP() << "may mount nothing";
  }
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(HistoryStoreTest, ABrokenFileIsSetAside) {
  std::ofstream("records.db") << std::string(5000, 'x');
  Keep();
  Batch(m_now);
  Batch(m_now);
  EXPECT_EQ(Rows(), 1);
  int aside = 0;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    aside += entry.path().filename().string().starts_with("records.db.broken-") &&
                     entry.file_size() == 5000
                 ? 1
                 : 0;
  }
  EXPECT_EQ(aside, 1);
  EXPECT_THAT(m_told.front(), HasSubstr("It is set aside"));
}

TEST_F(HistoryStoreTest, WhatAFileBringsAlongIsNotRun) {
  Keep();
  Batch(m_now);
  Keep();
  SqlDatabase stranger("records.db", 1000);
  stranger.Execute("CREATE TRIGGER t AFTER INSERT ON FAKE BEGIN DELETE FROM FAKE; END");
  stranger.Execute("CREATE VIEW v AS SELECT 1");
  stranger.Execute("ALTER TABLE FAKE ADD COLUMN extra CHECK (Count < 0)");
  Batch(m_now + 1);
  EXPECT_EQ(Rows(), 2);
  EXPECT_THROW(static_cast<void>(Number("SELECT * FROM v")), SqlError);
}

TEST_F(HistoryStoreTest, WhatAFileHasComputedIsBounded) {
  Keep();
  Batch(m_now);
  Keep();
  SqlDatabase stranger("records.db", 1000);
  stranger.Execute("DELETE FROM FAKE");
  stranger.Execute("CREATE INDEX i ON FAKE (length(zeroblob(2000000)))");
  Batch(m_now + 1);
  EXPECT_EQ(Rows(), 0);
  EXPECT_THAT(m_told.back(), HasSubstr("can't be written: string or blob too big"));
}

TEST_F(HistoryStoreTest, ABrokenFileOfWaitingRowsIsSetAsideAlone) {
  Keep();
  Batch(m_now);
  Keep();
  std::ofstream("records.db-waiting") << std::string(5000, 'x');
  Batch(m_now);
  Batch(m_now);
  EXPECT_EQ(Rows(), 3);
  EXPECT_EQ(m_store.LostBatches(), 0U);
  EXPECT_THAT(m_told, testing::Contains(HasSubstr("records.db-waiting is damaged")));
  const auto isAside = [](const auto& entry) {
    return entry.path().filename().string().starts_with("records.db-waiting.broken-");
  };
  const std::filesystem::directory_iterator files(".");
  EXPECT_EQ(std::count_if(begin(files), end(files), isAside), 1);
}

TEST_F(HistoryStoreTest, WhileSomebodyReadsAKillLosesAtMostTheBatchAtWork) {
  Keep();
  Batch(m_now);
  // The library's locks are a process's own, so the reader is the parent and opens nothing before.
  Keep();
  const auto keepFifty = [this] {
    HistoryStore store{[](const std::string&) {}};
    store.Configure({});
    const FakeRecord record(1, m_now);
    const CMBRecord* row = &record;
    for (int i = 0; i < 50; ++i) {
      store.Take({"FAKE", '4', m_now, {&row, 1}});
      store.EndBatch();
    }
    ::raise(SIGKILL);
  };
  int reads[2];
  ASSERT_EQ(::pipe(reads), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    char go = 0;
    [[maybe_unused]] const ssize_t got = ::read(reads[0], &go, 1);
    keepFifty();
  }
  {
    SqlDatabase other("records.db", 0);
    SqlStatement reading = other.Prepare("SELECT * FROM FAKE");
    ASSERT_TRUE(reading.Step());
    ASSERT_EQ(::write(reads[1], "x", 1), 1);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_EQ(other.Number("SELECT count(*) FROM FAKE"), 1);
  }
  ::close(reads[0]);
  ::close(reads[1]);
  EXPECT_TRUE(std::filesystem::exists("records.db-waiting"));
  Keep();
  Batch(m_now);
  EXPECT_EQ(Rows(), 52);
  EXPECT_FALSE(std::filesystem::exists("records.db-waiting"));
  EXPECT_EQ(m_store.LostBatches(), 0U);
}

TEST_F(HistoryStoreTest, TotalsThatWaitAreMovedWithWhatTellsTheirLayout) {
  Keep();
  Batch(m_now);
  SqlDatabase other("records.db", 0);
  SqlStatement reading = other.Prepare("SELECT * FROM FAKE");
  ASSERT_TRUE(reading.Step());
  for (int batch = 0; batch < 150; ++batch) {
    Batch(m_now + batch, 1, 1);
  }
  reading.Reset();
  EXPECT_FALSE(HasTable(other, kTotalsTable));
  for (int batch = 150; batch < 155; ++batch) {
    Batch(m_now + batch);
  }
  EXPECT_FALSE(std::filesystem::exists("records.db-waiting"));
  EXPECT_EQ(Totals(), 150);
  EXPECT_EQ(Number("SELECT count(*) FROM \"qmt totals\" AS a JOIN \"qmt totals\" AS b ON b.rowid = "
                   "a.rowid + 1 WHERE b.\"Record Time\" <> a.\"Record Time\" + 1"),
            0);
  EXPECT_EQ(Number("SELECT count(*) FROM \"qmt totals layouts\" WHERE Description = '" +
                   TotalsLayoutOf(kFakeLayout).description + "'"),
            1);
}

TEST_F(HistoryStoreTest, WhatWaitsIsBoundedAndMovedInSmallSteps) {
  Keep({.waitingMegabytes = 1});
  SqlDatabase other("records.db", 0);
  Batch(m_now);
  SqlStatement reading = other.Prepare("SELECT * FROM FAKE");
  ASSERT_TRUE(reading.Step());
  std::int64_t kept = 1;
  for (int batch = 0; batch < 40; ++batch) {
    const auto lost = m_store.LostBatches();
    Batch(m_now + 1 + batch, 1000);
    kept += m_store.LostBatches() == lost ? 1000 : 0;
  }
  EXPECT_GT(kept, 5000);
  EXPECT_LT(kept, 40000);
  EXPECT_THAT(m_told, testing::Contains(HasSubstr("the rows that wait exceed 1 Mbytes")));
  reading.Reset();
  const auto lost = m_store.LostBatches();
  Batch(m_now + 100, 1500);
  EXPECT_EQ(Rows(), 2001) << "what is new goes behind what waits";
  for (int batch = 1; batch <= 30; ++batch) {
    Batch(m_now + 100 + batch, 1500);
    EXPECT_EQ(other.Number("SELECT count(*) FROM (SELECT count(*) AS rows FROM FAKE GROUP BY "
                           "\"Record Time\") WHERE rows NOT IN (1, 1000, 1500)"),
              0)
        << "rows of one time are moved together";
  }
  EXPECT_EQ(Rows(), kept + 31 * 1500);
  EXPECT_EQ(other.Number("SELECT count(*) FROM FAKE AS a JOIN FAKE AS b ON b.rowid = a.rowid + 1 "
                         "WHERE b.\"Record Time\" < a.\"Record Time\""),
            0);
  EXPECT_EQ(m_store.LostBatches(), lost);
  EXPECT_FALSE(std::filesystem::exists("records.db-waiting"));
}

// One table takes longer than a step is to take.
TEST_F(HistoryStoreTest, WhatWaitsOfLargeBatchesEndsAndTheLimitsHold) {
  for (const auto& [rows, batches] : {std::pair(1900U, 16), {2500U, 8}, {12000U, 8}}) {
    const std::vector<FakeRecord> records(rows, FakeRecord(1, m_now));
    const std::vector<const CMBRecord*> pointers = PointersTo(records);
    std::filesystem::remove("records.db");
    Keep();
    Batch(m_now - 3 * 86400, 600);
    Keep({.days = 2, .megabytes = 1});
    SqlDatabase other("records.db", 0);
    SqlStatement reading = other.Prepare("SELECT * FROM FAKE");
    for (int batch = 0; batch < batches; ++batch) {
      if (batch % 8 < 4) {
        ASSERT_TRUE(reading.Step());
      } else {
        reading.Reset();
      }
      m_store.Take({"IDLE", '3', m_now, pointers});
      Batch(m_now + batch, rows);
      EXPECT_EQ(std::filesystem::exists("records.db-waiting"), batch % 8 < 6) << rows << batch;
      if (batch == 4) {
        EXPECT_EQ(other.Number("SELECT count(*) FROM FAKE WHERE \"Record Time\" < " +
                               std::to_string(m_now)),
                  0);
      }
    }
    EXPECT_LE(UsedPages(), 256);
    EXPECT_EQ(m_store.LostBatches(), 0U);
  }
}

TEST_F(HistoryStoreTest, AnIndexThatIsMadeAnewCostsNoRowsAtOnce) {
  Keep();
  Batch(m_now, 20000);
  Keep({.megabytes = 1});
  SqlDatabase file("records.db", 1000);
  SqlStatement index = file.Prepare("SELECT name FROM pragma_index_list('FAKE')");
  ASSERT_TRUE(index.Step());
  const std::string drop = "DROP INDEX " + QuotedName(index.Text(0));
  index.Reset();
  file.Execute(drop);
  for (int doubled = 0; doubled < 3; ++doubled) {
    file.Execute("INSERT INTO FAKE SELECT * FROM FAKE");
  }
  Batch(m_now);
  EXPECT_GT(Rows(), 110000);
}

}  // namespace
