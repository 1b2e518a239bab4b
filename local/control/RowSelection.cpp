#include "local/control/RowSelection.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "local/history/RecordJson.h"

namespace {

std::size_t KeyBytes(const std::vector<Json>& keys) {
  std::size_t bytes = keys.size() * sizeof(Json);
  for (const Json& key : keys) {
    bytes += key.IsString() ? key.Text().size() : 0;
  }
  return bytes;
}

}  // namespace

RowSelection::RowSelection(const RowChoices& choices, const RecordLayout& layout,
                           std::vector<RowBytes> rows)
    : m_choices(choices),
      m_layout(layout),
      m_rows(std::move(rows)),
      m_most(choices.Limit().value_or(m_rows.size())),
      m_sorted(Before{&choices}) {
  if (choices.Where().empty() && choices.Sort().empty()) {
    m_next = m_total = m_rows.size();
    m_kept = std::min(m_total, m_most);
  }
}

bool RowSelection::GoOn(std::chrono::steady_clock::duration limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (m_next < m_rows.size()) {
    Step();
    if (std::chrono::steady_clock::now() >= end) {
      break;
    }
  }
  return m_next < m_rows.size();
}

/// One condition only: a long pattern over a long text may take a whole turn.
void RowSelection::Step() {
  const RowBytes bytes = m_rows[m_next];
  const std::size_t conditions = m_choices.Where().size();
  bool isWanted = true;
  if (m_condition < conditions) {
    isWanted = m_choices.Holds(
        m_condition, [&](std::size_t place) { return FieldToJson(m_layout.fields[place], bytes); });
    ++m_condition;
  }
  if (isWanted && m_condition < conditions) {
    return;
  }
  if (isWanted) {
    Keep(bytes);
  }
  m_condition = 0;
  ++m_next;
}

void RowSelection::Keep(RowBytes bytes) {
  ++m_total;
  if (!m_choices.Sort().empty()) {
    KeepSorted(bytes);
  } else if (m_kept < m_most) {
    m_rows[m_kept++] = bytes;
  }
}

void RowSelection::KeepSorted(RowBytes bytes) {
  auto keys = m_choices.SortKeys(
      [&](std::size_t place) { return FieldToJson(m_layout.fields[place], bytes); });
  HoldKeyBytes(KeyBytes(keys));
  m_sorted.emplace(std::move(keys), bytes);
  if (m_sorted.size() > m_most) {
    const auto last = std::prev(m_sorted.end());
    FreeKeyBytes(KeyBytes(last->first));
    m_sorted.erase(last);
  }
}

void RowSelection::HoldKeyBytes(std::size_t bytes) {
  if (bytes > kMaxKeyBytes - s_keyBytes) {
    throw std::bad_alloc();
  }
  s_keyBytes += bytes;
  m_keyBytes += bytes;
}

void RowSelection::FreeKeyBytes(std::size_t bytes) {
  s_keyBytes -= bytes;
  m_keyBytes -= bytes;
}

std::vector<RowSelection::RowBytes> RowSelection::Take() {
  for (const auto& [keys, bytes] : m_sorted) {
    m_rows[m_kept++] = bytes;
  }
  m_sorted.clear();
  FreeKeyBytes(m_keyBytes);
  m_rows.resize(m_kept);
  m_kept = m_next = 0;
  return std::exchange(m_rows, {});
}
