// A file of alarms: what it defines is held against rows and written as rules.
#include <array>
#include <chrono>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "local/alarm/AlarmRules.h"
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
void Watch(const AlarmDefinition& definition) {
  AlarmWatch watch(definition);
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
      Watch(definition);
      good.push_back(&definition);
    }
  }
  static_cast<void>(AlarmRules(good, [](const std::string&) { return std::chrono::seconds(10); }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool isPublished = (PublishFakeRecords(), true);
  static_cast<void>(isPublished);
  const std::string_view text = Input(data, size).Rest();
  TakeDefinitions(text);
  if (const auto time = ParseAlarmTime(text)) {
    Require(ParseAlarmTime(AlarmTimeText(*time)) == time);
  }
  return 0;
}
