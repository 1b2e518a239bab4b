#pragma once

#include "collect/process/ProcessSourceLINUX.h"
#include "tests/support/Testing.h"

/// All processes that the source reads without an error, by number.
template <class Source>
[[nodiscard]] std::vector<Process> ReadProcesses() {
  std::vector<Process> rows;
  Source source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  EXPECT_EQ(error, nullptr);
  std::sort(rows.begin(), rows.end(),
            [](const Process& a, const Process& b) { return a.GetPid() < b.GetPid(); });
  return rows;
}

/// The texts of all rows.
[[nodiscard]] inline std::string DumpEach(const std::vector<Process>& rows,
                                          std::string (*dump)(const Process& row)) {
  std::string text;
  for (const Process& row : rows) {
    text += dump(row);
  }
  return text;
}
