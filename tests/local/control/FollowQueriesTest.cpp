#include "local/control/FollowQueries.h"

#include <atomic>

#include "tests/json/JsonOf.h"
#include "tests/local/ServedControl.h"
#include "tests/local/control/FakePeer.h"

namespace {

constexpr std::array kSecretFields{
    FieldLayout{"Label", FieldType::kText, 12, 8, FieldMeaning::key},
    FieldLayout{"Command Line", FieldType::kText, 0, 8, FieldMeaning::text}};
constexpr RecordLayout kSecretLayout{"SECRET", "recordFake", '4', sizeof(recordFake),
                                     kSecretFields};

class FollowQueriesTest : public ::testing::Test {
 protected:
  FollowQueriesTest() {
    PublishFakeRecords();
    LayoutRegistry::Instance().Publish(kSecretLayout);
  }
  /// A follower with these further members of its request.
  std::shared_ptr<FakePeer> Follow(
      const std::string& members,
      const std::shared_ptr<FakePeer>& peer = std::make_shared<FakePeer>(Rights::kRead)) {
    m_follow.Follow(std::make_shared<ControlRequest>(JsonOf("{\"id\":1" + members + "}"), peer));
    return peer;
  }
  void Batch(const std::vector<const char*>& names, std::time_t time, std::size_t rows = 1) {
    const FakeRecord record(static_cast<std::uint32_t>(time));
    const std::vector<const CMBRecord*> list(rows, &record);
    for (const char* name : names) {
      m_sinks.Take({name, '4', time, list});
    }
    m_sinks.EndBatch();
  }
  /// What a follower gets until it is at rest, each line in short.
  static std::vector<std::string> Told(FakePeer& peer, std::size_t* pieces = nullptr) {
    std::string text;
    bool isMore = true;
    while (isMore) {
      std::string piece;
      isMore = peer.endless(piece);
      EXPECT_LT(piece.size(), 70000U);
      text += piece;
      *(pieces == nullptr ? &s_ignored : pieces) += 1;
    }
    std::vector<std::string> told;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      const Json event = JsonOf(line);
      if (event.Find("ok") != nullptr) {
        told.push_back(line);
      } else if (event["event"] == "batch") {
        told.push_back("batch " + JsonText(event["time"]));
      } else {
        told.push_back(event["record"].Text() + event["category"].Text() + " " +
                       JsonText(event["time"]) + " " + std::to_string(event["rows"].Size()));
      }
    }
    return told;
  }

  static inline std::size_t s_ignored = 0;
  LastRows m_lastRows;
  FollowQueries m_follow{m_lastRows, 1U << 20U};
  RecordSinks m_sinks{{&m_lastRows, &m_follow}};
};

TEST_F(FollowQueriesTest, EachFollowerIsToldOfItsRecordsInPieces) {
  Batch({"FAKE"}, 5);
  const auto all = Follow("");
  const auto one = Follow(R"(,"records":["SECRET"])");
  EXPECT_THAT(Told(*all), ElementsAre(R"({"id":1,"ok":true})")) << "nothing of before";
  Batch({"FAKE", "BARE", "SECRET"}, 10, 2000);
  Batch({"FAKE"}, 20, 0);
  EXPECT_EQ(all->continues, 2);
  EXPECT_EQ(one->continues, 1);
  std::size_t pieces = 0;
  EXPECT_THAT(Told(*all, &pieces), ElementsAre("FAKE4 10 2000", "SECRET4 10 2000", "batch 10",
                                               "FAKE4 20 0", "batch 20"));
  EXPECT_GT(pieces, 3U);
  EXPECT_THAT(Told(*one), ElementsAre(R"({"id":1,"ok":true})", "SECRET4 10 2000", "batch 10"));
  std::string nothing;
  EXPECT_FALSE(all->endless(nothing));
  EXPECT_EQ(nothing, "");
}

TEST_F(FollowQueriesTest, ArgumentsAreLeftOutWhereTheyAreNotWanted) {
  for (const bool isShown : {true, false}) {
    const auto peer = Follow(isShown ? "" : R"(,"arguments":false)");
    Batch({"SECRET"}, 10);
    std::string text;
    peer->endless(text);
    EXPECT_EQ(text.find(R"("Command Line":"FAKE")") != std::string::npos, isShown) << text;
    EXPECT_EQ(text.find(R"("Command Line":null)") != std::string::npos, !isShown) << text;
  }
}

TEST_F(FollowQueriesTest, RowsAreSharedAndWhoIsTooFarBehindIsDropped) {
  const auto slow = Follow("");
  const auto other = Follow(R"(,"records":["SECRET"])");
  for (std::time_t time = 1; time <= 8; ++time) {
    Batch({"FAKE"}, time);
  }
  EXPECT_FALSE(slow->isGone);
  EXPECT_EQ(m_lastRows.Find("FAKE", '4').use_count(), 3) << "this one, the last rows, the batch";
  Batch({"FAKE"}, 9);
  EXPECT_TRUE(slow->isGone);
  EXPECT_FALSE(other->isGone);
  other->isGone = true;
  Batch({"FAKE"}, 10);
  Batch({"FAKE"}, 11);
  EXPECT_EQ(m_lastRows.Find("FAKE", '4').use_count(), 2) << "nobody follows";
}

TEST_F(FollowQueriesTest, WhatCanNotBeFollowedIsRefused) {
  const struct {
    const char* members;
    const char* field;
  } rows[] = {{R"(,"records":["FAKE","NOPE"])", "records"},
              {R"(,"records":["BARE"])", "records"},
              {R"(,"records":"FAKE")", "records"},
              {R"(,"records":[1])", "records"},
              {R"(,"arguments":1)", "arguments"}};
  for (const auto& row : rows) {
    const auto peer = Follow(row.members);
    ASSERT_EQ(peer->answers.size(), 1U) << row.members;
    const Json error = JsonOf(peer->answers[0])["error"];
    EXPECT_EQ(error["code"], "bad-field") << row.members;
    EXPECT_EQ(error["field"], row.field) << row.members;
  }
}

TEST_F(FollowQueriesTest, FollowersAndWhatWaitsForThemAreBounded) {
  std::vector<std::string> told;
  m_follow.OnProblem([&](const std::string& text) { told.push_back(text); });
  const auto slow = Follow("");
  const auto quick = Follow("");
  Batch({"FAKE"}, 1, 20000);
  EXPECT_FALSE(slow->isGone) << "one batch may be as large as it is";
  Told(*slow);
  for (std::time_t time = 2; time <= 4; ++time) {
    EXPECT_FALSE(slow->isGone) << time;
    Told(*quick);
    Batch({"FAKE"}, time, 6000);
  }
  EXPECT_TRUE(slow->isGone);
  EXPECT_FALSE(quick->isGone);
  EXPECT_EQ(told.size(), 1U);

  std::vector<std::shared_ptr<FakePeer>> others;
  for (std::size_t i = 1; i < FollowQueries::kMostFollowers; ++i) {
    others.push_back(Follow(""));
  }
  EXPECT_EQ(JsonOf(Follow("")->answers.at(0))["error"]["code"], "busy");
  others[0]->isGone = true;
  others[1].reset();
  EXPECT_THAT(Follow("")->answers, IsEmpty()) << "who has gone holds no place";
}

TEST_F(FollowQueriesTest, WantOfMemoryLeavesNoFollowerBehind) {
  std::vector<std::shared_ptr<FakePeer>> refused(FollowQueries::kMostFollowers);
  for (std::shared_ptr<FakePeer>& peer : refused) {
    peer = std::make_shared<FakePeer>(Rights::kRead);
    peer->isPoor = true;
    EXPECT_THROW(Follow("", peer), std::bad_alloc);
  }
  const auto gone = Follow("");
  const auto steady = Follow("");
  const auto poor = Follow("");
  EXPECT_THAT(gone->answers, IsEmpty()) << "who was told an error holds no place";
  gone->isGone = true;
  poor->isPoor = true;
  EXPECT_THROW(Batch({"FAKE"}, 10), std::bad_alloc);
  poor->isPoor = false;
  Batch({"FAKE"}, 20);
  for (const auto& peer : {steady, poor}) {
    EXPECT_THAT(Told(*peer), ElementsAre(R"({"id":1,"ok":true})", "FAKE4 10 1", "batch 10",
                                         "FAKE4 20 1", "batch 20"));
  }
}

class FollowedControlTest : public ::testing::Test, protected ServedControl {};

TEST_F(FollowedControlTest, AFollowerAtRestHearsOnAndItsEndIsSeen) {
  sinks.Add(operations.Followers());
  schedule.Load({{"FAKE", "1", 1}}, [](std::size_t, const std::string& text) { FAIL() << text; });
  std::uint32_t count = 0;
  agent.onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    batch.m_events.at(0)->m_records.push_back(new FakeRecord(++count));
    return kNotifyDone;
  };
  schedule.Start();
  std::chrono::steady_clock::time_point end;
  settings.maxConnections = 2;
  settings.rights = Rights::kRead;
  Serve([&] {
    TestClient follower;
    EXPECT_EQ(follower.Ask(R"({"op":"follow","records":["FAKE"]})"), Json({{"ok", true}}));
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(follower.Receive()["rows"][0]["Label"], "a\xEF\xBF\xBD");
      EXPECT_EQ(follower.Receive()["time"], 1700000000);
    }
    {
      TestClient second;
      EXPECT_EQ(second.Ask(R"({"op":"follow"})")["ok"], true);
      TestClient excess;
      EXPECT_EQ(excess.Receive()["error"]["code"], "busy");
    }
    // The place of who has hung up at rest is free before the next batch.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    TestClient next;
    EXPECT_EQ(next.Ask(R"({"op":"status"})")["ok"], true);
    EXPECT_EQ(next.Ask(R"({"op":"shutdown"})")["error"]["code"], "permission-denied");
    end = std::chrono::steady_clock::now();
  });
  EXPECT_LT(std::chrono::steady_clock::now() - end, std::chrono::milliseconds(700))
      << "a stop doesn't wait for followers";
}

}  // namespace
