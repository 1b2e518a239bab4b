#include "local/history/TotalsTable.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <optional>
#include <utility>

#include "json/Json.h"
#include "json/JsonText.h"
#include "local/history/FieldValue.h"
#include "local/history/HistoryTables.h"
#include "support/TextHash.h"

namespace {

constexpr JsonLimits kDescriptionLimits{.depth = 4};
constexpr std::uint64_t kMostRowBytes = std::numeric_limits<std::uint16_t>::max();
constexpr const char* kRecordMember = "record";
constexpr const char* kSizeMember = "size";
constexpr const char* kFieldsMember = "fields";
/// Of a field: label, type, offset, width.
constexpr std::size_t kFieldParts = 4;

bool HasColumns(SqlDatabase& database, const char* table,
                std::initializer_list<const char*> wanted) {
  const auto columns = ColumnsOf(database, table);
  return std::ranges::all_of(wanted, [&](const char* name) { return columns.contains(name); });
}

// Each name is one of the main file: where that has none, it would stand for an attached one's.
void MakeLayoutTable(SqlDatabase& database) {
  const std::string table = "main." + QuotedName(kTotalsLayoutTable);
  if (!HasColumns(database, kTotalsLayoutTable, {kLayoutColumn, kDescriptionColumn})) {
    // One that was made otherwise describes nothing.
    database.Execute("DROP TABLE IF EXISTS " + table);
    database.Execute("CREATE TABLE " + table + " (" + QuotedName(kLayoutColumn) +
                     " INTEGER PRIMARY KEY, " + QuotedName(kDescriptionColumn) + " TEXT)");
  }
}

void MakeTables(SqlDatabase& database) {
  MakeLayoutTable(database);
  const std::string table = "main." + QuotedName(kTotalsTable);
  const std::string time = QuotedName(kTimeLabel);
  database.Execute("CREATE TABLE IF NOT EXISTS " + table + " (" + time + " INTEGER, " +
                   QuotedName(kPackColumn) + " BLOB)");
  for (const auto& [column, type] : {std::pair(kTimeLabel, " INTEGER"), {kPackColumn, " BLOB"}}) {
    if (!HasColumns(database, kTotalsTable, {column})) {
      database.Execute("ALTER TABLE " + table + " ADD COLUMN " + QuotedName(column) + type);
    }
  }
  database.Execute("CREATE INDEX IF NOT EXISTS main." +
                   QuotedName(std::string(kTotalsTable) + " by time") + " ON " +
                   QuotedName(kTotalsTable) + " (" + time + ")");
}

void KeepDescription(SqlDatabase& database, std::int64_t number, std::string_view description) {
  SqlStatement insert = database.Prepare(
      "INSERT OR REPLACE INTO main." + QuotedName(kTotalsLayoutTable) + " (" +
      QuotedName(kLayoutColumn) + ", " + QuotedName(kDescriptionColumn) + ") VALUES (?1, ?2)");
  insert.Bind(1, number);
  insert.Bind(2, description);
  insert.Run();
}

SqlDatabase& WithTables(SqlDatabase& database) {
  MakeTables(database);
  return database;
}

struct DescribedField {
  std::string_view label;
  std::string_view type;
  std::uint64_t offset;
  std::uint64_t width;
};

std::optional<DescribedField> FieldOf(const Json& parts) {
  if (!parts.IsArray() || parts.Size() != kFieldParts || !parts[0].IsString() ||
      !parts[1].IsString() || !parts[2].IsUnsigned() || !parts[3].IsUnsigned()) {
    return std::nullopt;
  }
  return DescribedField{parts[0].Text(), parts[1].Text(), parts[2].Unsigned(), parts[3].Unsigned()};
}

bool IsSame(const DescribedField& field, const FieldLayout& other) {
  return field.label == std::string_view(other.label) && field.type == FieldTypeName(other.type) &&
         field.width == other.width;
}

}  // namespace

TotalsLayout TotalsLayoutOf(const RecordLayout& layout) {
  Json fields = Json::Array();
  for (const FieldLayout& field : layout.fields) {
    fields.PushBack(
        Json::Array({field.label, FieldTypeName(field.type), field.offset, field.width}));
  }
  TotalsLayout described;
  described.description = JsonText(
      Json{{kRecordMember, layout.name}, {kSizeMember, layout.size}, {kFieldsMember, fields}});
  described.number = TotalsLayoutNumber(described.description);
  return described;
}

std::int64_t TotalsLayoutNumber(std::string_view description) {
  return static_cast<std::int64_t>(TextHash(description));
}

std::optional<DescribedLayout> ReadTotalsLayout(std::string_view description) {
  const Json text = ParseJson(description, kDescriptionLimits).value;
  const Json* const record = text.Find(kRecordMember);
  const Json* const size = text.Find(kSizeMember);
  const Json* const fields = text.Find(kFieldsMember);
  if (record == nullptr || !record->IsString() || size == nullptr || !size->IsUnsigned() ||
      size->Unsigned() == 0 || size->Unsigned() > kMostRowBytes || fields == nullptr ||
      !fields->IsArray()) {
    return std::nullopt;
  }
  const RecordLayout* const layout = LayoutRegistry::Instance().Find(record->Text());
  if (layout == nullptr) {
    return std::nullopt;
  }
  DescribedLayout described{layout, size->Unsigned(), {}};
  described.places.assign(layout->fields.size(), DescribedLayout::kNoPlace);
  for (const Json& parts : fields->Elements()) {
    const std::optional<DescribedField> field = FieldOf(parts);
    if (!field || field->offset > described.size || field->width > described.size - field->offset) {
      return std::nullopt;
    }
    const auto place = std::ranges::find_if(layout->fields, [&](const FieldLayout& other) {
      return IsSame(*field, other) && std::size_t{other.offset} + other.width <= layout->size;
    });
    if (place != layout->fields.end()) {
      described.places[static_cast<std::size_t>(place - layout->fields.begin())] =
          static_cast<std::uint32_t>(field->offset);
    }
  }
  described.isSame =
      described.size == layout->size &&
      std::ranges::equal(described.places, layout->fields, {}, {},
                         [](const FieldLayout& field) { return std::uint32_t{field.offset}; });
  return described;
}

TotalsTable::TotalsTable(SqlDatabase& database)
    : m_database(WithTables(database)),
      m_insert(database.Prepare("INSERT INTO " + QuotedName(kTotalsTable) + " (" +
                                QuotedName(kTimeLabel) + ", " + QuotedName(kPackColumn) +
                                ") VALUES (?1, ?2)")) {}

void TotalsTable::Append(const void* bytes, std::size_t size) {
  const auto* const begin = static_cast<const unsigned char*>(bytes);
  m_pack.insert(m_pack.end(), begin, begin + size);
}

std::int64_t TotalsTable::NumberOf(const RecordLayout& layout) {
  const auto known = m_numbers.find(&layout);
  if (known != m_numbers.end()) {
    return known->second;
  }
  const TotalsLayout described = TotalsLayoutOf(layout);
  KeepDescription(m_database, described.number, described.description);
  m_numbers.emplace(&layout, described.number);
  return described.number;
}

void TotalsTable::Add(const RecordLayout& layout, std::int64_t time,
                      std::span<const CMBRecord* const> rows) {
  if (time != m_time) {
    Flush();
    m_time = time;
  }
  TotalsHead head{NumberOf(layout), 0, 0};
  while (!rows.empty()) {
    if (m_pack.size() >= kMostPackBytes) {
      Flush();
    }
    const std::size_t begin = m_pack.size();
    Append(&head, sizeof head);
    do {
      const std::span<const unsigned char> bytes = RecordBytes(*rows.front());
      const std::size_t row = m_pack.size();
      m_pack.resize(row + layout.size);
      std::copy_n(bytes.begin(), std::min<std::size_t>(bytes.size(), layout.size),
                  m_pack.begin() + static_cast<std::ptrdiff_t>(row));
      rows = rows.subspan(1);
    } while (!rows.empty() && m_pack.size() < kMostPackBytes);
    head.bytes = static_cast<std::uint32_t>(m_pack.size() - begin - sizeof head);
    std::memcpy(m_pack.data() + begin, &head, sizeof head);
    head.isGoingOn = 1;
  }
}

void TotalsTable::Flush() {
  if (m_pack.empty()) {
    return;
  }
  m_insert.Bind(1, m_time);
  m_insert.Bind(2, std::span<const unsigned char>(m_pack));
  m_insert.Run();
  ++m_inserted;
  m_pack.clear();
}

void MoveTotals(SqlDatabase& database, const std::string& schema, std::int64_t last) {
  MakeTables(database);
  const auto shares = [&](const char* table, std::initializer_list<const char*> wanted) {
    const std::string columns = CommonColumns(database, schema, table);
    return std::ranges::all_of(wanted, [&](const char* name) {
      return columns.find(QuotedName(name)) != std::string::npos;
    });
  };
  const std::string layout = QuotedName(kLayoutColumn) + ", " + QuotedName(kDescriptionColumn);
  if (shares(kTotalsLayoutTable, {kLayoutColumn, kDescriptionColumn})) {
    SqlStatement described = database.Prepare("SELECT " + layout + " FROM " + schema + '.' +
                                              QuotedName(kTotalsLayoutTable));
    while (described.Step()) {
      // A file that somebody else has made may describe what stands here already.
      if (TotalsLayoutNumber(described.Text(1)) == described.Whole(0)) {
        KeepDescription(database, described.Whole(0), described.Text(1));
      }
    }
  }
  const std::string totals = QuotedName(kTimeLabel) + ", " + QuotedName(kPackColumn);
  if (shares(kTotalsTable, {kTimeLabel, kPackColumn})) {
    database.Execute("INSERT INTO main." + QuotedName(kTotalsTable) + " (" + totals + ") SELECT " +
                     totals + " FROM " + schema + '.' + QuotedName(kTotalsTable) +
                     " WHERE rowid <= " + std::to_string(last) + " AND typeof(" +
                     QuotedName(kPackColumn) + ") = 'blob' AND length(" + QuotedName(kPackColumn) +
                     ") <= " + std::to_string(TotalsTable::kMostReadBytes) + " ORDER BY rowid");
  }
}
