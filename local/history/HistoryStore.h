#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "local/history/HistoryTables.h"
#include "local/history/OldRows.h"
#include "local/history/Sql.h"
#include "local/history/TotalsTable.h"
#include "local/history/WaitingRows.h"
#include "local/log/ProblemReport.h"
#include "local/schedule/RecordSink.h"

/// What is kept, and how much of it.
struct HistorySettings {
  std::string file = "records.db";  ///< below the working directory; empty: nothing is kept
  int days = 14;
  int megabytes = 512;
  int waitingMegabytes = 64;  ///< what may wait beside the file while somebody reads it
};

/// Keeps the rows of the schedules in an SQL database, a table per record (HistoryTables.h), and
/// one for the totals of all (TotalsTable.h). Each batch is one transaction: a kill at any moment
/// loses the batch at work and no more. Rows that are too old, which is looked for every 10
/// minutes, and the oldest ones while the file is too large, go in small steps after a batch.
///
/// While somebody reads the file nobody can write it. Batches then go into a second one beside it,
/// FILE-waiting, from where they are moved in small steps as soon as the readers have gone; it goes
/// when it is empty, and until then further batches go behind what waits. So the rows of a table
/// come into it in the order in which they were made, those of one time together, and their numbers
/// grow with it, unless the table has been empty in between. Beyond its limit batches are lost and
/// told of, like those of any failure.
///
/// A failure is reported once and costs the batch; the next one is tried again, and the first that
/// is written says so. A file that is no database, or a damaged one, is set aside under another
/// name. Nothing here throws. For one thread.
class HistoryStore : public RecordSink {
 public:
  explicit HistoryStore(ProblemReport report);
  ~HistoryStore() override;

  /// Closes the file at work. The new one is opened at the next batch.
  void Configure(HistorySettings settings);
  void Take(const ScheduledRows& rows) override { Keep(rows, false); }
  void TakeTotals(const ScheduledRows& rows) override { Keep(rows, true); }
  void EndBatch() override;
  void AbandonBatch() override;

  /// Calls `closing` each time before the open file is closed, when its statements have to go: one
  /// that is left keeps the file open. In place of the one before; null: nobody.
  void OnClosing(std::function<void()> closing) { m_onClosing = std::move(closing); }

  [[nodiscard]] const HistorySettings& Settings() const { return m_settings; }
  /// The open file; made or opened if need be. Null if there is none, or if that fails, which costs
  /// no batch.
  [[nodiscard]] SqlDatabase* Database();
  /// What is wrong at the moment; empty if nothing.
  [[nodiscard]] const std::string& Problem() const { return m_problem; }
  /// Bytes of the file, its free pages included; 0 while it is not open.
  [[nodiscard]] std::int64_t SizeBytes() const { return m_sizeBytes; }
  /// Batches that could not be kept, since the start.
  [[nodiscard]] std::uint64_t LostBatches() const { return m_lostBatches; }

 private:
  struct Table;
  /// An open database with the statements that write it.
  struct Book {
    std::unique_ptr<SqlDatabase> database;
    std::map<std::pair<std::string, unsigned char>, std::unique_ptr<Table>> tables;
    std::unique_ptr<TotalsTable> totals;  ///< null until there are some
  };

  [[nodiscard]] std::string WaitingFile() const { return m_settings.file + "-waiting"; }
  void Open();
  void Close();
  void Begin();
  void BeginWaiting();
  void MoveWaiting();
  void SetWaitingAside(const SqlError& error);
  void NoteFit(const TableFit& fit);
  void Keep(const ScheduledRows& rows, bool areTotals);
  void Insert(const ScheduledRows& rows, bool areTotals);
  [[nodiscard]] Table* FindTable(const ScheduledRows& rows);
  [[nodiscard]] static std::int64_t TimeOf(const CMBRecord& row, std::time_t near);
  void Commit();
  /// Sets the sizes of the main file.
  void MeasureFile();
  [[nodiscard]] std::int64_t UsedBytes() const { return m_sizeBytes - m_freeBytes; }
  /// What fails here costs no batch.
  void RemoveAfterBatch(std::int64_t goal);
  void RemoveOld();
  /// Down to the limit, or as far as `goal` and the time for it allow.
  void RemoveExcess(std::int64_t goal);
  /// Gives up the batch at work, and what is open.
  void Fail(const SqlError& error);
  /// Sets the file aside if it is broken.
  void Tell(const SqlError& error, const std::string& file);
  void SetAside(const std::string& file);

  HistorySettings m_settings;
  ProblemReport m_report;
  std::function<void()> m_onClosing;
  Book m_main;
  Book m_waiting;
  Book* m_target = nullptr;    ///< that of the batch at work; null outside one
  bool m_hasWaiting = false;   ///< whether rows wait to be moved
  bool m_isBatchLost = false;  ///< nothing more of the batch at work is taken
  std::string m_problem;
  std::vector<std::string> m_notices;  ///< told once the batch at work is written
  std::int64_t m_sizeBytes = 0;
  std::int64_t m_freeBytes = 0;  ///< those of m_sizeBytes that no row needs
  /// UsedBytes() before the batch at work, and what was moved before it; with the indexes that were
  /// made for them. None while the main file can't be written.
  std::optional<std::int64_t> m_usedBefore;
  InsertedRows m_inserted;                     ///< by the batch at work, or else the last one
  InsertedRows m_mainInserted;                 ///< into the main file, by moving too
  std::optional<std::int64_t> m_removedUntil;  ///< what was older has gone; not known at first
  std::uint64_t m_lostBatches = 0;
  WaitingRows m_mover;
};
