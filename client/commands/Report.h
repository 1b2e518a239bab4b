#pragma once

#include <string>
#include <vector>

#include "client/commands/Commands.h"

struct ReportOptions {
  std::string since;  ///< times as typed; empty: a day before the end, and now
  std::string until;
  std::vector<std::string> records;  ///< as typed; none for all
  std::string format;                ///< "text", "markdown" or "html"; empty: by the file's name
  std::string output;                ///< a file; empty for the standard output
};

/// Shows or writes a summary of what the daemon has kept of a time.
[[nodiscard]] int RunReport(const CommonOptions& common, const ReportOptions& options);
