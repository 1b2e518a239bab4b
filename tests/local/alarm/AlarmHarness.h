#pragma once

#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "local/alarm/AlarmDefinition.h"
#include "tests/local/FakeAgent.h"

/// A row of FAKE with its key and its count.
inline std::vector<unsigned char> AlarmRow(const char* label, std::uint32_t count,
                                           std::int32_t time = 1700000000) {
  recordFake row{};
  row.recordType = "FAKE";
  row.recordTime = time;
  row.label = label;
  row.count = count;
  row.rate = static_cast<float>(count) / 2;
  std::vector<unsigned char> bytes(sizeof row);
  std::memcpy(bytes.data(), &row, sizeof row);
  return bytes;
}

/// The definition of a file that has one alarm and no fault.
inline AlarmDefinition DefinitionOf(const std::string& text) {
  PublishFakeRecords();
  const AlarmFileText file = ParseAlarmFile(text);
  std::vector<IniProblem> faults;
  return MakeAlarmDefinition(file.entries.at(0), faults);
}
