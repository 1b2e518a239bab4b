#pragma once

#include <cmath>
#include <limits>

/// A figure that the host does not tell. It survives sums and differences, is null to a client and
/// has no metric.
inline constexpr double kNotTold = std::numeric_limits<double>::quiet_NaN();

[[nodiscard]] inline bool IsTold(double figure) { return !std::isnan(figure); }

/// The figure, or 0 where it is not told.
[[nodiscard]] inline double OrZero(double figure) { return IsTold(figure) ? figure : 0.0; }
