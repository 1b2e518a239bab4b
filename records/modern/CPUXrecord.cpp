#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using CpuRecord = recordPI_CPUX;

constexpr FigurePair<CpuRecord, CpuTimeFigures> kCpuPairs[] = {
    {&CpuRecord::userSeconds, &CpuTimeFigures::user},
    {&CpuRecord::niceSeconds, &CpuTimeFigures::nice},
    {&CpuRecord::systemSeconds, &CpuTimeFigures::system},
    {&CpuRecord::idleSeconds, &CpuTimeFigures::idle},
    {&CpuRecord::waitSeconds, &CpuTimeFigures::wait},
    {&CpuRecord::irqSeconds, &CpuTimeFigures::irq},
    {&CpuRecord::softIrqSeconds, &CpuTimeFigures::softIrq},
    {&CpuRecord::stealSeconds, &CpuTimeFigures::steal},
    {&CpuRecord::guestSeconds, &CpuTimeFigures::guest},
    {&CpuRecord::guestNiceSeconds, &CpuTimeFigures::guestNice},
    {&CpuRecord::frequencyMHz, &CpuTimeFigures::frequencyMHz},
    {&CpuRecord::lowestMHz, &CpuTimeFigures::lowestMHz},
    {&CpuRecord::highestMHz, &CpuTimeFigures::highestMHz},
    {&CpuRecord::coreThrottled, &CpuTimeFigures::coreThrottled},
    {&CpuRecord::packageThrottled, &CpuTimeFigures::packageThrottled},
    {&CpuRecord::temperature, &CpuTimeFigures::temperature}};

/// A part of all time, which the kernel counts in no other.
struct TimePart {
  Double CpuRecord::*seconds;
  Float CpuRecord::*percent;
};
constexpr std::array kTimeParts{
    TimePart{&CpuRecord::userSeconds, &CpuRecord::userPercent},
    TimePart{&CpuRecord::niceSeconds, &CpuRecord::nicePercent},
    TimePart{&CpuRecord::systemSeconds, &CpuRecord::systemPercent},
    TimePart{&CpuRecord::idleSeconds, &CpuRecord::idlePercent},
    TimePart{&CpuRecord::waitSeconds, &CpuRecord::waitPercent},
    TimePart{&CpuRecord::irqSeconds, &CpuRecord::irqPercent},
    TimePart{&CpuRecord::softIrqSeconds, &CpuRecord::softIrqPercent},
    TimePart{&CpuRecord::stealSeconds, &CpuRecord::stealPercent},
    TimePart{&CpuRecord::guestSeconds, &CpuRecord::guestPercent},
    TimePart{&CpuRecord::guestNiceSeconds, &CpuRecord::guestNicePercent}};

/// What a guest gets stands for itself: the kernel counts it a second time with the programs.
void FillCpu(CpuRecord& row, const CpuTimeFigures& figures) {
  constexpr std::string_view kPrefix = "cpu";
  const std::string_view name = figures.name;
  row.processor = name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
  PutFigures<CpuRecord, CpuTimeFigures>(row, figures, kCpuPairs);
  // A file that was read in the middle of a tick may have more of the part.
  row.userSeconds = std::max(row.userSeconds - OrZero(figures.guest), 0.0);
  row.niceSeconds = std::max(row.niceSeconds - OrZero(figures.guestNice), 0.0);
}

void DerivePercentages(CpuRecord& row, const CpuRecord& growth, double /*seconds*/) {
  double all = 0;
  for (const TimePart& part : kTimeParts) {
    all += OrZero(growth.*part.seconds);
  }
  for (const TimePart& part : kTimeParts) {
    row.*part.percent = static_cast<float>(100 * Quotient(growth.*part.seconds, all));
  }
  const double rest =
      OrZero(growth.idleSeconds) + OrZero(growth.waitSeconds) + OrZero(growth.stealSeconds);
  row.cpuPercent = static_cast<float>(100 * Quotient(all - rest, all));
}

/// All processors, of which the kernel takes the times of one that is idle from another place while
/// it is off line. The two drift apart, so that its sums jump as one goes or comes; these go on by
/// what each processor that was there before has counted.
class AllProcessors {
 public:
  /// `figures` has a row of all and one of each; returns that of all, put right.
  [[nodiscard]] CpuTimeFigures PutRight(const std::vector<CpuTimeFigures>& figures) {
    CpuTimeFigures all = figures.front();
    const bool hasJumped = !m_last.empty() && !GoesOn(figures);
    for (std::size_t place = 0; place < kIdleTimes.size(); ++place) {
      double CpuTimeFigures::*const time = kIdleTimes[place];
      if (hasJumped) {
        m_ahead[place] += GrowthOfEach(figures, time) - (all.*time - m_last[0].*time);
      }
      all.*time += m_ahead[place];
    }
    m_last = figures;
    return all;
  }

 private:
  static constexpr std::array kIdleTimes{&CpuTimeFigures::idle, &CpuTimeFigures::wait};

  /// Whether it is the same processors, of which none has begun anew.
  [[nodiscard]] bool GoesOn(const std::vector<CpuTimeFigures>& figures) const {
    return std::ranges::equal(figures, m_last,
                              [](const CpuTimeFigures& now, const CpuTimeFigures& before) {
                                return now.name == before.name && !(now.idle < before.idle);
                              });
  }
  [[nodiscard]] double GrowthOfEach(const std::vector<CpuTimeFigures>& figures,
                                    double CpuTimeFigures::*time) const {
    double growth = 0;
    // Both are in the kernel's order.
    auto next = m_last.begin();
    for (const CpuTimeFigures& processor : std::span(figures).subspan(1)) {
      const auto before =
          std::ranges::find(next, m_last.end(), processor.name, &CpuTimeFigures::name);
      if (before != m_last.end()) {
        growth += GrowthOfCounter(processor.*time, (*before).*time);
        next = before + 1;
      }
    }
    return growth;
  }

  std::vector<CpuTimeFigures> m_last;
  std::array<double, kIdleTimes.size()> m_ahead{};  ///< of the kernel's sums
};

/// What looks have shown of the times. A time steps back now and then: idle and wait as the kernel
/// has them, programs because the kernel cuts what they and their guests got to ticks one by one.
/// Who reads them as counters would take that for a start of the host.
class ShownTimes {
 public:
  /// Holds each time where it last stood if it is but a little less.
  void Hold(CpuRecord& row) {
    constexpr double kMostStepBack = 3;
    auto& shown = m_shown[std::string(row.processor.view())];
    for (std::size_t place = 0; place < kTimeParts.size(); ++place) {
      Double& now = row.*kTimeParts[place].seconds;
      if (now < shown[place] && shown[place] - now <= kMostStepBack) {
        now = shown[place];
      }
      shown[place] = now;
    }
  }

 private:
  std::unordered_map<std::string, std::array<double, kTimeParts.size()>> m_shown;
};

struct CpuState : GrowthState<CpuRecord> {
  AllProcessors all;
  ShownTimes shown;
};

}  // namespace

UtlError* RecordBuilder::Build_CPUX(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  auto& state = StateOf<CpuState>();
  const std::vector<CpuTimeFigures>& figures = m_pCollector->GetModern()->cpuTimes;
  CpuTimeFigures all;
  if (!figures.empty() && figures.front().name == "all") {
    all = state.all.PutRight(figures);
  }
  const auto fill = [&](CpuRecord& row, const CpuTimeFigures& processor) {
    FillCpu(row, processor.name == all.name ? all : processor);
    if (pEvent->IsRealtime() != 0) {
      state.shown.Hold(row);
    }
  };
  return BuildGrowthRows({"RecordBuilder::Build_CPUX", pEvent, pRequest, GetUpTimeSeconds(),
                          m_pCollector->TakenAt(COLLECT_CPU_TIME)},
                         static_cast<GrowthState<CpuRecord>&>(state), figures, fill,
                         DerivePercentages);
}
