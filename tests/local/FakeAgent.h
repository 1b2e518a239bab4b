#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "local/loop/EventLoop.h"
#include "node/LayoutRegistry.h"
#include "node/Node.h"
#include "node/ProductRecord.h"

/// An agent whose handlers are functions of the test.
class FakeAgent : public CMBAgent,
                  public CMBEventHandler<CMBMultipleRecordRequestEvent>,
                  public CMBEventHandler<CMBSocketEvent> {
 public:
  FakeAgent() : CMBAgent(".", "qmtagt.ini") {}
  using CMBAgent::NotifyEvent;
  int NotifyEvent(CMBRecordRequestEvent*) override { return kNotifyNotValid; }
  int NotifyEvent(CMBMultipleRecordRequestEvent* batch) override {
    return onBatch ? onBatch(*batch) : kNotifyDone;
  }
  int NotifyEvent(CMBNodeConfigRequest* root) override {
    return onConfig ? onConfig(*root) : kNotifyDone;
  }
  int NotifyEvent(CMBNodeConfigUpdate* update) override {
    return onUpdate ? onUpdate(*update) : kNotifyNotValid;
  }
  int NotifyEvent(CMBSocketEvent* event) override {
    onSocket(*event);
    return kNotifyDone;
  }
  /// Connects to the node that this program is linked with.
  int Connect() {
    std::string empty;
    std::string instance = "instance";
    return Init('U', instance.data(), empty.data(), empty.data(), empty.data(), empty.data(),
                empty.data(), 0, 0, kNodeAgent, kAgentCollector, empty.data(), empty.data());
  }

  std::function<int(CMBMultipleRecordRequestEvent&)> onBatch;
  std::function<int(CMBNodeConfigRequest&)> onConfig;
  std::function<int(CMBNodeConfigUpdate&)> onUpdate;
  std::function<void(int descriptor)> onSocket;
};

/// The record of these tests.
struct recordFake {
  Text<8> recordType;
  Packed<std::int32_t> recordTime;
  Text<8> label;
  Packed<std::uint32_t> count;
  Packed<float> rate;
  Packed<std::int32_t> cpuSeconds;
  Packed<std::int32_t> cpuMicroseconds;
};

inline constexpr std::array kFakeFields{
    FieldLayout{"Record Type", FieldType::kText, 0, 8, FieldMeaning::text},
    FieldLayout{"Record Time", FieldType::kLong, 8, 4, FieldMeaning::time},
    FieldLayout{"Label", FieldType::kText, 12, 8, FieldMeaning::key},
    FieldLayout{"Count", FieldType::kUlong, 20, 4, FieldMeaning::counter},
    FieldLayout{"Rate", FieldType::kFloat, 24, 4, FieldMeaning::rate, "", "Count"},
    FieldLayout{"CPU", FieldType::kUtime, 28, 8, FieldMeaning::duration, "", "", true}};
inline constexpr RecordLayout kFakeLayout{"FAKE", "recordFake", '4', sizeof(recordFake),
                                          kFakeFields};
inline constexpr RecordLayout kIdleLayout{"IDLE", "recordFake", '3', sizeof(recordFake),
                                          kFakeFields};

class FakeRecord : public CMBProductRecord<recordFake> {
 public:
  explicit FakeRecord(std::uint32_t count, std::int32_t time = 1700000000)
      : CMBProductRecord('4', nullptr, 0) {
    m_record.recordType = "FAKE";
    m_record.recordTime = time;
    m_record.label = "a\xff";
    m_record.count = count;
    m_record.rate = 0.1F;
    m_record.cpuSeconds = 12;
    m_record.cpuMicroseconds = 500000;
  }
  [[nodiscard]] const void* GetRecStart() const override { return &m_record; }
};

/// Answers each event of a batch with so many rows, counted from 0.
[[nodiscard]] inline auto RowsForEach(std::uint32_t rows) {
  return [rows](CMBMultipleRecordRequestEvent& batch) {
    for (CMBRecordRequestEvent* event : batch.m_events) {
      for (std::uint32_t count = 0; count < rows; ++count) {
        event->m_records.push_back(new FakeRecord(count));
      }
    }
    return kNotifyDone;
  };
}

/// Records as an answer has them.
template <class Record>
[[nodiscard]] std::vector<const CMBRecord*> PointersTo(const std::vector<Record>& records) {
  std::vector<const CMBRecord*> pointers;
  for (const Record& record : records) {
    pointers.push_back(&record);
  }
  return pointers;
}

/// Publishes FAKE (category 4, served), IDLE (3, not served) and BARE (4, served, no layout).
inline void PublishFakeRecords() {
  LayoutRegistry::Instance().Publish(kFakeLayout);
  LayoutRegistry::Instance().Publish(kIdleLayout);
  LayoutRegistry::Instance().PublishListing(
      {{"FAKE", '4', true}, {"IDLE", '3', false}, {"BARE", '4', true}});
}

/// Gives what waits in the loop one turn.
inline void RunATurn(EventLoop& loop, FakeAgent& agent) {
  loop.Post({[](CMBNode&) { EventLoop::RequestStop(); }, {}, false});
  loop.Run(agent);
}

/// An empty working directory, removed at the end.
class ScratchDirectory {
 public:
  ScratchDirectory() : m_former(std::filesystem::current_path()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qmtlocal.XXXXXX").string();
    m_path = ::mkdtemp(pattern.data());
    std::filesystem::current_path(m_path);
  }
  ~ScratchDirectory() {
    std::filesystem::current_path(m_former);
    std::filesystem::remove_all(m_path);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

 private:
  std::filesystem::path m_former;
  std::filesystem::path m_path;
};
