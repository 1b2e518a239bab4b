// A file of alarms: what it defines is held against rows and written as rules. And a file of their
// states, which rows go on with.
#include <array>
#include <chrono>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "json/JsonText.h"
#include "local/alarm/AlarmRules.h"
#include "local/alarm/AlarmStates.h"
#include "local/alarm/AlarmWatch.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/local/FakeAgent.h"

namespace {

void RequireProblems(const std::vector<IniProblem>& problems) {
  for (const IniProblem& problem : problems) {
    Require(!problem.text.empty());
  }
}

/// Rows of some batches, of which those with large numbers come and go.
void Watch(AlarmWatch& watch) {
  std::int64_t last = 0;
  const auto change = [&last](AlarmWatch&, AlarmState& state) { state.id = ++last; };
  const auto isOver = [] { return false; };
  for (std::int32_t batch = 0; batch < 6; ++batch) {
    const std::int32_t time = 1700000000 + batch * 60;
    watch.Begin(time, std::chrono::seconds(60));
    const FakeRecord row(batch % 3 == 0 ? 4000000000U : static_cast<std::uint32_t>(batch), time);
    const auto* bytes = static_cast<const unsigned char*>(row.GetRecStart());
    watch.Row(std::span(bytes, sizeof(recordFake)), change);
    Require(!watch.End(change, isOver));
  }
  Require(!watch.EndAll(1700000400, change, isOver));
}

void TakeDefinitions(std::string_view text) {
  const AlarmFileText file = ParseAlarmFile(text);
  Require(file.entries.size() <= kMostAlarms);
  RequireProblems(file.faults);
  std::vector<AlarmDefinition> definitions;
  for (const AlarmEntry& entry : file.entries) {
    RequireProblems(entry.faults);
    std::vector<IniProblem> faults;
    definitions.push_back(MakeAlarmDefinition(entry, faults));
    Require(definitions.back().why.empty() || !faults.empty() || !entry.faults.empty());
    RequireProblems(faults);
  }
  std::vector<const AlarmDefinition*> good;
  for (const AlarmDefinition& definition : definitions) {
    if (definition.why.empty()) {
      AlarmWatch watch(definition);
      Watch(watch);
      good.push_back(&definition);
    }
  }
  static_cast<void>(AlarmRules(good, [](const std::string&) { return std::chrono::seconds(10); }));
}

/// Any bytes as the file that a restart finds. What is read is written so that it is read again.
void TakeStates(std::string_view text) {
  static const FuzzFolder folder;
  static EventLoop loop;
  static const AlarmFileText definitions = ParseAlarmFile(
      "alarm = full\nrecord = FAKE\ncondition = Count > 1\nuntil = Count < 1\nfor = 2m\n"
      "alarm = ahead\nrecord = FAKE\ncondition = Rate > 1\nkeep = 1m\npredict = 6h\nover = 1d\n");
  folder.Write("states", text);
  AlarmStates states(
      loop, folder.Path("states"), [](const std::string& line) { Require(!line.empty()); }, [] {});
  std::vector<std::unique_ptr<AlarmWatch>> watches;
  for (const AlarmEntry& entry : definitions.entries) {
    std::vector<IniProblem> faults;
    watches.push_back(std::make_unique<AlarmWatch>(MakeAlarmDefinition(entry, faults)));
    Require(faults.empty());
  }
  states.Load(watches);
  Require(states.TakeId() < INT64_MAX - 1);
  for (const auto& watch : watches) {
    AlarmWatch again(watch->Definition());
    again.FromJson(watch->ToJson());
    Require(again.ToJson() == watch->ToJson());
    Watch(*watch);
  }
}

}  // namespace

/// States begin with a brace, which no definition does.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isPublished = (PublishFakeRecords(), true);
  static_cast<void>(isPublished);
  const std::string_view text = Input(data, size).Rest();
  if (text.starts_with('{')) {
    TakeStates(text);
    return 0;
  }
  TakeDefinitions(text);
  if (const auto time = ParseAlarmTime(text)) {
    Require(ParseAlarmTime(AlarmTimeText(*time)) == time);
  }
  return 0;
}
