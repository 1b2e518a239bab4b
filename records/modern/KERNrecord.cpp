#include <span>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/FigurePairs.h"
#include "records/modern/GrowthRows.h"

namespace {

using KernelRecord = recordPI_KERN;

constexpr FigurePair<KernelRecord, KernelFigures> kKernelPairs[] = {
    {&KernelRecord::runnable, &KernelFigures::runnable},
    {&KernelRecord::blocked, &KernelFigures::blocked},
    {&KernelRecord::tasks, &KernelFigures::tasks},
    {&KernelRecord::bootTime, &KernelFigures::bootTime},
    {&KernelRecord::contextSwitches, &KernelFigures::contextSwitches},
    {&KernelRecord::interrupts, &KernelFigures::interrupts},
    {&KernelRecord::softInterrupts, &KernelFigures::softInterrupts},
    {&KernelRecord::forks, &KernelFigures::forks},
    {&KernelRecord::diskReadKbytes, &KernelFigures::readKbytes},
    {&KernelRecord::diskWrittenKbytes, &KernelFigures::writtenKbytes}};

void FillKernel(KernelRecord& row, const KernelFigures& figures) {
  PutFigures<KernelRecord, KernelFigures>(row, figures, kKernelPairs);
  row.load1 = static_cast<float>(figures.load1);
  row.load5 = static_cast<float>(figures.load5);
  row.load15 = static_cast<float>(figures.load15);
}

}  // namespace

UtlError* RecordBuilder::Build_KERN(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows({"RecordBuilder::Build_KERN", pEvent, pRequest, GetUpTimeSeconds(),
                          m_pCollector->TakenAt(COLLECT_KERNEL)},
                         StateOf<GrowthState<KernelRecord>>(),
                         std::span(&m_pCollector->GetModern()->kernel, 1), FillKernel,
                         DeriveNoMore{});
}
