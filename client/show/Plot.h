#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// One figure at one time, in seconds since the epoch.
struct PlotPoint {
  std::int64_t time = 0;
  double value = 0;
};

/// The points over time in plain characters, with a scale at the left and times below, `width`
/// columns wide and `height` lines high, axes included. Where several points fall into one column,
/// "*" marks their mean and ":" the span from the least to the greatest. Points need not be in
/// order. Ends in a newline; empty for no points.
[[nodiscard]] std::string PlotText(const std::vector<PlotPoint>& points, std::size_t width,
                                   std::size_t height);
