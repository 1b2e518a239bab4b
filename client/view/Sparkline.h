#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Figures as little pictures of text, in the characters of the terminal's locale.

/// A figure over time, drawn in one line.
class Trend {
 public:
  /// A value that holds for the `seconds` before `time`. Times ascend; one that does not begins the
  /// trend anew.
  void Add(std::int64_t time, double value, double seconds);
  void Clear() { m_points.clear(); }

  /// The seconds up to `until`, `width` characters of `step` seconds each: the lowest one for the
  /// least and the highest for `greatest`, or for the greatest that is shown if that is none. A
  /// blank where nothing is known.
  [[nodiscard]] std::string Text(std::int64_t until, std::size_t width, std::int64_t step,
                                 std::optional<double> greatest, bool hasUtf8) const;

 private:
  struct Point {
    std::int64_t time;
    double value;
    double seconds;
  };

  [[nodiscard]] std::optional<double> Mean(std::int64_t since, std::int64_t until) const;

  std::vector<Point> m_points;
};

/// One character that is as high as the share, 0 to 1, says.
[[nodiscard]] std::string HeightText(double share, bool hasUtf8);

/// A bar of that width, brackets included, filled by the share.
[[nodiscard]] std::string BarText(double share, std::size_t width);
