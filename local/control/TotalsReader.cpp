#include "local/control/TotalsReader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "local/history/HistoryTables.h"

namespace {

constexpr int kPackRow = 0;
constexpr int kPackTime = 1;
constexpr int kPackBytes = 2;
/// Layouts that are looked up, whatever a file holds.
constexpr std::size_t kMostLayouts = 512;

}  // namespace

void TotalsReader::Prepare(SqlDatabase& database) {
  if (m_isPrepared) {
    return;
  }
  const auto columns = ColumnsOf(database, kTotalsTable);
  const auto layouts = ColumnsOf(database, kTotalsLayoutTable);
  if (columns.contains(kTimeLabel) && columns.contains(kPackColumn) &&
      layouts.contains(kLayoutColumn) && layouts.contains(kDescriptionColumn)) {
    const std::string table = QuotedName(kTotalsTable);
    const std::string time = QuotedName(kTimeLabel);
    m_finder.emplace(database, table, time);
    const std::string pack = QuotedName(kPackColumn);
    m_packs.emplace(database.Prepare(
        "SELECT rowid, " + time + ", CASE WHEN typeof(" + pack + ") = 'blob' AND length(" + pack +
        ") <= " + std::to_string(TotalsTable::kMostReadBytes) + " THEN " + pack + " END FROM " +
        table + " WHERE rowid >= ?1 ORDER BY rowid"));
    m_description.emplace(database.Prepare("SELECT " + QuotedName(kDescriptionColumn) + " FROM " +
                                           QuotedName(kTotalsLayoutTable) + " WHERE " +
                                           QuotedName(kLayoutColumn) + " = ?1"));
  }
  m_isPrepared = true;
}

void TotalsReader::Seek(SqlDatabase& database, std::span<const Wanted> wanted, std::int64_t from,
                        std::int64_t now, Clock::time_point end) {
  Prepare(database);
  Rest();
  m_end = end;
  if (!m_packs || from == std::numeric_limits<std::int64_t>::max()) {
    return;
  }
  const RowPlace* former = nullptr;
  std::optional<std::int64_t> begin;
  for (const Wanted& one : wanted) {
    // Most have been given up to the same row.
    if (former == nullptr || former->row != one.after.row || former->time != one.after.time) {
      begin = m_finder->FirstBehind(one.after, now);
      former = &one.after;
    }
    if (begin) {
      m_begins.push_back({one.layout, *begin});
    }
  }
  if (!m_begins.empty()) {
    const std::int64_t first = std::ranges::min(m_begins, {}, &Begin::row).row;
    m_packs->Bind(1, std::max(first, from + 1));
    if (NextPack()) {
      NextChunk();
    }
  }
}

bool TotalsReader::StepPack() {
  m_passed = m_at;
  m_isAtEnd = m_isAtEnd || !m_packs->Step();
  if (m_isAtEnd) {
    return false;
  }
  m_at = {m_packs->Whole(kPackTime), m_packs->Whole(kPackRow)};
  m_pack = m_packs->Bytes(kPackBytes);
  return true;
}

bool TotalsReader::NextPack() {
  if (m_at.row != 0 && Clock::now() >= m_end) {
    m_passed = m_at;
    m_isInterrupted = !m_isAtEnd;
    return false;
  }
  return StepPack();
}

void TotalsReader::NextChunk() {
  do {
    while (TakeChunk(m_chunk)) {
      if (IsWanted(m_chunk)) {
        return;
      }
    }
  } while (NextPack());
  m_chunk = {};
}

bool TotalsReader::TakeChunk(Chunk& chunk) {
  TotalsHead head;
  if (m_pack.size() < sizeof head) {
    return false;
  }
  std::memcpy(&head, m_pack.data(), sizeof head);
  m_pack = m_pack.subspan(sizeof head);
  if (head.bytes > m_pack.size()) {
    return false;
  }
  chunk.bytes = m_pack.first(head.bytes);
  chunk.isGoingOn = head.isGoingOn != 0;
  m_pack = m_pack.subspan(head.bytes);
  chunk.layout = head.bytes == 0 ? nullptr : LayoutOf(head.layout);
  return true;
}

bool TotalsReader::IsWanted(const Chunk& chunk) const {
  return chunk.layout != nullptr && chunk.bytes.size() >= chunk.layout->size &&
         std::ranges::any_of(m_begins, [&](const Begin& begin) {
           return begin.layout == chunk.layout->layout && begin.row <= m_at.row;
         });
}

const DescribedLayout* TotalsReader::LayoutOf(std::int64_t number) {
  auto place = m_layouts.find(number);
  if (place == m_layouts.end()) {
    if (m_layouts.size() == kMostLayouts) {
      DropUnread();
    }
    if (m_layouts.size() == kMostLayouts) {
      return nullptr;
    }
    m_description->Bind(1, number);
    const std::string text(m_description->Step() ? m_description->Text(0) : "");
    m_description->Reset();
    const bool isWhole = TotalsLayoutNumber(text) == number;
    place =
        m_layouts
            .emplace(number, isWhole ? ReadTotalsLayout(text) : std::optional<DescribedLayout>())
            .first;
  }
  return place->second ? &*place->second : nullptr;
}

TakenRows& TotalsReader::Take() {
  const DescribedLayout* const layout = m_chunk.layout;
  const std::int64_t time = m_at.time;
  TakenRows& taken = m_taken.try_emplace(layout->layout, *layout->layout).first->second;
  taken.Clear();
  AddRows(taken);
  m_last = m_at;
  // Rows of one time are never parted: what goes on does so at the begin of the next pack.
  while (taken.Size() < kMostOfOneTime && m_pack.empty() && StepPack()) {
    const std::span<const unsigned char> pack = m_pack;
    if (!TakeChunk(m_chunk) || !m_chunk.isGoingOn || m_chunk.layout != layout ||
        m_at.time != time) {
      m_pack = pack;
      break;
    }
    AddRows(taken);
    m_last = m_at;
  }
  NextChunk();
  return taken;
}

void TotalsReader::AddRows(TakenRows& taken) const {
  const DescribedLayout& from = *m_chunk.layout;
  const std::span<const FieldLayout> fields = from.layout->fields;
  for (auto rest = m_chunk.bytes; rest.size() >= from.size && taken.Size() < kMostOfOneTime;
       rest = rest.subspan(from.size)) {
    const std::span<unsigned char> row = taken.Add();
    if (from.isSame) {
      std::copy_n(rest.begin(), from.size, row.begin());
      continue;
    }
    for (std::size_t place = 0; place < fields.size(); ++place) {
      const FieldLayout& field = fields[place];
      if (from.places[place] != DescribedLayout::kNoPlace) {
        std::copy_n(rest.begin() + from.places[place], field.width, row.begin() + field.offset);
      } else if (field.hasSource) {
        taken.NoteLacking(place);
      }
    }
  }
}

void TotalsReader::DropUnread() {
  std::erase_if(m_layouts, [](const auto& known) { return !known.second; });
}

std::optional<std::int64_t> TotalsReader::BeginOf(const RecordLayout& layout) const {
  const auto begin = std::ranges::find(m_begins, &layout, &Begin::layout);
  return begin == m_begins.end() ? std::nullopt : std::optional(begin->row);
}

void TotalsReader::Rest() {
  m_begins.clear();
  m_pack = {};
  m_chunk = {};
  m_at = {};
  m_passed = {};
  m_isInterrupted = false;
  m_isAtEnd = false;
  if (m_packs) {
    m_packs->Reset();
    m_description->Reset();
  }
  // What could not be read may be put right.
  DropUnread();
  for (auto& [layout, taken] : m_taken) {
    taken.Rest();
  }
}
