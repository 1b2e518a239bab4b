#pragma once

#include "collect/cpu/CPUSourceLINUX.h"
#include "tests/collect/CollectFixture.h"

/// One line a row: id, on-line word, times in seconds, interrupts, switches and traps, type.
[[nodiscard]] inline std::string DumpCpus(const std::vector<CPU>& rows) {
  std::ostringstream out;
  const auto put = [&out](const tagUTIME& time) {
    out << ' ' << time.seconds << '+' << time.microseconds;
  };
  for (const CPU& row : rows) {
    out << row.size << ' ' << row.GetCpuId() << ' ' << row.GetOnline();
    put(row.GetUserTime());
    put(row.GetSystemTime());
    put(row.GetIdleTime());
    put(row.GetWaitTime());
    out << ' ' << row.GetInterrupts() << ' ' << row.GetContextSwitches() + row.GetTraps() << " ["
        << row.GetType() << "]\n";
  }
  return out.str();
}
