#include "gate/push/PushBatch.h"

#include <algorithm>
#include <utility>

PushBatch::PushBatch(std::string text) : m_text(std::move(text)) {
  SampleLines lines = ReadSampleLines(m_text);
  m_samples = std::move(lines.samples);
  m_broken = lines.broken;
  if (!std::ranges::is_sorted(m_samples, {}, &PlacedSample::time)) {
    std::ranges::stable_sort(m_samples, {}, &PlacedSample::time);
  }
  if (!m_samples.empty()) {
    m_parts.push_back({0, m_samples.size()});
  }
}

std::span<const PlacedSample> PushBatch::Next() const {
  return m_parts.empty() ? std::span<const PlacedSample>{}
                         : std::span(m_samples).subspan(m_parts.back().begin,
                                                        m_parts.back().end - m_parts.back().begin);
}

void PushBatch::Drop() {
  m_isUntouched = false;
  m_parts.pop_back();
}

void PushBatch::PartAt(std::size_t middle) {
  m_isUntouched = false;
  const Part part = m_parts.back();
  m_parts.back() = {middle, part.end};
  m_parts.push_back({part.begin, middle});
}

bool PushBatch::HalveByTime() {
  const Part part = m_parts.back();
  const auto begin = m_samples.begin() + static_cast<std::ptrdiff_t>(part.begin);
  const auto end = m_samples.begin() + static_cast<std::ptrdiff_t>(part.end);
  const std::int64_t time = (begin + (end - begin) / 2)->time;
  auto middle = std::ranges::lower_bound(begin, end, time, {}, &PlacedSample::time);
  if (middle == begin) {
    middle = std::ranges::upper_bound(begin, end, time, {}, &PlacedSample::time);
  }
  if (middle == end) {
    return false;
  }
  PartAt(static_cast<std::size_t>(middle - m_samples.begin()));
  return true;
}

bool PushBatch::Halve() {
  const Part part = m_parts.back();
  if (part.end - part.begin < 2) {
    return false;
  }
  PartAt(part.begin + (part.end - part.begin) / 2);
  return true;
}
