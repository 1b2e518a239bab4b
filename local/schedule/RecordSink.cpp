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

void RecordSinks::AbandonBatch() {
  for (RecordSink* sink : m_sinks) {
    sink->AbandonBatch();
  }
}

KeptRows KeptRows::Of(const ScheduledRows& rows) {
  KeptRows kept{rows.time, {}, rows.owner, rows.schedule, rows.lacksFigures};
  kept.rows.reserve(rows.rows.size());
  std::size_t bytes = 0;
  for (const CMBRecord* row : rows.rows) {
    kept.rows.emplace_back(static_cast<const unsigned char*>(row->GetRecStart()),
                           static_cast<std::size_t>(row->GetRecSize()));
    bytes += kept.rows.back().size();
  }
  if (kept.owner == nullptr) {
    const auto copy = std::make_shared<std::vector<unsigned char>>();
    copy->reserve(bytes);
    for (std::span<const unsigned char>& row : kept.rows) {
      copy->insert(copy->end(), row.begin(), row.end());
      row = std::span(*copy).last(row.size());
    }
    kept.owner = copy;
  }
  return kept;
}

void LastRows::Take(const ScheduledRows& rows) {
  m_kept[{rows.record, rows.category}] = std::make_shared<KeptRows>(KeptRows::Of(rows));
}

std::shared_ptr<const KeptRows> LastRows::Find(const std::string& record,
                                               unsigned char category) const {
  const auto place = m_kept.find({record, category});
  return place == m_kept.end() ? std::make_shared<KeptRows>() : place->second;
}
