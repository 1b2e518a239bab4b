#include "collect/Collector.h"
#include "collect/modern/ModernFigures.h"
#include "records/DetailRows.h"
#include "records/modern/FigurePairs.h"
#include "support/TraceLog.h"

namespace {

using SensorRecord = recordPD_SENS;

constexpr FigurePair<SensorRecord, SensorFigures> kSensorPairs[] = {
    {&SensorRecord::value, &SensorFigures::value},
    {&SensorRecord::high, &SensorFigures::high},
    {&SensorRecord::critical, &SensorFigures::critical},
    {&SensorRecord::alarm, &SensorFigures::alarm}};

SensorRecord SensorRow(const SensorFigures& figures, std::int32_t now) {
  SensorRecord row = NewRow<SensorRecord>(now);
  row.chip = figures.chip;
  row.sensor = figures.sensor;
  row.label = figures.label;
  row.kind = figures.kind;
  row.unit = figures.unit;
  PutFigures<SensorRecord, SensorFigures>(row, figures, kSensorPairs);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_SENS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_SENS", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<SensorRecord>(m_pCollector->GetModern()->sensors, *pEvent, SensorRow);
  TraceExit("RecordBuilder::BuildPD_SENS", 0);
  return nullptr;
}
