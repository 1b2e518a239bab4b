#include "local/schedule/RecordSink.h"

void RecordSinks::Take(const ScheduledRows& rows) {
  for (RecordSink* sink : m_sinks) {
    sink->Take(rows);
  }
}

void RecordSinks::TakeTotals(const ScheduledRows& rows) {
  for (RecordSink* sink : m_sinks) {
    sink->TakeTotals(rows);
  }
}

void RecordSinks::EndBatch() {
  for (RecordSink* sink : m_sinks) {
    sink->EndBatch();
  }
}

void LastRows::Take(const ScheduledRows& rows) {
  const auto kept = std::make_shared<KeptRows>();
  kept->time = rows.time;
  kept->rows.reserve(rows.rows.size());
  for (const CMBRecord* row : rows.rows) {
    const auto* start = static_cast<const unsigned char*>(row->GetRecStart());
    kept->rows.emplace_back(start, start + row->GetRecSize());
  }
  m_kept[{rows.record, rows.category}] = kept;
}

std::shared_ptr<const KeptRows> LastRows::Find(const std::string& record,
                                               unsigned char category) const {
  const auto place = m_kept.find({record, category});
  return place == m_kept.end() ? std::make_shared<KeptRows>() : place->second;
}
