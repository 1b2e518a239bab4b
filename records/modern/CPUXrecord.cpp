#include <algorithm>
#include <array>
#include <string_view>

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

}  // namespace

UtlError* RecordBuilder::Build_CPUX(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows({"RecordBuilder::Build_CPUX", pEvent, pRequest, GetUpTimeSeconds()},
                         StateOf<GrowthState<CpuRecord>>(), m_pCollector->GetModern()->cpuTimes,
                         FillCpu, DerivePercentages);
}
