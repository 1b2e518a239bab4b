#include "client/show/Plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>

namespace {

constexpr std::size_t kLeastColumns = 10;
constexpr std::size_t kLeastLines = 4;
/// The line of the axis and that of the times.
constexpr std::size_t kAxisLines = 2;

/// What falls into one column.
struct Column {
  double least = 0;
  double greatest = 0;
  double sum = 0;
  std::size_t count = 0;

  void Add(double value) {
    least = count == 0 ? value : std::min(least, value);
    greatest = count == 0 ? value : std::max(greatest, value);
    sum += value;
    ++count;
  }
};

std::string NumberText(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.4g", value);
  return text.data();
}

std::string ClockText(std::int64_t seconds, bool withDay) {
  const std::time_t time = seconds;
  std::tm parts{};
  if (::localtime_r(&time, &parts) == nullptr) {
    return std::to_string(seconds);
  }
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), withDay ? "%m-%d %H:%M" : "%H:%M:%S", &parts);
  return text.data();
}

/// Least and greatest of something, never the same.
struct Range {
  double least;
  double greatest;

  [[nodiscard]] double Share(double value) const { return (value - least) / (greatest - least); }
};

Range ValueRange(const std::vector<PlotPoint>& points) {
  const auto [least, greatest] = std::ranges::minmax(points, {}, &PlotPoint::value);
  const double low = least.value;
  const double high = greatest.value;
  if (low == high) {
    const double half = low == 0 ? 1 : std::abs(low) / 2;
    return {low - half, high + half};
  }
  return {low, high};
}

/// The place of a share from 0 to 1 among `count` places.
std::size_t PlaceOf(double share, std::size_t count) {
  const double place = share * static_cast<double>(count - 1) + 0.5;
  return std::min(static_cast<std::size_t>(std::max(place, 0.0)), count - 1);
}

std::string TimeLine(std::int64_t first, std::int64_t last, std::size_t margin, std::size_t width) {
  const bool withDay = last - first >= 86400;
  std::string line(margin, ' ');
  const std::string left = ClockText(first, withDay);
  const std::string right = ClockText(last, withDay);
  line += left;
  if (last != first && left.size() + 1 + right.size() <= width) {
    line += std::string(width - left.size() - right.size(), ' ') + right;
  }
  return line + '\n';
}

}  // namespace

std::string PlotText(const std::vector<PlotPoint>& all, std::size_t width, std::size_t height) {
  std::vector<PlotPoint> points;
  std::ranges::copy_if(all, std::back_inserter(points),
                       [](const PlotPoint& point) { return std::isfinite(point.value); });
  if (points.empty()) {
    return "";
  }
  const Range values = ValueRange(points);
  const auto [firstPoint, lastPoint] = std::ranges::minmax(points, {}, &PlotPoint::time);
  const std::int64_t first = firstPoint.time;
  const std::int64_t last = lastPoint.time;
  const std::size_t lines = std::max(height, kLeastLines + kAxisLines) - kAxisLines;
  const auto lineValue = [&](std::size_t line) {
    return values.greatest - (values.greatest - values.least) * static_cast<double>(line) /
                                 static_cast<double>(lines - 1);
  };
  std::vector<std::string> labels;
  std::size_t margin = 0;
  for (std::size_t line = 0; line < lines; ++line) {
    labels.push_back(line % 4 == 0 || line == lines - 1 ? NumberText(lineValue(line)) : "");
    margin = std::max(margin, labels.back().size());
  }
  const std::size_t frame = margin + 2;
  const std::size_t columns = width > frame + kLeastColumns ? width - frame : kLeastColumns;

  std::vector<Column> marks(columns);
  for (const PlotPoint& point : points) {
    const double share = last == first
                             ? 0
                             : (static_cast<double>(point.time) - static_cast<double>(first)) /
                                   (static_cast<double>(last) - static_cast<double>(first));
    marks[PlaceOf(share, columns)].Add(point.value);
  }
  std::vector<std::string> grid(lines, std::string(columns, ' '));
  const auto lineOf = [&](double value) { return lines - 1 - PlaceOf(values.Share(value), lines); };
  for (std::size_t column = 0; column < columns; ++column) {
    const Column& mark = marks[column];
    if (mark.count == 0) {
      continue;
    }
    for (std::size_t line = lineOf(mark.greatest); line <= lineOf(mark.least); ++line) {
      grid[line][column] = ':';
    }
    grid[lineOf(mark.sum / static_cast<double>(mark.count))][column] = '*';
  }
  std::string text;
  for (std::size_t line = 0; line < lines; ++line) {
    grid[line].erase(grid[line].find_last_not_of(' ') + 1);
    text += std::string(margin - labels[line].size(), ' ') + labels[line] +
            (labels[line].empty() ? " |" : " +") + grid[line] + '\n';
  }
  text += std::string(margin + 1, ' ') + '+' + std::string(columns, '-') + '\n';
  return text + TimeLine(first, last, frame, columns);
}
