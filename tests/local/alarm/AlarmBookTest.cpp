#include "tests/local/alarm/AlarmBookFixture.h"

namespace {

TEST_F(AlarmBookTest, AnAlarmIsToldKeptWithItsRowsAndAnswered) {
  Start();
  EXPECT_THAT(told, ElementsAre("alarms:8: FAKE has no label \"Size\""));
  EXPECT_THAT(off, ElementsAre("bad: line 8: FAKE has no label \"Size\"",
                               "idle: no schedule collects the record MORE"));
  const auto follower = std::make_shared<FakePeer>(Rights::kRead);
  life->operations.Handle(R"({"op":"alarm_follow"})", follower);
  Batch(5);
  Batch(95, 3);
  // The figures of a batch could not be taken, so that it has no rows.
  life->sinks.Take({"FAKE", '4', now += 60, {}, {}, 0, true});
  life->sinks.EndBatch();
  Turns();
  EXPECT_EQ(changes.size(), 1U);
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
  Turns();
  EXPECT_THAT(off.back(), HasSubstr("full: no schedule collects"));
  EXPECT_THAT(changes.back(), HasSubstr("ended"));
}

TEST_F(AlarmBookTest, TheFirstLookOfAScheduleThatIsMadeAnewEndsNothing) {
  Start();
  std::uint32_t rows = 1;
  life->agent.onBatch = [&](CMBMultipleRecordRequestEvent& batch) {
    for (std::uint32_t i = 0; i < rows; ++i) {
      batch.m_events.at(0)->m_records.push_back(new FakeRecord(95));
    }
    return kNotifyDone;
  };
  for (; rows < 2; --rows) {
    ASSERT_TRUE(life->schedule.Remove("FAKE"));
    life->schedule.Set("FAKE", 60);
    Turns();
  }
  EXPECT_THAT(changes, ElementsAre("a\uFFFD has 95 active"));
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
