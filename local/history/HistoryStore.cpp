#include "local/history/HistoryStore.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "local/history/FieldValue.h"
#include "local/history/HistoryTables.h"
#include "local/history/TotalsTable.h"
#include "node/LayoutRegistry.h"
#include "support/WholeTime.h"

namespace {

/// The loop waits no longer for a reader of the file.
constexpr int kBusyMilliseconds = 20;
constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kBytesPerMegabyte = std::int64_t{1} << 20;
/// The most that one batch removes of one table; a row of totals has those of many records.
constexpr int kRemovedRows = 500;
constexpr int kRemovedTotals = 50;
/// How often rows that are too old are looked for, unless there were more than one batch removes:
/// it costs as much as a small batch.
constexpr std::int64_t kRemovalSeconds = 600;
constexpr int kFreedPages = 256;
constexpr int kKeptPages = 512 << 10;
/// The most that one batch moves of one table out of the file of waiting rows.
constexpr int kMovedRows = 2000;
constexpr int kMovedTotals = 100;
constexpr int kMovedOfOneTime = 10000;
constexpr std::chrono::milliseconds kMovingTime{20};
constexpr std::chrono::milliseconds kRemovalTime{20};

std::string InsertText(const RecordLayout& layout, const std::string& table) {
  std::string names;
  std::string places;
  for (std::size_t i = 0; i < layout.fields.size(); ++i) {
    const char* separator = i == 0 ? "" : ", ";
    names += separator + QuotedName(layout.fields[i].label);
    places += separator + ("?" + std::to_string(i + 1));
  }
  return "INSERT INTO " + QuotedName(table) + " (" + names + ") VALUES (" + places + ")";
}

int MostRemoved(const std::string& table) {
  return table == kTotalsTable ? kRemovedTotals : kRemovedRows;
}

/// Removes at most MostRemoved() of the oldest rows of a table that are older than `end`.
int RemoveOldest(SqlDatabase& database, const std::string& table, std::int64_t end) {
  const std::string name = QuotedName(table);
  const std::string time = QuotedName(kTimeLabel);
  SqlStatement statement =
      database.Prepare("DELETE FROM " + name + " WHERE rowid IN (SELECT rowid FROM " + name +
                       " WHERE " + time + " < ?1 ORDER BY " + time + " LIMIT ?2)");
  statement.Bind(1, end);
  statement.Bind(2, std::int64_t{MostRemoved(table)});
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

std::unique_ptr<SqlDatabase> OpenFile(const std::string& file) {
  constexpr std::int64_t kIncremental = 2;
  std::error_code ignored;
  const auto kind = std::filesystem::status(file, ignored).type();
  if (kind != std::filesystem::file_type::not_found &&
      kind != std::filesystem::file_type::regular) {
    // A library that opens a pipe would wait for its other end.
    throw SqlError(0, "it is no regular file");
  }
  auto database = std::make_unique<SqlDatabase>(file, kBusyMilliseconds);
  // Where it is set already setting it would write, which nobody can while somebody reads.
  if (database->Number("PRAGMA auto_vacuum") != kIncremental) {
    database->Execute("PRAGMA auto_vacuum = INCREMENTAL");
  }
  database->Execute("PRAGMA journal_mode = DELETE");
  database->Execute("PRAGMA synchronous = NORMAL");
  return database;
}

/// Whether the file is a database without damage, or can't be judged for the moment.
bool IsWhole(const std::string& file) {
  try {
    SqlDatabase database(file, kBusyMilliseconds);
    SqlStatement check = database.Prepare("PRAGMA quick_check(1)");
    return check.Step() && check.Text(0) == "ok";
  } catch (const SqlError& error) {
    return !error.IsBroken();
  }
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
  EndBatch();
  Close();
}

void HistoryStore::Configure(HistorySettings settings) {
  EndBatch();
  Close();
  m_settings = std::move(settings);
}

void HistoryStore::Close() {
  m_target = nullptr;
  m_main = {};
  m_waiting = {};
  m_sizeBytes = 0;
  m_freeBytes = 0;
  m_removedUntil.reset();
}

void HistoryStore::Open() {
  ++m_openings;
  m_main.database = OpenFile(m_settings.file);
  MeasureFile();
  std::error_code ignored;
  m_hasWaiting = std::filesystem::exists(WaitingFile(), ignored);
}

SqlDatabase* HistoryStore::Database() {
  if (m_main.database == nullptr && !m_settings.file.empty()) {
    try {
      Open();
    } catch (const SqlError& error) {
      Fail(error);
    }
  }
  return m_main.database.get();
}

void HistoryStore::Keep(const ScheduledRows& rows, bool areTotals) {
  if (m_isBatchLost || m_settings.file.empty()) {
    return;
  }
  try {
    if (m_target == nullptr) {
      Begin();
    }
    Insert(rows, areTotals);
  } catch (const SqlError& error) {
    m_isBatchLost = true;
    Fail(error);
  }
}

void HistoryStore::Begin() {
  if (m_main.database == nullptr) {
    Open();
  }
  try {
    MoveWaiting();
    if (m_hasWaiting) {
      BeginWaiting();
      return;
    }
    // Whoever reads is found out now, when the batch can still go elsewhere.
    m_main.database->Execute("BEGIN EXCLUSIVE");
    m_target = &m_main;
  } catch (const SqlError& error) {
    if (!error.IsBusy()) {
      throw;
    }
    BeginWaiting();
  }
}

void HistoryStore::BeginWaiting() {
  if (m_waiting.database == nullptr) {
    m_waiting.database = OpenFile(WaitingFile());
  }
  m_hasWaiting = true;
  m_target = &m_waiting;
  SqlDatabase& database = *m_waiting.database;
  // What was moved has left free pages.
  const std::int64_t pages =
      database.Number("PRAGMA page_count") - database.Number("PRAGMA freelist_count");
  if (PageBytes(database, pages) > m_settings.waitingMegabytes * kBytesPerMegabyte) {
    throw SqlError(0, "it has been read for so long that the rows that wait exceed " +
                          std::to_string(m_settings.waitingMegabytes) + " Mbytes");
  }
  database.Execute("BEGIN EXCLUSIVE");
}

void HistoryStore::MoveWaiting() {
  if (!m_hasWaiting) {
    return;
  }
  m_waiting = {};
  const std::string file = WaitingFile();
  try {
    MoveFrom(file);
  } catch (const SqlError& error) {
    if (!error.IsBroken() || IsWhole(file)) {
      throw;
    }
    Close();
    SetAside(file);
    m_report("History: " + file + " is damaged (" + error.what() + "); it is set aside.");
    Open();
  }
  if (!m_hasWaiting) {
    std::remove(file.c_str());
  }
}

void HistoryStore::MoveFrom(const std::string& file) {
  SqlDatabase& database = *m_main.database;
  {
    SqlStatement attach = database.Prepare("ATTACH ?1 AS waiting");
    attach.Bind(1, std::string_view(file));
    attach.Run();
  }
  try {
    // Both files change together, whatever happens meanwhile.
    database.Execute("BEGIN EXCLUSIVE");
    m_hasWaiting = MoveTables();
    database.Execute("COMMIT");
  } catch (const SqlError& error) {
    if (database.IsInTransaction()) {
      database.Execute("ROLLBACK");
    }
    m_hasWaiting = true;
    if (!error.IsBroken()) {
      database.Execute("DETACH waiting");
    }
    throw;
  }
  database.Execute("DETACH waiting");
}

void HistoryStore::NoteFit(const std::string& done) {
  if (!done.empty()) {
    m_notices.push_back("History: " + done + ".");
  }
}

bool HistoryStore::MoveTables() {
  const std::vector<std::string> tables = RecordTables(*m_main.database, "waiting");
  const auto end = std::chrono::steady_clock::now() + kMovingTime;
  bool isMore = false;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    if (std::chrono::steady_clock::now() >= end) {
      return true;
    }
    isMore = MoveTable(tables[m_nextMoved++ % tables.size()]) || isMore;
  }
  return isMore;
}

bool HistoryStore::MoveTable(const std::string& table) {
  SqlDatabase& database = *m_main.database;
  const std::string waiting = "waiting." + QuotedName(table);
  const int most = table == kTotalsTable ? kMovedTotals : kMovedRows;
  const std::int64_t last = LastOfTime(database, waiting, most, kMovedOfOneTime);
  const std::string moved = " WHERE rowid <= " + std::to_string(last);
  const RecordLayout* const layout = LayoutRegistry::Instance().Find(table);
  if (table == kTotalsTable) {
    MoveTotals(database, "waiting", last);
  } else if (layout != nullptr) {
    NoteFit(FitTable(database, *layout, table));
    const std::string columns = CommonColumns(database, "waiting", table);
    database.Execute("INSERT INTO main." + QuotedName(table) + " (" + columns + ") SELECT " +
                     columns + " FROM " + waiting + moved + " ORDER BY rowid");
  }
  database.Execute("DELETE FROM " + waiting + moved);
  return database.Number("SELECT EXISTS (SELECT 1 FROM " + waiting + ")") != 0;
}

/// Records tell their time in 32 bits, which age could not be told by in the long run.
std::int64_t HistoryStore::TimeOf(const CMBRecord& row, std::time_t near) {
  return WholeTime(static_cast<std::int32_t>(row.GetRecTime()), near);
}

HistoryStore::Table* HistoryStore::FindTable(const ScheduledRows& rows) {
  const std::string name = rows.record;
  const auto [place, isNew] = m_target->tables.try_emplace({name, rows.category});
  if (!isNew && place->second != nullptr) {
    return place->second.get();
  }
  const RecordLayout* layout = LayoutRegistry::Instance().Find(rows.record, rows.category);
  auto table = std::make_unique<Table>(Table{layout, std::nullopt});
  if (layout != nullptr && HasTime(*layout)) {
    NoteFit(FitTable(*m_target->database, *layout, name));
    table->insert.emplace(m_target->database->Prepare(InsertText(*layout, name)));
  } else {
    m_notices.push_back(std::string("History: the rows of ") + rows.record +
                        " are not kept: they have no published layout with a time.");
  }
  place->second = std::move(table);
  return place->second.get();
}

void HistoryStore::Insert(const ScheduledRows& rows, bool areTotals) {
  Table* table = FindTable(rows);
  if (!table->insert) {
    return;
  }
  if (areTotals) {
    if (m_target->totals == nullptr) {
      m_target->totals = std::make_unique<TotalsTable>(*m_target->database);
    }
    m_target->totals->Add(*table->layout, rows.time, rows.rows);
    return;
  }
  const int timePlace = TimePlace(*table->layout) + 1;
  for (const CMBRecord* row : rows.rows) {
    const std::span<const unsigned char> bytes = RecordBytes(*row);
    int place = 0;
    for (const FieldLayout& field : table->layout->fields) {
      VisitField(field, bytes, [&](auto value) { table->insert->Bind(++place, value); });
    }
    table->insert->Bind(timePlace, TimeOf(*row, rows.time));
    table->insert->Run();
  }
}

void HistoryStore::AbandonBatch() {
  if (std::exchange(m_isBatchLost, false) || m_target == nullptr) {
    return;
  }
  ++m_lostBatches;
  m_notices.clear();
  // What has been written of it goes with the connection.
  Close();
}

void HistoryStore::EndBatch() {
  if (m_settings.file.empty()) {
    return;
  }
  const bool isLost = std::exchange(m_isBatchLost, false);
  if (isLost || m_target == nullptr) {
    return;
  }
  const bool isMain = m_target == &m_main;
  try {
    if (m_target->totals != nullptr) {
      m_target->totals->Flush();
    }
    if (isMain) {
      // Within the batch, where the file needs no locks of its own for that.
      MeasureFile();
    }
    Commit();
    if (isMain) {
      RemoveOld();
      RemoveExcess();
    }
  } catch (const SqlError& error) {
    if (!error.IsBusy()) {
      Fail(error);
    } else if (m_main.database->IsInTransaction()) {
      // Somebody has begun to read: what is old goes after a later batch.
      m_main.database->Execute("ROLLBACK");
    }
  }
}

void HistoryStore::Commit() {
  m_target->database->Execute("COMMIT");
  // What many rows or a long question have left; a usual batch needs less.
  m_target->database->TrimPages(kKeptPages);
  m_target = nullptr;
  for (const std::string& notice : std::exchange(m_notices, {})) {
    m_report(notice);
  }
  if (!std::exchange(m_problem, {}).empty()) {
    m_report("History: " + m_settings.file + " is written again; " + std::to_string(m_lostBatches) +
             " batches since the start are missing.");
  }
}

void HistoryStore::MeasureFile() {
  SqlDatabase& database = *m_main.database;
  m_sizeBytes = PageBytes(database, database.Number("PRAGMA page_count"));
  m_freeBytes = PageBytes(database, database.Number("PRAGMA freelist_count"));
}

void HistoryStore::RemoveOld() {
  const std::int64_t end = std::time(nullptr) - m_settings.days * kSecondsPerDay;
  // Either way: behind a clock that was set back the time of the last look lies ahead.
  if (m_removedUntil && std::abs(end - *m_removedUntil) < kRemovalSeconds) {
    return;
  }
  bool isMore = false;
  m_main.database->Execute("BEGIN IMMEDIATE");
  for (const std::string& table : RecordTables(*m_main.database)) {
    isMore = RemoveOldest(*m_main.database, table, end) == MostRemoved(table) || isMore;
  }
  MeasureFile();
  m_main.database->Execute("COMMIT");
  if (!isMore) {
    m_removedUntil = end;
  }
}

void HistoryStore::RemoveExcess() {
  const std::int64_t limit = m_settings.megabytes * kBytesPerMegabyte;
  const auto end = std::chrono::steady_clock::now() + kRemovalTime;
  while (m_sizeBytes - m_freeBytes > limit && std::chrono::steady_clock::now() < end) {
    const std::string table = OldestTable(*m_main.database);
    if (table.empty() || RemoveOldest(*m_main.database, table, INT64_MAX) == 0) {
      break;
    }
    MeasureFile();
  }
  if (m_freeBytes > 0) {
    m_main.database->Execute("PRAGMA incremental_vacuum(" + std::to_string(kFreedPages) + ")");
    MeasureFile();
  }
}

void HistoryStore::Fail(const SqlError& error) {
  ++m_lostBatches;
  m_notices.clear();
  const bool isBroken = error.IsBroken();
  const std::string file = m_target == &m_waiting ? WaitingFile() : m_settings.file;
  Close();
  if (isBroken) {
    SetAside(file);
  }
  // Each reason is told once, until a batch is written again.
  if (m_problem != error.what()) {
    m_problem = error.what();
    m_report("History: " + m_settings.file + " can't be written: " + m_problem +
             (isBroken ? ". It is set aside, a new one is begun." : ". Collection goes on."));
  }
}

void HistoryStore::SetAside(const std::string& file) {
  std::array<char, 32> stamp{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::strftime(stamp.data(), stamp.size(), ".broken-%Y%m%d-%H%M%S", &parts);
  const std::string place = file + stamp.data();
  std::string free = place;
  std::error_code ignored;
  for (int number = 2; std::filesystem::exists(free, ignored); ++number) {
    free = place + "-" + std::to_string(number);
  }
  if (std::rename(file.c_str(), free.c_str()) != 0) {
    m_report("History: " + file + " can't be renamed: " + std::strerror(errno));
    return;
  }
  // A journal belongs to the file that it was made for.
  std::rename((file + "-journal").c_str(), (free + "-journal").c_str());
}
