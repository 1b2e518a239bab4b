#include "local/PushTargets.h"

#include <algorithm>
#include <utility>

#include "local/control/SampleQueries.h"
#include "local/control/ScheduleQueries.h"
#include "local/metrics/MetricsDesk.h"
#include "local/metrics/node/NodeText.h"

namespace {

/// Why a target can't be sent a record, as in "is unknown"; null if it can.
const char* WhyNotPushed(const std::string& record, const std::vector<std::string>* nodeRecords) {
  if (const char* reason = WhyNotSampled(record); reason != nullptr) {
    return reason;
  }
  return nodeRecords == nullptr || std::ranges::find(*nodeRecords, record) != nodeRecords->end()
             ? nullptr
             : "has no names of the node exporter";
}

/// What a target is sent, and what it asks for in vain.
struct ChosenRecords {
  std::vector<std::string> records;
  std::vector<std::string> reasons;  ///< "the record X ..."
};

ChosenRecords ChooseRecords(const PushSettings& push) {
  const std::vector<std::string> nodeRecords = NodeRecords();
  ChosenRecords chosen;
  for (const std::string& record :
       push.records.value_or(push.hasNodeNames ? nodeRecords : UsualRecords())) {
    const char* const reason = WhyNotPushed(record, push.hasNodeNames ? &nodeRecords : nullptr);
    if (reason == nullptr) {
      if (std::ranges::find(chosen.records, record) == chosen.records.end()) {
        chosen.records.push_back(record);
      }
    } else if (push.records) {
      chosen.reasons.push_back("the record " + record + ' ' + reason);
    }
  }
  return chosen;
}

/// Of a target without a record.
std::string NoRecordText(const std::vector<std::string>& reasons) {
  std::string text;
  for (const std::string& reason : reasons) {
    text += (text.empty() ? ": " : ", ") + reason;
  }
  return "there is no record to push" + text;
}

}  // namespace

PushTargets ReadPushTargets(const LocalIniFile& ini) {
  PushTargets read;
  for (PushSettings& push : ReadPushSettings(ini)) {
    const auto note = [&](std::size_t line, const std::string& text) {
      read.problems.push_back({line, "[" + push.section + "]: " + text});
    };
    if (const char* reason = push.hasNodeNames ? WhyNoNodeNames() : nullptr; reason != nullptr) {
      note(push.namesLine, std::string(reason) + kNotPushed);
      continue;
    }
    ChosenRecords chosen = ChooseRecords(push);
    if (chosen.records.empty()) {
      note(push.recordsLine, NoRecordText(chosen.reasons) + kNotPushed);
      continue;
    }
    for (const std::string& reason : chosen.reasons) {
      note(push.recordsLine, reason);
    }
    read.targets.push_back({std::move(push), std::move(chosen.records)});
  }
  return read;
}

std::vector<std::string> UsualRecords() {
  // Applications may be added at any time; the schedule waits for an operator to say so. People
  // have charts and alarms of the others, which the schedule under `modern` has no need of.
  std::vector<std::string> records{"APP", "DEVD", "NIND", "HOST", "SENS"};
  for (const ScheduleLine& line : DefaultSchedule()) {
    records.push_back(line.record);
  }
  std::erase_if(records,
                [](const std::string& record) { return WhyNotExposed(record) != nullptr; });
  return records;
}
