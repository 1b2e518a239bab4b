#include "client/report/Uses.h"

#include <algorithm>
#include <cmath>

namespace {

void AddTo(std::optional<double>& sum, const std::optional<double>& part) {
  if (part) {
    sum = sum.value_or(0) + *part;
  }
}

}  // namespace

std::optional<double> FigureOf(const UseTotal& total, UseMeasure measure) {
  return measure == UseMeasure::kCpu      ? total.cpuSeconds
         : measure == UseMeasure::kMemory ? total.mostMemory
                                          : total.ioBytes;
}

void UseBatches::Judge(Use& use) {
  if (use.time != m_batch) {
    m_before = m_batch;
    m_batch = use.time;
  }
  const double between = static_cast<double>(m_batch - m_before);
  const double seconds = use.seconds.value_or(0);
  if (m_before == 0 || std::abs(between - seconds) > std::max(1.0, seconds / 10)) {
    use.cpuSeconds.reset();
    use.ioBytes.reset();
  }
}

void UseSums::Add(const Use& use) {
  const std::string key = use.name + '\0' + use.more;
  auto found = m_sums.find(key);
  if (found == m_sums.end()) {
    if (m_sums.size() >= m_mostNames) {
      ++m_omitted;
      return;
    }
    found = m_sums.emplace(key, Sum{}).first;
    found->second.total.name = use.name;
    found->second.total.more = use.more;
  }
  Sum& sum = found->second;
  if (sum.time != use.time) {
    sum.time = use.time;
    sum.atOnce = 0;
    sum.memory.reset();
  }
  ++sum.atOnce;
  AddTo(sum.memory, use.memoryBytes);
  AddTo(sum.total.cpuSeconds, use.cpuSeconds);
  AddTo(sum.total.ioBytes, use.ioBytes);
  sum.total.mostAtOnce = std::max(sum.total.mostAtOnce, sum.atOnce);
  if (sum.memory && (!sum.total.mostMemory || *sum.memory > *sum.total.mostMemory)) {
    sum.total.mostMemory = sum.memory;
    sum.total.mostMemoryTime = use.time;
  }
}

std::vector<UseTotal> UseSums::Top(UseMeasure measure, std::size_t count) const {
  std::vector<UseTotal> totals;
  for (const auto& [key, sum] : m_sums) {
    if (FigureOf(sum.total, measure).value_or(0) > 0) {
      totals.push_back(sum.total);
    }
  }
  // Names settle what is alike, so that the same rows give the same report.
  std::ranges::sort(totals, [measure](const UseTotal& left, const UseTotal& right) {
    const double first = *FigureOf(left, measure);
    const double second = *FigureOf(right, measure);
    return first != second ? first > second : left.name + left.more < right.name + right.more;
  });
  totals.resize(std::min(totals.size(), count));
  return totals;
}
