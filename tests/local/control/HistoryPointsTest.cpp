#include <malloc.h>

#include <cmath>
#include <numeric>
#include <random>

#include "local/control/BucketSeries.h"
#include "local/control/HistoryQueries.h"
#include "local/control/HistoryScan.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

constexpr std::int64_t kBegin = 1000000;

/// Bytes that the allocator has given out.
std::size_t UsedBytes() {
  const struct ::mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// Looks how much memory is in use when its answer is there.
class MeasuringPeer : public FakePeer {
 public:
  using FakePeer::FakePeer;
  void Answer(std::string line) override {
    used = UsedBytes();
    FakePeer::Answer(std::move(line));
  }

  std::size_t used = 0;
};

/// A history with rows of FAKE, put there by SQL.
class HistoryPointsTest : public ::testing::Test {
 protected:
  struct KeptRow {
    std::int64_t time;
    std::string label;
    std::optional<double> rate;
  };

  HistoryPointsTest() {
    PublishFakeRecords();
    m_store.Configure({});
    const FakeRecord record(1, kBegin);
    const CMBRecord* const rows[] = {&record};
    m_store.Take({"FAKE", '4', kBegin, rows});
    m_store.EndBatch();
    m_store.Database()->Execute("DELETE FROM FAKE");
  }

  void Keep(const std::vector<KeptRow>& rows) {
    SqlDatabase& database = *m_store.Database();
    database.Execute("BEGIN");
    SqlStatement insert = database.Prepare(
        "INSERT INTO FAKE (\"Record Time\", Label, Rate, Count) VALUES (?1, ?2, ?3, ?1)");
    for (const KeptRow& row : rows) {
      insert.Bind(1, row.time);
      insert.Bind(2, row.label);
      row.rate ? insert.Bind(3, *row.rate) : insert.Bind(3, nullptr);
      insert.Run();
    }
    database.Execute("COMMIT");
  }

  /// What is answered, in as many turns as it takes.
  Json Ask(const std::string& members) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    Ask(members, peer);
    return JsonOf(peer->answers.at(0));
  }
  void Ask(const std::string& members, const std::shared_ptr<FakePeer>& peer) {
    m_queries.History(
        std::make_shared<ControlRequest>(JsonOf(R"({"record":"FAKE",)" + members + "}"), peer));
    if (peer->answers.empty()) {
      LookAgain(peer);
      m_loop.Run(m_agent);
    }
  }
  /// Others have their turns while rows are read.
  void LookAgain(const std::shared_ptr<FakePeer>& peer) {
    LoopTask look;
    look.run = [this, peer](CMBNode&) {
      ++m_turns;
      peer->answers.empty() ? LookAgain(peer) : EventLoop::RequestStop();
    };
    m_loop.Post(std::move(look));
  }

  ScratchDirectory m_folder;
  EventLoop m_loop;
  FakeAgent m_agent;
  HistoryStore m_store{[](const std::string&) {}};
  RequestTurns m_requestTurns{m_loop};
  HistoryQueries m_queries{m_requestTurns, m_store};
  int m_turns = 0;
};

TEST_F(HistoryPointsTest, BucketsAreThoseOfTheRowsThemselves) {
  std::mt19937 random(20);
  std::vector<KeptRow> rows;
  std::int64_t time = kBegin;
  for (int i = 0; i < 20000; ++i) {
    time += random() % 500 == 0 ? 5000 : random() % 3;
    const auto key = std::string(1, static_cast<char>('a' + random() % 3));
    const double value = static_cast<double>(random() % 100000) / 7 - 5000;
    rows.push_back({time, key, random() % 10 == 0 ? std::nullopt : std::optional(value)});
  }
  std::ranges::shuffle(rows, random);
  Keep(rows);
  for (const std::int64_t points : {1, 7, 2000}) {
    const std::int64_t since = kBegin + 101;
    const std::int64_t until = time - 77;
    const std::int64_t seconds = (until - since + points) / points;
    std::map<std::string, std::map<std::int64_t, std::vector<double>>> expected;
    for (const KeptRow& row : rows) {
      if (row.time >= since && row.time <= until && row.rate && *row.rate > -4000) {
        expected[row.label][since + (row.time - since) / seconds * seconds].push_back(*row.rate);
      }
    }
    const Json answer = Ask(R"("columns":["Rate","Record Time"],"where":["Rate>-4000"],"points":)" +
                            std::to_string(points) + R"(,"since":)" + std::to_string(since) +
                            R"(,"until":)" + std::to_string(until));
    const Json& history = answer["history"];
    EXPECT_EQ(history["seconds"], seconds);
    ASSERT_EQ(history["series"].Size(), 3U);
    for (const Json& series : history["series"].Elements()) {
      const auto& buckets = expected[series["key"]["Label"].Text()];
      const auto& told = series["points"]["Rate"].Elements();
      ASSERT_EQ(told.size(), buckets.size());
      auto point = told.begin();
      for (const auto& [begin, values] : buckets) {
        const auto [least, greatest] = std::ranges::minmax(values);
        const double mean =
            std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
        EXPECT_EQ((*point)[0], begin);
        const double wanted[] = {least, mean, greatest};
        for (std::size_t i = 0; i < 3; ++i) {
          EXPECT_NEAR((*point)[i + 1].Number(), wanted[i], std::fabs(wanted[i]) * 5.1e-6);
        }
        ++point;
      }
    }
  }
}

TEST_F(HistoryPointsTest, OfManyKeysThoseWithTheMostRowsAreTold) {
  std::vector<KeptRow> rows;
  for (int key = 0; key < 100; ++key) {
    for (int i = 0; i <= key; ++i) {
      rows.push_back({kBegin + i, std::to_string(key), 1.5});
    }
  }
  Keep(rows);
  const std::string range = R"("columns":["Rate"],"points":1,"until":1000999)";
  const Json answer = Ask(range);
  const auto& series = answer["history"]["series"].Elements();
  ASSERT_EQ(series.size(), 64U);
  EXPECT_EQ(answer["history"]["omitted"], 36);
  EXPECT_EQ(answer["history"]["since"], kBegin);
  EXPECT_EQ(JsonText(series.front()),
            R"({"key":{"Label":"99"},"points":{"Rate":[[1000000,1.5,1.5,1.5]]}})");
  EXPECT_EQ(series.back()["key"]["Label"], "36");
  EXPECT_EQ(JsonText(Ask(range +
                         R"(,"by":[],"where":["Count=1000002","Label!=99"])")["history"]["series"]),
            R"([{"key":{},"points":{"Rate":[[1000000,1.5,1.5,1.5]]}}])");
  EXPECT_EQ(Ask(range + R"(,"by":["count"])")["history"]["omitted"], 36);
}

TEST(BucketSeriesTest, TooManyKeysAreRefused) {
  const std::optional<double> one = 1;
  const auto addLong = [&](BucketSeries& series, std::size_t keys) {
    for (std::size_t key = 0; key < keys; ++key) {
      const std::string text = std::to_string(key) + std::string(10000, 'x');
      series.Add(text, 0, {&one, 1}, [&] { return Json{{"Label", text}}; });
    }
  };
  for (int round = 0; round < 2; ++round) {
    BucketSeries first({0, 99, 10}, 1);
    BucketSeries second({0, 99, 10}, 1);
    addLong(first, 1500);
    EXPECT_THROW(addLong(second, 1500), std::bad_alloc) << "of all together";
    EXPECT_TRUE(first.WantsSecondLook());
    EXPECT_NO_THROW(addLong(second, 1500)) << "what is left out takes nothing";
  }
  BucketSeries series({0, 99, 10}, 1);
  const std::optional<double> value = 1;
  bool isTaken = true;
  for (std::size_t key = 0; key < BucketSeries::kMaxKeys; ++key) {
    isTaken = isTaken && series.Add(std::to_string(key), 0, {&value, 1}, [] { return Json(); });
  }
  EXPECT_TRUE(isTaken);
  EXPECT_FALSE(series.Add("one more", 0, {&value, 1}, [] { return Json(); }));
}

TEST_F(HistoryPointsTest, WhatIsNoNumberHasNoPointAndWrongMembersAreNamed) {
  Keep({{kBegin, "a", 1e308}, {kBegin, "a", 1e308}, {kBegin + 1, "a", INFINITY}});
  m_store.Database()->Execute("UPDATE FAKE SET Count = 'x'");
  EXPECT_EQ(JsonText(Ask(R"("columns":["Rate","Count"],"points":9,"until":1000001)")["history"]),
            R"({"record":"FAKE","category":"4","since":1000000,"until":1000001,"seconds":1,)"
            R"("series":[{"key":{"Label":"a"},"points":{"Rate":[[1000000,1e+308,1e+308,1e+308]],)"
            R"("Count":[]}}],"omitted":0})");
  const std::string rate = R"("columns":["Rate"],)";
  const std::pair<std::string, const char*> wrong[] = {
      {rate + R"("points":0)", "points"},
      {rate + R"("points":2001)", "points"},
      {rate + R"("points":-1)", "points"},
      {rate + R"("by":[])", "by"},
      {rate + R"("points":5,"by":["None"])", "by"},
      {rate + R"("points":5,"limit":5)", "limit"},
      {rate + R"("points":5,"at":5)", "at"},
      {rate + R"("points":5,"since":7,"until":6)", "since"},
      {rate + R"("points":5,"since":-9223372036854775808)", "since"},
      {rate + R"("points":5,"until":9223372036854775807)", "until"},
      {rate + R"("points":5,"since":9007199254740992)", "since"},
      {R"("points":5)", "columns"},
      {R"("points":5,"columns":["Label"])", "columns"},
      {R"("sort":["Label"])", "sort"},
  };
  for (const auto& [members, field] : wrong) {
    const Json answer = Ask(members);
    ASSERT_FALSE(answer["ok"].Bool()) << members;
    EXPECT_EQ(answer["error"]["field"], field) << members;
    EXPECT_EQ(answer["error"]["code"], "bad-field") << members;
  }
  {
    SqlDatabase writer("records.db", 0);
    writer.Execute("BEGIN EXCLUSIVE");
    EXPECT_EQ(Ask(rate + R"("points":5)")["error"]["code"], "no-history");
  }
  m_store.Database()->Execute("DROP TABLE FAKE");
  EXPECT_EQ(Ask(rate + R"("points":5)")["history"]["series"].Size(), 0U);
  m_store.Configure({""});
  EXPECT_EQ(Ask(rate + R"("points":5)")["error"]["code"], "no-history");
}

TEST_F(HistoryPointsTest, PagesGoOnInAnyOrder) {
  std::vector<KeptRow> rows;
  for (int i = 0; i < 30; ++i) {
    rows.push_back({kBegin + i / 10, i % 2 == 0 ? "even" : "odd", i});
  }
  for (int i = 0; i <= 10000; ++i) {
    rows.push_back({kBegin + 100, "a", i});
  }
  Keep(rows);
  EXPECT_EQ(Ask(R"("at":1000100,"sort":["Rate"])")["error"]["field"], "sort") << "too many";
  m_store.Database()->Execute("DELETE FROM FAKE WHERE \"Record Time\" > 1000099");
  const std::pair<const char*, const char*> cases[] = {
      {R"("where":["Label=odd","Rate<14"],"limit":2)", "1 3 5 7 9 11 13"},
      {R"("sort":["Record Time"],"where":["Rate>27"],"limit":1)", "28 29"},
      {R"("sort":["-Record Time"],"where":["Rate>=17"],"limit":3)",
       "29 28 27 26 25 24 23 22 21 20 19 18 17"},
      {R"("at":1000001,"sort":["+Label","-Rate"],"limit":4)", "18 16 14 12 10 19 17 15 13 11"},
      {R"("at":1000001,"sort":["Rate"],"where":["Label=odd"])", "19 17 15 13 11"},
      {R"("at":1000009,"limit":7)", "20 21 22 23 24 25 26 27 28 29"},
  };
  for (const auto& [members, expected] : cases) {
    std::string told;
    Json answer = Ask(members + std::string(R"(,"columns":["Rate"])"));
    for (int page = 0; page < 30; ++page) {
      for (const Json& row : answer["history"]["rows"].Elements()) {
        ASSERT_EQ(row.Size(), 1U);
        told += (told.empty() ? "" : " ") + std::to_string(static_cast<int>(row["Rate"].Number()));
      }
      if (answer["history"]["next"].IsNull()) {
        break;
      }
      answer = Ask(members + std::string(R"(,"columns":["Rate"],"after":)") +
                   JsonText(answer["history"]["next"]));
    }
    EXPECT_EQ(told, expected) << members;
  }
}

TEST_F(HistoryPointsTest, APageTakesLittleMoreMemoryThanItsText) {
  [[maybe_unused]] constexpr std::size_t kLittle = std::size_t{64} << 10U;
  std::vector<KeptRow> rows;
  for (int i = 0; i < 1000; ++i) {
    rows.push_back({kBegin, "a label of some length", i});
  }
  Keep(rows);
  for (const char* members : {R"("limit":1000)", R"("at":1000000,"sort":["-Rate"])"}) {
    // The database has its pages after the first one. A slow host's answer may have fewer rows.
    ASSERT_NE(Ask(members)["history"]["rows"].Size(), 0U);
    const auto peer = std::make_shared<MeasuringPeer>(Rights::kRead);
    [[maybe_unused]] const std::size_t before = UsedBytes();
    Ask(members, peer);
    ASSERT_EQ(peer->answers.size(), 1U);
#if !defined(QMT_ADDRESS_SANITIZER)
    EXPECT_LT(peer->used, before + kLittle + 3 * peer->answers[0].size()) << members;
#endif
  }
}

TEST_F(HistoryPointsTest, ManyQuestionsHoldABatchForOneTurn) {
  Keep({{kBegin, "a", 1}});
  const auto ask = [this](const char* members) {
    const auto peer = std::make_shared<FakePeer>(Rights::kRead);
    m_queries.History(std::make_shared<ControlRequest>(
        JsonOf(R"({"record":"FAKE","columns":["Rate"])" + std::string(members) + "}"), peer));
    return peer;
  };
  std::vector<std::shared_ptr<FakePeer>> peers;
  for (int i = 0; i < 6; ++i) {
    peers.push_back(ask(""));
    peers.push_back(ask(R"(,"points":5)"));
  }
  std::ptrdiff_t answered = 0;
  std::function<void()> postBatch = [&] {
    m_loop.Post({[&](CMBNode&) {
                   const auto now = std::ranges::count_if(
                       peers, [](const auto& peer) { return !peer->answers.empty(); });
                   EXPECT_LE(now - answered, 1);
                   answered = now;
                   answered < 12 ? postBatch() : EventLoop::RequestStop();
                 },
                 {},
                 true});
  };
  postBatch();
  m_loop.Run(m_agent);
  EXPECT_EQ(answered, 12);
  peers = {ask(""), ask(R"(,"points":5)")};
  EventLoop::RequestStop();
  m_loop.Run(m_agent);
  for (const auto& peer : peers) {
    EXPECT_EQ(JsonOf(peer->answers.at(0))["error"]["code"], "stopping");
  }
}

TEST_F(HistoryPointsTest, SlicesOfOneRowEachMeetEveryRowOnce) {
  std::vector<KeptRow> rows;
  for (int i = 0; i < 50; ++i) {
    rows.push_back({kBegin + i / 7, "a", i});
  }
  Keep(rows);
  for (const bool isNewestFirst : {false, true}) {
    HistoryScan scan(kFakeLayout, {4}, {kBegin, kBegin + 6, std::nullopt, isNewestFirst});
    std::vector<double> met;
    const auto visit = [&](const HistoryRow& row) {
      met.push_back(row.Number(4).value());
      return HistoryScan::Then::kGoOn;
    };
    while (met.size() < rows.size() &&
           scan.Slice(*m_store.Database(), std::chrono::milliseconds(0), visit)) {
    }
    EXPECT_EQ(met.size(), 49U);
    EXPECT_TRUE(isNewestFirst ? std::ranges::is_sorted(met, std::greater())
                              : std::ranges::is_sorted(met));
  }
}

}  // namespace
