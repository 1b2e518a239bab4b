#include "local/schedule/RecordAsker.h"

#include <utility>

#include "support/OsCalls.h"
#include "support/WholeTime.h"

namespace {

void FreeRows(std::list<CMBRecord*>& rows) {
  for (const CMBRecord* row : rows) {
    delete row;
  }
  rows.clear();
}

std::shared_ptr<const void> OwnerOf(const std::list<CMBRecord*>& rows) {
  const auto owner = std::make_shared<std::vector<std::unique_ptr<const CMBRecord>>>();
  owner->reserve(rows.size());
  for (const CMBRecord* row : rows) {
    owner->emplace_back(row);
  }
  return owner;
}

}  // namespace

RecordAsker::RecordAsker(std::string record, unsigned char category, Look look, bool calcRates)
    : m_isOnDemand(look == Look::kOnDemand),
      m_identity{look == Look::kOnDemand ? 1 : 0, calcRates ? 1 : 0, &m_rows},
      m_request(std::move(record), category),
      m_event(&m_identity) {
  m_event.m_requests.push_back(&m_request);
}

RecordAsker::~RecordAsker() {
  FreeRows(m_event.m_records);
  m_rows.clear();
  CountRows();
}

void RecordAsker::CountRows() {
  const std::size_t before = m_bytes;
  m_bytes = 0;
  for (const CMBRecord* row : m_rows) {
    m_bytes += static_cast<std::size_t>(row->GetRecSize());
  }
  if (m_isOnDemand) {
    s_heldBytes += m_bytes - before;
  }
}

void RecordAsker::TakeAnswer() {
  m_event.m_records.remove(nullptr);
  m_owner = OwnerOf(m_event.m_records);
  m_rows = std::exchange(m_event.m_records, {});
  CountRows();
  const std::time_t now = Os().time(nullptr);
  const std::time_t told = m_rows.empty() ? 0 : m_rows.front()->GetRecTime();
  m_answerTime = told == 0 ? now : WholeTime(static_cast<std::int32_t>(told), now);
}

void RecordAsker::DropAnswer() { FreeRows(m_event.m_records); }
