#include "local/history/HistoryStore.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "local/history/FieldValue.h"
#include "local/history/HistoryFile.h"
#include "node/LayoutRegistry.h"
#include "support/WholeTime.h"

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr std::int64_t kBytesPerMegabyte = std::int64_t{1} << 20;
/// How often rows that are too old are looked for, unless there were more than one batch removes:
/// it costs as much as a small batch.
constexpr std::int64_t kRemovalSeconds = 600;
constexpr int kFreedPages = 256;
constexpr std::int64_t kBytesOfPage = 4096;
constexpr int kKeptPages = 512 << 10;
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
  if (m_onClosing) {
    m_onClosing();
  }
  m_target = nullptr;
  m_main = {};
  m_waiting = {};
  m_sizeBytes = 0;
  m_freeBytes = 0;
  m_removedUntil.reset();
}

void HistoryStore::Open() {
  m_main.database = OpenHistoryFile(m_settings.file);
  std::error_code ignored;
  m_hasWaiting = std::filesystem::exists(WaitingFile(), ignored);
  MeasureFile();
}

SqlDatabase* HistoryStore::Database() {
  if (m_main.database == nullptr && !m_settings.file.empty()) {
    try {
      Open();
    } catch (const SqlError& error) {
      // No batch is lost by it: one at work waits in the other file.
      Tell(error, m_settings.file);
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
      m_inserted.clear();
    }
    Insert(rows, areTotals);
  } catch (const SqlError& error) {
    m_isBatchLost = true;
    Fail(error);
  }
}

void HistoryStore::Begin() {
  m_usedBefore.reset();
  m_mainInserted.clear();
  try {
    if (m_main.database == nullptr) {
      Open();
    }
    MoveWaiting();
    if (m_hasWaiting) {
      BeginWaiting();
      return;
    }
    // Whoever reads is found out now, when the batch can still go elsewhere.
    m_main.database->Execute("BEGIN EXCLUSIVE");
    m_target = &m_main;
    if (!m_usedBefore) {
      MeasureFile();
      m_usedBefore = UsedBytes();
    }
  } catch (const SqlError& error) {
    if (!error.IsBusy()) {
      throw;
    }
    m_usedBefore.reset();
    BeginWaiting();
  }
}

void HistoryStore::BeginWaiting() {
  // Before what may fail: the main file is not the one that is set aside for it.
  m_target = &m_waiting;
  if (m_waiting.database == nullptr) {
    try {
      m_waiting.database = OpenHistoryFile(WaitingFile());
    } catch (const SqlError& error) {
      if (!error.IsBroken()) {
        throw;
      }
      SetWaitingAside(error);
      m_waiting.database = OpenHistoryFile(WaitingFile());
    }
  }
  m_hasWaiting = true;
  SqlDatabase& database = *m_waiting.database;
  // What was moved has left free pages.
  if (UsedFileBytes(database) > m_settings.waitingMegabytes * kBytesPerMegabyte) {
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
  MeasureFile();
  m_usedBefore = UsedBytes();
  const std::string file = WaitingFile();
  try {
    MovedRows moved = m_mover.Move(*m_main.database, file, m_inserted);
    m_hasWaiting = moved.isMore;
    m_mainInserted = std::move(moved.rows);
    for (const TableFit& fit : moved.fits) {
      NoteFit(fit);
    }
  } catch (const SqlError& error) {
    if (!error.IsBroken() || IsWholeHistory(file)) {
      throw;
    }
    Close();
    SetWaitingAside(error);
    Open();
  }
  if (!m_hasWaiting) {
    std::remove(file.c_str());
  }
  MeasureFile();
}

void HistoryStore::SetWaitingAside(const SqlError& error) {
  const std::string file = WaitingFile();
  SetAside(file);
  m_report("History: " + file + " is damaged (" + error.what() + "); it is set aside.");
}

void HistoryStore::NoteFit(const TableFit& fit) {
  if (!fit.told.empty()) {
    m_notices.push_back("History: " + fit.told + ".");
  }
  if (m_usedBefore && m_target != &m_waiting) {
    // No rows go at once for an index: it is made once, and may be as large as many of them.
    *m_usedBefore += fit.indexBytes;
  }
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
  m_inserted[rows.record] += std::ssize(rows.rows);
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
  if (std::exchange(m_isBatchLost, false)) {
    return;
  }
  if (m_target == nullptr) {
    // It is kept; memory has lacked while old rows were removed behind it.
    if (m_main.database != nullptr && m_main.database->IsInTransaction()) {
      Close();
    }
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
      m_inserted[kTotalsTable] = m_target->totals->TakeInserted();
    }
    if (isMain) {
      // Within the batch, where the file needs no locks of its own for that.
      MeasureFile();
      for (const auto& [table, rows] : m_inserted) {
        m_mainInserted[table] += rows;
      }
    }
    Commit();
  } catch (const SqlError& error) {
    Fail(error);
    return;
  }
  if (m_usedBefore) {
    // Twice what was added goes: else the file would grow for ever.
    RemoveAfterBatch(2 * *m_usedBefore - UsedBytes());
  }
}

void HistoryStore::RemoveAfterBatch(std::int64_t goal) {
  try {
    RemoveOld();
    RemoveExcess(goal);
    // It has moved rows, too, where the batch itself waits.
    m_main.database->TrimPages(kKeptPages);
  } catch (const SqlError& error) {
    if (!error.IsBusy()) {
      // The batch itself is kept.
      Close();
      Tell(error, m_settings.file);
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
  if (m_main.database != nullptr && !std::exchange(m_problem, {}).empty()) {
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
  m_main.database->Execute("BEGIN IMMEDIATE");
  const bool isMore = RemoveRowsBefore(*m_main.database, end, m_mainInserted);
  MeasureFile();
  m_main.database->Execute("COMMIT");
  if (!isMore) {
    m_removedUntil = end;
  }
}

void HistoryStore::RemoveExcess(std::int64_t goal) {
  const std::int64_t limit = m_settings.megabytes * kBytesPerMegabyte;
  const auto end = std::chrono::steady_clock::now() + kRemovalTime;
  const auto isDue = [&] {
    return UsedBytes() > limit && (UsedBytes() > goal || std::chrono::steady_clock::now() < end);
  };
  if (isDue()) {
    // All at once, as the disk is waited for at the end of each transaction.
    m_main.database->Execute("BEGIN IMMEDIATE");
    OldestRows rows(*m_main.database);
    for (std::int64_t parts = 1; isDue();) {
      parts = rows.Remove(parts);
      if (parts == 0) {
        break;
      }
      const std::int64_t before = UsedBytes();
      MeasureFile();
      const std::int64_t freed = std::max((before - UsedBytes()) / parts, kBytesOfPage);
      const std::int64_t due = (UsedBytes() - std::max(goal, limit)) / freed;
      // Of a table without an index a large part takes little longer than a small one.
      parts =
          std::chrono::steady_clock::now() < end ? 1 : std::clamp<std::int64_t>(due, 1, 8 * parts);
    }
    m_main.database->Execute("COMMIT");
  }
  if (m_freeBytes > 0) {
    m_main.database->Execute("PRAGMA incremental_vacuum(" + std::to_string(kFreedPages) + ")");
    MeasureFile();
  }
}

void HistoryStore::Fail(const SqlError& error) {
  ++m_lostBatches;
  m_notices.clear();
  const std::string file = m_target == &m_waiting ? WaitingFile() : m_settings.file;
  Close();
  Tell(error, file);
}

void HistoryStore::Tell(const SqlError& error, const std::string& file) {
  const bool isBroken = error.IsBroken();
  if (isBroken) {
    SetAside(file);
  }
  // Each reason is told once, until a batch is written again.
  if (m_problem != error.what()) {
    m_problem = error.what();
    m_report("History: " + (isBroken ? file : m_settings.file) + " can't be written: " + m_problem +
             (isBroken ? ". It is set aside, a new one is begun." : ". Collection goes on."));
  }
}

void HistoryStore::SetAside(const std::string& file) {
  if (const std::string reason = SetHistoryAside(file); !reason.empty()) {
    m_report("History: " + file + " can't be renamed: " + reason);
  }
}
