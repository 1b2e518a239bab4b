#include "local/alarm/AgentRow.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "node/FigureRegistry.h"
#include "node/Packed.h"

namespace {

struct recordAgent {
  Text<8> recordType;
  Packed<std::int32_t> recordTime;
  Packed<double> lostBatches;
  Packed<double> skippedTimes;
  Packed<double> failedRecords;
  Packed<double> collectErrors;
  Packed<double> failedCommands;
  Packed<double> batchSeconds;
};

constexpr FieldLayout AgentField(const char* label, std::size_t offset, FieldMeaning meaning,
                                 const char* help) {
  return {label,
          FieldType::kDouble,
          static_cast<std::uint16_t>(offset),
          sizeof(double),
          meaning,
          "",
          "",
          false,
          help};
}

constexpr std::array kAgentFields{
    FieldLayout{"Record Type", FieldType::kText, offsetof(recordAgent, recordType), 8,
                FieldMeaning::text},
    FieldLayout{"Record Time", FieldType::kLong, offsetof(recordAgent, recordTime), 4,
                FieldMeaning::time},
    AgentField("History Lost Batches", offsetof(recordAgent, lostBatches), FieldMeaning::counter,
               "Batches that could not be kept since the last row."),
    AgentField("Skipped Times", offsetof(recordAgent, skippedTimes), FieldMeaning::counter,
               "Times of schedules that passed unused since the last row."),
    AgentField("Failed Records", offsetof(recordAgent, failedRecords), FieldMeaning::gauge,
               "Records of the last batch that were not built."),
    AgentField("Collect Errors", offsetof(recordAgent, collectErrors), FieldMeaning::counter,
               "Categories whose collection failed since the last row."),
    AgentField("Failed Commands", offsetof(recordAgent, failedCommands), FieldMeaning::counter,
               "Commands of alarms that failed, or could not be started, since the last row."),
    AgentField("Batch Seconds", offsetof(recordAgent, batchSeconds), FieldMeaning::gauge,
               "How long the last batch took.")};

constexpr RecordLayout kAgentRecordLayout{
    kAgentRecord, "recordAgent",
    '4',          sizeof(recordAgent),
    kAgentFields, "What the agent itself lost between two batches of its schedules."};

double CollectErrors() {
  double sum = 0;
  for (const Figure& figure : FigureRegistry::Instance().Figures()) {
    if (figure.group.name == "collect_errors" && figure.read) {
      const double value = figure.read();
      sum += std::isfinite(value) ? value : 0;
    }
  }
  return sum;
}

}  // namespace

const RecordLayout& AgentLayout() { return kAgentRecordLayout; }

double AgentRow::Growth(const char* name, double count) {
  const auto [place, isNew] = m_last.try_emplace(name, count);
  const double growth = count - place->second;
  place->second = count;
  return std::max(growth, 0.0);
}

std::vector<unsigned char> AgentRow::Make(std::time_t now, std::uint64_t failedCommands) {
  const bool isFirst = m_last.empty();
  double skipped = 0;
  for (const auto& entry : m_schedule.Entries()) {
    skipped += static_cast<double>(entry->skipped);
  }
  recordAgent row{};
  row.recordType = kAgentRecord;
  row.recordTime = static_cast<std::int32_t>(now);
  row.lostBatches = Growth("lost", static_cast<double>(m_history.LostBatches()));
  row.skippedTimes = Growth("skipped", skipped);
  row.collectErrors = Growth("errors", CollectErrors());
  row.failedCommands = Growth("commands", static_cast<double>(failedCommands));
  if (const auto& last = m_desk.LastOfSchedule()) {
    row.failedRecords = static_cast<double>(last->errors);
    row.batchSeconds = std::chrono::duration<double>(last->duration).count();
  }
  if (isFirst) {
    return {};
  }
  std::vector<unsigned char> bytes(sizeof row);
  std::memcpy(bytes.data(), &row, sizeof row);
  return bytes;
}
