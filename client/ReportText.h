#pragma once

#include <string>

#include "client/Answers.h"
#include "client/Commands.h"

struct ExplainOptions {
  std::string name;  ///< of a workgroup, empty for all
  std::string pid;   ///< of a process, empty for all
  bool json = false;
};

/// A report as a table, with its notes below.
[[nodiscard]] std::string ReportText(const ReportTable& report, const Screen& screen);

/// Shows the daemon's report of its workgroups; the exit value.
[[nodiscard]] int RunExplain(const CommonOptions& common, const ExplainOptions& options);
