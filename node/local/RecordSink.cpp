#include "node/local/RecordSink.h"

void RecordSinks::Take(const ScheduledRows& rows) {
  for (RecordSink* sink : m_sinks) {
    sink->Take(rows);
  }
}

void RecordSinks::EndBatch() {
  for (RecordSink* sink : m_sinks) {
    sink->EndBatch();
  }
}

void LastRows::Take(const ScheduledRows& rows) {
  KeptRows& kept = m_kept[{rows.record, rows.category}];
  kept.time = rows.time;
  kept.rows.clear();
  kept.rows.reserve(rows.rows.size());
  for (const CMBRecord* row : rows.rows) {
    const auto* start = static_cast<const unsigned char*>(row->GetRecStart());
    kept.rows.emplace_back(start, start + row->GetRecSize());
  }
}

const KeptRows* LastRows::Find(const std::string& record, unsigned char category) const {
  const auto place = m_kept.find({record, category});
  return place == m_kept.end() ? nullptr : &place->second;
}
