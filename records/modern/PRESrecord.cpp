#include <algorithm>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/modern/GrowthRows.h"

namespace {

using PressureRecord = recordPI_PRES;

void FillPressure(PressureRecord& row, const PressureFigures& figures) {
  row.resource = figures.resource;
  const PressureLine& some = figures.text.some;
  row.someAverage10 = static_cast<float>(some.average10);
  row.someAverage60 = static_cast<float>(some.average60);
  row.someAverage300 = static_cast<float>(some.average300);
  row.someStalledSeconds = some.stalledSeconds;
  const PressureLine& full = figures.text.full;
  row.fullAverage10 = static_cast<float>(full.average10);
  row.fullAverage60 = static_cast<float>(full.average60);
  row.fullAverage300 = static_cast<float>(full.average300);
  row.fullStalledSeconds = full.stalledSeconds;
}

/// The kernel's clock and the agent's may differ by a millisecond.
void CapPressure(PressureRecord& row, const PressureRecord& /*growth*/, double /*seconds*/) {
  for (Float PressureRecord::*field :
       {&PressureRecord::someStalledPercent, &PressureRecord::fullStalledPercent}) {
    row.*field = std::min<float>(row.*field, 100.0F);
  }
}

}  // namespace

UtlError* RecordBuilder::Build_PRES(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrowthRows({"RecordBuilder::Build_PRES", pEvent, pRequest, GetUpTimeSeconds(),
                          m_pCollector->TakenAt(COLLECT_PRESSURE)},
                         StateOf<GrowthState<PressureRecord>>(),
                         m_pCollector->GetModern()->pressure, FillPressure, CapPressure);
}
