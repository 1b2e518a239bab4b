#include <algorithm>
#include <array>
#include <cmath>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/ModernDevices.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using DiskRecord = recordPI_DISK;

constexpr FigurePair<DiskRecord, DiskFigures> kDiskPairs[] = {
    {&DiskRecord::sizeBytes, &DiskFigures::sizeBytes},
    {&DiskRecord::reads, &DiskFigures::reads},
    {&DiskRecord::readsMerged, &DiskFigures::readsMerged},
    {&DiskRecord::readBytes, &DiskFigures::readBytes},
    {&DiskRecord::readSeconds, &DiskFigures::readSeconds},
    {&DiskRecord::writes, &DiskFigures::writes},
    {&DiskRecord::writesMerged, &DiskFigures::writesMerged},
    {&DiskRecord::writeBytes, &DiskFigures::writeBytes},
    {&DiskRecord::writeSeconds, &DiskFigures::writeSeconds},
    {&DiskRecord::discards, &DiskFigures::discards},
    {&DiskRecord::discardsMerged, &DiskFigures::discardsMerged},
    {&DiskRecord::discardBytes, &DiskFigures::discardBytes},
    {&DiskRecord::discardSeconds, &DiskFigures::discardSeconds},
    {&DiskRecord::flushes, &DiskFigures::flushes},
    {&DiskRecord::flushSeconds, &DiskFigures::flushSeconds},
    {&DiskRecord::inFlight, &DiskFigures::inFlight},
    {&DiskRecord::inUseSeconds, &DiskFigures::inUseSeconds},
    {&DiskRecord::weightedSeconds, &DiskFigures::weightedSeconds},
    {&DiskRecord::errors, &DiskFigures::errors}};

constexpr std::array kDiskTimes{&DiskRecord::readSeconds,    &DiskRecord::writeSeconds,
                                &DiskRecord::discardSeconds, &DiskRecord::flushSeconds,
                                &DiskRecord::inUseSeconds,   &DiskRecord::weightedSeconds};

void FillDisk(DiskRecord& row, const DiskFigures& disk) {
  row.device = disk.name;
  row.name = disk.label;
  row.model = disk.model;
  row.serialNumber = disk.serial;
  row.kind = disk.kind;
  row.scheduler = disk.scheduler;
  PutFigures<DiskRecord, DiskFigures>(row, disk, kDiskPairs);
}

void DeriveQueue(DiskRecord& row, const DiskRecord& growth, double seconds) {
  row.queueLength = static_cast<float>(Quotient(growth.weightedSeconds, seconds));
  // The kernel's clock and the agent's may differ by a millisecond.
  row.inUsePercent = std::min<float>(row.inUsePercent, 100.0F);
}

}  // namespace

/// A time that fell has wrapped, unless the disk has started again.
template <>
struct CounterRule<DiskRecord> {
  static double Growth(const DiskRecord& now, const DiskRecord& before,
                       Double DiskRecord::*counter) {
    const double current = now.*counter;
    const double previous = before.*counter;
    const bool isTime =
        std::find(kDiskTimes.begin(), kDiskTimes.end(), counter) != kDiskTimes.end();
    const bool hasRestarted = Fell(now.reads, before.reads) || Fell(now.writes, before.writes);
    if (!isTime || hasRestarted || !Fell(current, previous)) {
      return GrowthOfCounter(current, previous);
    }
    const auto milliseconds = [](double seconds) {
      return static_cast<std::uint64_t>(std::llround(1000 * seconds));
    };
    return static_cast<double>(MillisecondsGrown(milliseconds(current), milliseconds(previous))) /
           1000;
  }

 private:
  static bool Fell(double current, double previous) { return current < previous; }
};

UtlError* RecordBuilder::Build_DISK(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows<DiskRecord, NewInstance::kAll>(
      {"RecordBuilder::Build_DISK", pEvent, pRequest, GetUpTimeSeconds(),
       m_pCollector->TakenAt(COLLECT_DISK)},
      StateOf<GrowthState<DiskRecord>>(), m_pCollector->GetModern()->disks, FillDisk, DeriveQueue);
}
