#include "local/alarm/AlarmLosses.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

void AlarmLossLog::Note(const AlarmLosses& losses, std::chrono::steady_clock::time_point now) {
  if (losses == m_told || (m_last && now - *m_last < kPause)) {
    return;
  }
  const std::array<std::pair<std::uint64_t, const char*>, 4> counts{
      {{losses.batches - m_told.batches, " batches were not looked at"},
       {losses.leftOut - m_told.leftOut, " rows were left out, as too many keys are followed"},
       {losses.unkept - m_told.unkept, " alarms and captured rows are not in the history"},
       {losses.captures - m_told.captures, " records were not captured"}}};
  std::string text;
  for (const auto& [count, what] : counts) {
    if (count != 0) {
      text += (text.empty() ? "Alarms: " : "; ") + std::to_string(count) + what;
    }
  }
  m_report(text);
  m_told = losses;
  m_last = now;
}
