#include "client/view/Sparkline.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr std::array kHeights{"\u2581", "\u2582", "\u2583", "\u2584",
                              "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr std::array kPlainHeights{"_", ".", ":", "-", "=", "+", "*", "#"};
/// More than any screen shows.
constexpr std::size_t kMostPoints = 2000;

}  // namespace

std::string HeightText(double share, bool hasUtf8) {
  const auto count = static_cast<double>(kHeights.size());
  const auto place =
      static_cast<std::size_t>(std::clamp(std::floor(share * count), 0.0, count - 1));
  return hasUtf8 ? kHeights[place] : kPlainHeights[place];
}

std::string BarText(double share, std::size_t width) {
  if (width < 2) {
    return "";
  }
  const std::size_t inner = width - 2;
  const auto filled = static_cast<std::size_t>(
      std::clamp(std::round(share * static_cast<double>(inner)), 0.0, static_cast<double>(inner)));
  return '[' + std::string(filled, '|') + std::string(inner - filled, ' ') + ']';
}

void Trend::Add(std::int64_t time, double value, double seconds) {
  if (!m_points.empty() && time <= m_points.back().time) {
    if (time == m_points.back().time) {
      return;
    }
    m_points.clear();
  }
  if (m_points.size() == kMostPoints) {
    m_points.erase(m_points.begin(), m_points.begin() + kMostPoints / 2);
  }
  m_points.push_back({time, value, seconds});
}

std::optional<double> Trend::Mean(std::int64_t since, std::int64_t until) const {
  double sum = 0;
  double weight = 0;
  for (auto point = m_points.rbegin(); point != m_points.rend(); ++point) {
    const double begin = static_cast<double>(point->time) - point->seconds;
    const double overlap = std::min(static_cast<double>(until), static_cast<double>(point->time)) -
                           std::max(static_cast<double>(since), begin);
    if (overlap > 0) {
      sum += point->value * overlap;
      weight += overlap;
    }
  }
  return weight > 0 ? std::optional(sum / weight) : std::nullopt;
}

std::string Trend::Text(std::int64_t until, std::size_t width, std::int64_t step,
                        std::optional<double> greatest, bool hasUtf8) const {
  std::vector<std::optional<double>> means;
  // Steps stand at fixed times, so that a picture moves to the left and does not flicker.
  const std::int64_t end = (until + step - 1) / step * step;
  for (std::size_t i = 0; i < width; ++i) {
    const std::int64_t last = end - static_cast<std::int64_t>(width - 1 - i) * step;
    means.push_back(Mean(last - step, last));
  }
  double most = greatest.value_or(0);
  for (const std::optional<double>& mean : means) {
    most = greatest ? most : std::max(most, mean.value_or(0));
  }
  std::string text;
  for (const std::optional<double>& mean : means) {
    text += mean ? HeightText(most > 0 ? *mean / most : 0, hasUtf8) : " ";
  }
  return text;
}
