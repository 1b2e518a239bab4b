#include "local/alarm/AlarmSeries.h"

#include <algorithm>

void AlarmSeries::Add(std::time_t time, double value) {
  if (time <= m_last.time) {
    return;
  }
  m_last = {time, value};
  while (!m_samples.empty() && m_samples.front().time < time - m_over.count()) {
    m_samples.pop_front();
  }
  // A little less than the even step, lest a row a second early is left out each time.
  const std::time_t step = m_over.count() / kMostSamples;
  if (m_samples.empty() || (time - m_samples.back().time) * 10 >= step * 9) {
    m_samples.push_back(m_last);
  }
  if (m_samples.size() > static_cast<std::size_t>(kMostSamples) * 2) {
    m_samples.pop_front();
  }
}

void AlarmSeries::MoveBack(std::time_t time) {
  const std::time_t by = m_last.time - time;
  if (by <= 0) {
    return;
  }
  for (Sample& sample : m_samples) {
    sample.time -= by;
  }
  m_last.time = time;
}

std::optional<double> AlarmSeries::Ahead(std::time_t now, std::chrono::seconds ahead) const {
  double count = 0;
  double times = 0;
  double values = 0;
  double squares = 0;
  double products = 0;
  std::time_t first = now;
  const auto add = [&](const Sample& sample) {
    // Small numbers, which lose no digits.
    const auto time = static_cast<double>(sample.time - now);
    ++count;
    times += time;
    values += sample.value;
    squares += time * time;
    products += time * sample.value;
    first = std::min(first, sample.time);
  };
  for (const Sample& sample : m_samples) {
    if (sample.time >= now - m_over.count()) {
      add(sample);
    }
  }
  if (!m_samples.empty() && m_samples.back().time != m_last.time) {
    add(m_last);
  }
  const double spread = count * squares - times * times;
  if (count < kLeastSamples || (now - first) * kLeastPart < m_over.count() || spread <= 0) {
    return std::nullopt;
  }
  const double slope = (count * products - times * values) / spread;
  return (values - slope * times) / count + slope * static_cast<double>(ahead.count());
}
