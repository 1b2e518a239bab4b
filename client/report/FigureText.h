#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/report/Summary.h"

/// The figure in words. `unit` is one of web/chart.js: "percent", "bytes", "bytes/s", "/s",
/// "duration" (seconds) or "number".
[[nodiscard]] std::string FigureText(double value, std::string_view unit);

/// A place of a table with the figure, or "-" for nothing.
[[nodiscard]] SummaryCell FigureCell(const std::optional<double>& value, std::string_view unit);
/// A place of a table with a time of the local clock.
[[nodiscard]] SummaryCell TimeCell(std::int64_t time);
