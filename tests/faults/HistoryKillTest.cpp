#include <cstdio>
#include <optional>

#include "local/history/HistoryStore.h"
#include "local/history/HistoryTables.h"
#include "tests/faults/KilledChild.h"
#include "tests/local/FakeAgent.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kFile = "records.db";
constexpr const char* kWaitingFile = "records.db-waiting";
constexpr int kRowsOfBatch = 300;
constexpr int kTwoDays = 2 * 86400;

/// A history as the daemon keeps one, with somebody who may read it. Batches are told by seconds
/// since an hour ago.
class KeptBatches {
 public:
  explicit KeptBatches(std::int32_t begin) : m_begin(begin) {
    PublishFakeRecords();
    Keep(14);
  }

  void Keep(int days) { m_store.Configure({kFile, days}); }
  void Batch(int second) {
    const std::int32_t time = m_begin + second;
    const std::vector<FakeRecord> records(kRowsOfBatch, FakeRecord(1, time));
    std::vector<const CMBRecord*> rows;
    for (const FakeRecord& record : records) {
      rows.push_back(&record);
    }
    m_store.Take({"FAKE", '4', time, rows});
    m_store.TakeTotals({"FAKE", '4', time, rows});
    m_store.EndBatch();
  }
  void BeginToRead() {
    m_reader.emplace(kFile, 1000);
    m_read.emplace(m_reader->Prepare("SELECT * FROM FAKE"));
    m_read->Step();
  }
  void EndToRead() {
    m_read.reset();
    m_reader.reset();
  }
  [[nodiscard]] const std::string& Told() const { return m_told; }

 private:
  std::int32_t m_begin;
  std::string m_told;
  HistoryStore m_store{[this](const std::string& text) { m_told += text + '\n'; }};
  std::optional<SqlDatabase> m_reader;
  std::optional<SqlStatement> m_read;
};

/// What stands before the batch at work: the batches of the seconds 1 to `earlierBatches`.
struct Scene {
  const char* name;
  int earlierBatches;
  void (*prepare)(KeptBatches& kept);
};

constexpr Scene kScenes[] = {{"the first batch", 0, [](KeptBatches&) {}},
                             {"a further batch", 2,
                              [](KeptBatches& kept) {
                                kept.Batch(1);
                                kept.Batch(2);
                              }},
                             {"a batch beside a reader", 1,
                              [](KeptBatches& kept) {
                                kept.Batch(1);
                                kept.BeginToRead();
                              }},
                             {"a batch behind one that waits", 2,
                              [](KeptBatches& kept) {
                                kept.Batch(1);
                                kept.BeginToRead();
                                kept.Batch(2);
                                kept.EndToRead();
                              }},
                             {"a batch after which old rows go", 2, [](KeptBatches& kept) {
                                kept.Batch(-kTwoDays);
                                kept.Batch(1);
                                kept.Batch(2);
                                kept.Keep(1);
                              }}};

class HistoryKillTest : public ::testing::Test {
 protected:
  /// In an empty working directory.
  [[nodiscard]] faults::KilledRun Run(const Scene& scene, std::size_t place) const {
    std::optional<KeptBatches> kept;
    return faults::RunKilled(
        [&] {
          kept.emplace(m_begin);
          scene.prepare(*kept);
        },
        [&] { kept->Batch(scene.earlierBatches + 1); }, place);
  }

  /// What a daemon that is started after the kill tells, which makes one batch more.
  [[nodiscard]] std::string GoOn(int second) const {
    EXPECT_TRUE(faults::RunInChild([&] {
      KeptBatches kept(m_begin);
      kept.Batch(second);
      std::ofstream("told") << kept.Told();
    }));
    return FileText("told");
  }

  /// The rows of a batch in both files.
  [[nodiscard]] std::int64_t Rows(const std::string& table, int second) const {
    std::int64_t rows = 0;
    for (const char* file : {kFile, kWaitingFile}) {
      if (fs::exists(file)) {
        SqlDatabase database(file, 1000);
        rows +=
            HasTable(database, table)
                ? database.Number("SELECT count(*) FROM " + QuotedName(table) + " WHERE " +
                                  QuotedName(kTimeLabel) + " = " + std::to_string(m_begin + second))
                : 0;
      }
    }
    return rows;
  }

  static void ExpectIntegrity() {
    for (const char* file : {kFile, kWaitingFile}) {
      if (fs::exists(file)) {
        SqlDatabase database(file, 1000);
        SqlStatement check = database.Prepare("PRAGMA integrity_check");
        ASSERT_TRUE(check.Step());
        EXPECT_EQ(check.Text(0), "ok") << file;
      }
    }
  }

  /// `isLossAllowed` for the batch at work alone.
  void ExpectWhole(int second, bool isLossAllowed) const {
    const std::int64_t rows = Rows("FAKE", second);
    EXPECT_EQ(rows == 0 ? 0 : 1, Rows(kTotalsTable, second)) << "batch " << second;
    EXPECT_TRUE(rows == kRowsOfBatch || (isLossAllowed && rows == 0))
        << "batch " << second << " has " << rows << " rows";
    m_lost += rows == 0 ? 1 : 0;
  }

  /// Kills at one place, goes on, and looks at all batches.
  [[nodiscard]] faults::KilledRun KillAndGoOn(const Scene& scene, std::size_t place) const {
    const TempFolder folder(TempFolder::kEnter);
    const faults::KilledRun run = Run(scene, place);
    EXPECT_TRUE(run.wasTraced) << "this process may trace no child";
    EXPECT_TRUE(run.wasKilled || run.wasUnhurt);
    const int atWork = scene.earlierBatches + 1;
    EXPECT_EQ(GoOn(atWork + 1), "");
    ExpectIntegrity();
    for (int second = 1; second <= atWork + 1; ++second) {
      ExpectWhole(second, second == atWork && run.wasKilled);
    }
    return run;
  }

  std::int32_t m_begin = static_cast<std::int32_t>(std::time(nullptr)) - 3600;
  mutable int m_lost = 0;  ///< batches at work
};

TEST_F(HistoryKillTest, LosesNoMoreThanTheBatchAtWork) {
  if (!faults::RunKilled([] {}, [] {}, 0).wasTraced) {
    GTEST_SKIP() << "this process may trace no child";
  }
  // Each system call has two stops.
  const std::size_t step = std::getenv("QMT_FAULTS_ALL") != nullptr ? 1 : 40;
  for (const Scene& scene : kScenes) {
    SCOPED_TRACE(scene.name);
    m_lost = 0;
    int kills = 0;
    faults::KilledRun run;
    do {
      const std::size_t place = 1 + static_cast<std::size_t>(kills) * step;
      SCOPED_TRACE("stop " + std::to_string(place));
      run = KillAndGoOn(scene, place);
      kills += run.wasKilled ? 1 : 0;
    } while (run.wasKilled);
    // The batch is whole by the last one, which the steps may miss, as may a batch that waits
    // longer; one that has waited less tells where its own last one is.
    for (int tries = 0; tries == 0 || (tries < 5 && m_lost == kills); ++tries) {
      run = KillAndGoOn(scene, run.stops);
      kills += run.wasKilled ? 1 : 0;
    }
    // Else the kills came too late or too early to tell anything.
    EXPECT_GT(m_lost, 0);
    EXPECT_LT(m_lost, kills);
    std::printf("%s: %d kills, %d of them lose it\n", scene.name, kills, m_lost);
  }
}

}  // namespace
