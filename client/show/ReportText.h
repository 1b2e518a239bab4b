#pragma once

#include <string>

#include "client/ask/Answers.h"
#include "client/show/Terminal.h"

/// A report as a table, with its notes below.
[[nodiscard]] std::string ReportText(const ReportTable& report, const Screen& screen);
