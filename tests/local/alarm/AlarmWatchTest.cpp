#include "local/alarm/AlarmWatch.h"

#include "json/JsonText.h"
#include "tests/local/alarm/AlarmHarness.h"
#include "tests/support/Testing.h"

namespace {

/// One definition with batches 60 seconds apart; what changes is noted as "KEY begins TIME".
class AlarmWatchTest : public ::testing::Test {
 protected:
  void Define(const std::string& lines) {
    watch = std::make_unique<AlarmWatch>(
        DefinitionOf("alarm = a\nrecord = FAKE\ncondition = Count > 90\n" + lines));
    ASSERT_EQ(watch->Why(), "");
  }
  using Rows = std::vector<std::pair<const char*, std::uint32_t>>;
  void Batch(std::time_t time, const Rows& rows, bool isWhole = true) {
    watch->Begin(time, std::chrono::seconds(60), isWhole);
    for (const auto& [label, count] : rows) {
      watch->Row(AlarmRow(label, count), change);
    }
    while (watch->End(change, [] { return true; })) {
    }
  }
  const AlarmWatch::Change change = [this](AlarmWatch& one, AlarmState& state) {
    const bool isBegin = state.phase == AlarmState::Phase::kActive;
    changes.push_back(state.key["Label"].Text() + (isBegin ? " begins " : " ends ") +
                      std::to_string(isBegin ? state.since : state.until));
    texts.push_back(state.text);
    EXPECT_EQ(&one, watch.get());
    state.id = isBegin ? ++lastId : state.id;
  };
  /// As after a restart.
  void Reload(const std::string& lines) {
    const ParsedJson kept = ParseJson(JsonText(watch->ToJson()));
    Define(lines);
    watch->FromJson(kept.value);
  }

  std::unique_ptr<AlarmWatch> watch;
  std::vector<std::string> changes;
  std::vector<std::string> texts;
  std::int64_t lastId = 0;
};

TEST_F(AlarmWatchTest, BeginsAfterItsTimeAndEndsAtItsOwnLevelAfterItsOwn) {
  Define("until = Count < 50\nfor = 2m\nkeep = 1m\ntext = {Label} has {Count}\n");
  const std::uint32_t counts[] = {95, 95, 10, 95, 96, 97, 60, 40, 60, 40, 30, 10};
  std::time_t time = 1000;
  for (const std::uint32_t count : counts) {
    Batch(time += 60, {{"x", count}, {"y", 1}});
  }
  EXPECT_THAT(changes, ElementsAre("x begins 1360", "x ends 1660"));
  EXPECT_THAT(texts, ElementsAre("x has 97", "x has 60"));
}

TEST_F(AlarmWatchTest, WhatNobodySawCountsAsTwoIntervalsAtMost) {
  Define("for = 5m\n");
  Batch(1000, {{"x", 95}});
  Batch(9000, {{"x", 95}});  // 120 of it count
  Batch(9060, {{"x", 95}});
  Reload("for = 5m\n");
  Batch(90000, {{"x", 95}});  // again 120: 300 in all
  EXPECT_THAT(changes, ElementsAre("x begins 90000"));
  Batch(100, {{"x", 95}});  // the clock was set back
  Reload("for = 5m\n");
  Batch(160, {{"x", 95}});
  EXPECT_EQ(changes.size(), 1U);
  EXPECT_EQ(watch->Active(), 1U);
  Batch(220, {{"x", 5}});
  EXPECT_EQ(changes.back(), "x ends 90000");  // no earlier than it began
}

TEST_F(AlarmWatchTest, ARowThatIsGoneEndsIt) {
  Define("for = 1m\nwhere = Label != z\n");
  Batch(1000, {{"x", 95}, {"y", 95}, {"z", 95}});
  Batch(1060, {{"x", 95}, {"x", 1}});
  EXPECT_EQ(watch->Pending(), 0U);
  Batch(1120, {});
  for (const std::time_t time : {1180, 1240, 1300}) {
    Batch(time, {{"y", 10}, {"y", 99}});  // of two rows of one key the first counts
  }
  EXPECT_THAT(changes, ElementsAre("x begins 1060", "x ends 1120"));
  EXPECT_EQ(watch->Pending(), 0U);
}

TEST_F(AlarmWatchTest, ABatchThatIsNotWholeEndsWhatItsRowsEnd) {
  Define("for = 1m\n");
  Batch(1000, {{"x", 95}, {"y", 95}});
  Batch(1060, {{"x", 95}, {"y", 95}, {"z", 95}});
  Batch(1120, {{"y", 5}}, false);
  EXPECT_EQ(watch->Pending(), 1U);
  EXPECT_THAT(changes, ElementsAre("x begins 1060", "y begins 1060", "y ends 1120"));
  Batch(1180, {{"z", 95}});
  EXPECT_EQ(changes.size(), 5U);
  EXPECT_THAT(changes, ::testing::IsSupersetOf({"x ends 1180", "z begins 1180"}));
}

TEST_F(AlarmWatchTest, ABatchThatEndsInSeveralTurnsCountsOnce) {
  Define("keep = 2m\n");
  Batch(1000, {{"x", 95}, {"y", 95}});
  Batch(1060, {{"x", 95}});
  for (const std::time_t time : {1120, 1180, 1240}) {
    Batch(time, {});
  }
  EXPECT_THAT(changes, ElementsAre("x begins 1000", "y begins 1000", "y ends 1180", "x ends 1240"));
}

TEST_F(AlarmWatchTest, OneThatComesAndGoesIsDamped) {
  Define("");
  std::time_t time = 1000000;
  for (int i = 0; i < 20; ++i) {
    Batch(time += 60, {{"x", i % 2 == 0 ? 95U : 5U}});
  }
  EXPECT_EQ(changes.size(), 2 * AlarmWatch::kFlaps - 1);
  time -= 500000;  // no clock that is set back makes it longer
  for (int i = 0; i < 12; ++i) {
    Batch(time += 60, {{"x", 5}});
  }
  EXPECT_EQ(changes.size(), 2 * AlarmWatch::kFlaps);
  for (int i = 0; i < 60; ++i) {
    Batch(time += 60, {{"x", 5}});
  }
  EXPECT_TRUE(watch->States().empty());
}

TEST_F(AlarmWatchTest, NumbersAreWhereTheLineLeads) {
  Define("predict = 3630\nover = 20m\n");
  std::time_t time = 100000;
  for (std::uint32_t i = 0; i < 60; ++i) {
    time -= i == 20 ? 50000 : 0;  // the clock is set back
    // 1 a minute, and 60.5 minutes ahead: 90.5 when the count is 30.
    Batch(time += 60, {{"x", i}, {"steady", 80}});
  }
  EXPECT_THAT(changes, ElementsAre("x begins " + std::to_string(50000 + 31 * 60)));
}

TEST_F(AlarmWatchTest, NoLineIsDrawnThroughTooLittle) {
  Define("predict = 1h\nover = 20m\n");
  Batch(1000, {{"x", 0}});
  Batch(1060, {{"x", 50}});
  Batch(1120, {{"x", 90}});
  EXPECT_TRUE(changes.empty());
  for (int i = 0; i < 3; ++i) {
    Batch(1180 + i * 60, {{"x", 90}});
  }
  EXPECT_THAT(changes, ElementsAre("x begins 1300"));
}

TEST_F(AlarmWatchTest, StatesAreBounded) {
  Define("");
  std::vector<std::string> labels;
  Rows rows;
  for (std::size_t i = 0; i < AlarmWatch::kMostStates + 5; ++i) {
    labels.push_back(std::to_string(i));
  }
  for (const std::string& label : labels) {
    rows.emplace_back(label.c_str(), 95);
  }
  Batch(1000, rows);
  EXPECT_EQ(watch->Active(), AlarmWatch::kMostStates);
  EXPECT_EQ(watch->LeftOut(), 5U);
  watch->Begin(1060, std::chrono::seconds(60));
  std::size_t turns = 1;
  while (watch->End(change, [] { return true; })) {
    ++turns;
  }
  EXPECT_GE(turns, AlarmWatch::kMostStates);
  EXPECT_EQ(changes.size(), 2 * AlarmWatch::kMostStates);
}

}  // namespace
