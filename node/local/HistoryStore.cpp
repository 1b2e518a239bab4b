#include "node/local/HistoryStore.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "node/LayoutRegistry.h"
#include "node/local/FieldValue.h"
#include "node/local/HistoryTables.h"
#include "node/local/RecordJson.h"

namespace {

/// The loop waits no longer for a reader of the file.
constexpr int kBusyMilliseconds = 20;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kBytesPerMegabyte = std::int64_t{1} << 20;
/// The most that one batch removes of one table.
constexpr int kRemovedRows = 500;
constexpr int kFreedPages = 256;
constexpr std::chrono::milliseconds kRemovalTime{20};

std::string InsertText(const RecordLayout& layout) {
  std::string names;
  std::string places;
  for (std::size_t i = 0; i < layout.fields.size(); ++i) {
    const char* separator = i == 0 ? "" : ", ";
    names += separator + QuotedName(layout.fields[i].label);
    places += separator + ("?" + std::to_string(i + 1));
  }
  return "INSERT INTO " + QuotedName(layout.name) + " (" + names + ") VALUES (" + places + ")";
}

/// Removes at most kRemovedRows of the oldest rows of a table that are older than `end`.
int RemoveOldest(SqlDatabase& database, const std::string& table, std::int64_t end) {
  const std::string name = QuotedName(table);
  const std::string time = QuotedName(kTimeLabel);
  SqlStatement statement =
      database.Prepare("DELETE FROM " + name + " WHERE rowid IN (SELECT rowid FROM " + name +
                       " WHERE " + time + " < ?1 ORDER BY " + time + " LIMIT ?2)");
  statement.Bind(1, end);
  statement.Bind(2, std::int64_t{kRemovedRows});
  statement.Run();
  return database.Changes();
}

/// The table whose oldest row is the oldest of all; empty if there is no row.
std::string OldestTable(SqlDatabase& database) {
  std::string oldest;
  std::int64_t least = 0;
  for (const std::string& table : RecordTables(database)) {
    SqlStatement statement =
        database.Prepare("SELECT min(" + QuotedName(kTimeLabel) + ") FROM " + QuotedName(table));
    if (statement.Step() && !statement.IsNull(0) &&
        (oldest.empty() || statement.Whole(0) < least)) {
      least = statement.Whole(0);
      oldest = table;
    }
  }
  return oldest;
}

std::int64_t PageBytes(SqlDatabase& database, std::int64_t pages) {
  return pages * database.Number("PRAGMA page_size");
}

}  // namespace

/// A record's table with what writes it. Without a statement the record can't be kept.
struct HistoryStore::Table {
  const RecordLayout* layout;
  std::optional<SqlStatement> insert;
};

HistoryStore::HistoryStore(ProblemReport report) : m_report(std::move(report)) {
  m_settings.file.clear();
}

HistoryStore::~HistoryStore() {
  // What a reader of the file has kept from being written until now.
  EndBatch();
  Close();
}

void HistoryStore::Configure(HistorySettings settings) {
  EndBatch();
  Close();
  m_settings = std::move(settings);
}

void HistoryStore::Close() {
  m_tables.clear();
  m_database.reset();
  m_sizeBytes = 0;
}

void HistoryStore::Open() {
  std::error_code ignored;
  const auto kind = std::filesystem::status(m_settings.file, ignored).type();
  if (kind != std::filesystem::file_type::not_found &&
      kind != std::filesystem::file_type::regular) {
    // A library that opens a pipe would wait for its other end.
    throw SqlError(0, "it is no regular file");
  }
  auto database = std::make_unique<SqlDatabase>(m_settings.file, kBusyMilliseconds);
  database->Execute("PRAGMA auto_vacuum = INCREMENTAL");
  database->Execute("PRAGMA journal_mode = DELETE");
  database->Execute("PRAGMA synchronous = NORMAL");
  // Reads the file's head.
  m_sizeBytes = PageBytes(*database, database->Number("PRAGMA page_count"));
  m_database = std::move(database);
}

SqlDatabase* HistoryStore::Database() {
  if (m_database == nullptr && !m_settings.file.empty()) {
    try {
      Open();
    } catch (const SqlError& error) {
      Fail(error);
    }
  }
  return m_database.get();
}

void HistoryStore::Take(const ScheduledRows& rows) {
  if (m_isBatchLost || m_settings.file.empty()) {
    return;
  }
  try {
    Begin();
    Insert(rows);
  } catch (const SqlError& error) {
    m_isBatchLost = true;
    Fail(error);
  }
}

void HistoryStore::Begin() {
  if (m_database == nullptr) {
    Open();
  }
  if (!m_database->IsInTransaction()) {
    m_database->Execute("BEGIN IMMEDIATE");
  }
}

HistoryStore::Table* HistoryStore::FindTable(const ScheduledRows& rows) {
  const auto [place, isNew] = m_tables.try_emplace({rows.record, rows.category});
  if (!isNew && place->second != nullptr) {
    return place->second.get();
  }
  const RecordLayout* layout = LayoutRegistry::Instance().Find(rows.record, rows.category);
  auto table = std::make_unique<Table>(Table{layout, std::nullopt});
  if (layout != nullptr && HasTime(*layout)) {
    const std::string done = FitTable(*m_database, *layout);
    if (!done.empty()) {
      m_notices.push_back("History: " + done + ".");
    }
    table->insert.emplace(m_database->Prepare(InsertText(*layout)));
  } else {
    m_notices.push_back(std::string("History: the rows of ") + rows.record +
                        " are not kept: they have no published layout with a time.");
  }
  place->second = std::move(table);
  return place->second.get();
}

void HistoryStore::Insert(const ScheduledRows& rows) {
  Table* table = FindTable(rows);
  if (!table->insert) {
    return;
  }
  for (const CMBRecord* row : rows.rows) {
    const std::span<const unsigned char> bytes = RecordBytes(*row);
    int place = 0;
    for (const FieldLayout& field : table->layout->fields) {
      VisitField(field, bytes, [&](auto value) { table->insert->Bind(++place, value); });
    }
    table->insert->Run();
  }
}

void HistoryStore::EndBatch() {
  if (m_settings.file.empty()) {
    return;
  }
  const bool isLost = std::exchange(m_isBatchLost, false);
  if (isLost || m_database == nullptr) {
    return;
  }
  try {
    Commit();
    RemoveOld();
    RemoveExcess();
  } catch (const SqlError& error) {
    // Somebody reads the file: the rows stay in the transaction, which the next batch ends.
    if (!error.IsBusy()) {
      Fail(error);
    }
  }
}

void HistoryStore::Commit() {
  if (m_database->IsInTransaction()) {
    m_database->Execute("COMMIT");
  }
  for (const std::string& notice : std::exchange(m_notices, {})) {
    m_report(notice);
  }
  if (!std::exchange(m_problem, {}).empty()) {
    m_report("History: " + m_settings.file + " is written again; " + std::to_string(m_lostBatches) +
             " batches since the start are missing.");
  }
}

void HistoryStore::RemoveOld() {
  const std::int64_t end = std::time(nullptr) - m_settings.days * kSecondsPerDay;
  m_database->Execute("BEGIN IMMEDIATE");
  for (const std::string& table : RecordTables(*m_database)) {
    RemoveOldest(*m_database, table, end);
  }
  m_database->Execute("COMMIT");
}

void HistoryStore::RemoveExcess() {
  const std::int64_t limit = m_settings.megabytes * kBytesPerMegabyte;
  const auto end = std::chrono::steady_clock::now() + kRemovalTime;
  const auto usedBytes = [this] {
    return PageBytes(*m_database, m_database->Number("PRAGMA page_count") -
                                      m_database->Number("PRAGMA freelist_count"));
  };
  while (usedBytes() > limit && std::chrono::steady_clock::now() < end) {
    const std::string table = OldestTable(*m_database);
    if (table.empty() || RemoveOldest(*m_database, table, INT64_MAX) == 0) {
      break;
    }
  }
  m_database->Execute("PRAGMA incremental_vacuum(" + std::to_string(kFreedPages) + ")");
  m_sizeBytes = PageBytes(*m_database, m_database->Number("PRAGMA page_count"));
}

void HistoryStore::Fail(const SqlError& error) {
  ++m_lostBatches;
  m_notices.clear();
  const bool isBroken = error.IsBroken();
  Close();
  if (isBroken) {
    SetAside();
  }
  // Each reason is told once, until a batch is written again.
  if (m_problem != error.what()) {
    m_problem = error.what();
    m_report("History: " + m_settings.file + " can't be written: " + m_problem +
             (isBroken ? ". It is set aside, a new one is begun." : ". Collection goes on."));
  }
}

void HistoryStore::SetAside() {
  std::array<char, 32> stamp{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::strftime(stamp.data(), stamp.size(), ".broken-%Y%m%d-%H%M%S", &parts);
  const std::string place = m_settings.file + stamp.data();
  std::string free = place;
  std::error_code ignored;
  for (int number = 2; std::filesystem::exists(free, ignored); ++number) {
    free = place + "-" + std::to_string(number);
  }
  if (std::rename(m_settings.file.c_str(), free.c_str()) != 0) {
    m_report("History: " + m_settings.file + " can't be renamed: " + std::strerror(errno));
    return;
  }
  // A journal belongs to the file that it was made for.
  std::rename((m_settings.file + "-journal").c_str(), (free + "-journal").c_str());
}
