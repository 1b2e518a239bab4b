#pragma once

#include "local/alarm/AlarmBook.h"
#include "local/control/ControlOperations.h"
#include "tests/json/JsonOf.h"
#include "tests/local/alarm/AlarmHarness.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

inline constexpr const char* kBookAlarms =
    "alarm = full\nrecord = FAKE\ncondition = Count > 90\ncapture = FAKE\n"
    "text = {Label} has {Count}\n"
    "alarm = bad\nrecord = FAKE\ncondition = Size > 1\n"
    "alarm = idle\nrecord = MORE\ncondition = Count > 1\n";

inline constexpr RecordLayout kMoreLayout{"MORE", "recordFake", '4', sizeof(recordFake),
                                          kFakeFields};

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
