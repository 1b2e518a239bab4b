#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "node/Record.h"

/// What one schedule's batch has made of one record.
struct ScheduledRows {
  const char* record;
  unsigned char category;
  std::time_t time;  ///< seconds since the epoch at which the rows were built
  std::span<const CMBRecord* const> rows;
  std::shared_ptr<const void> owner{};  ///< of the rows; without one they live for the call only
  std::uint64_t schedule = 0;           ///< the number of ScheduleBook::Entry
  bool lacksFigures = false;            ///< that a row is not there tells nothing
};

/// Takes the finished rows of the schedules, on the loop's thread.
class RecordSink {
 public:
  virtual ~RecordSink() = default;
  /// An empty set of rows is given too.
  virtual void Take(const ScheduledRows& rows) = 0;
  /// The same look's rows without rates, where somebody wants them: counters are totals there. The
  /// time is that of the rows with rates, though a second may have begun between the two.
  virtual void TakeTotals(const ScheduledRows&) {}
  /// All records of the batch have been given.
  virtual void EndBatch() {}
  /// No more of the batch comes, as memory has ended: what has been given of it is no batch. Does
  /// not throw.
  virtual void AbandonBatch() {}
};

/// Hands the rows on to several sinks, which it does not own.
class RecordSinks : public RecordSink {
 public:
  explicit RecordSinks(std::vector<RecordSink*> sinks) : m_sinks(std::move(sinks)) {}
  /// Adds one behind those that are there.
  void Add(RecordSink& sink) { m_sinks.push_back(&sink); }
  void Take(const ScheduledRows& rows) override;
  void TakeTotals(const ScheduledRows& rows) override;
  void EndBatch() override;
  void AbandonBatch() override;

 private:
  std::vector<RecordSink*> m_sinks;
};

/// Rows of one record, as they were at one time.
struct KeptRows {
  std::time_t time = 0;  ///< 0 until there are any
  std::vector<std::span<const unsigned char>> rows;
  std::shared_ptr<const void> owner;  ///< of their bytes
  std::uint64_t schedule = 0;         ///< as in ScheduledRows
  bool lacksFigures = false;          ///< the same

  /// Those of records; without an owner of theirs they are copied.
  [[nodiscard]] static KeptRows Of(const ScheduledRows& rows);
};

/// Keeps the last rows of each record in memory.
class LastRows : public RecordSink {
 public:
  void Take(const ScheduledRows& rows) override;
  /// Never null: no rows until the record has been taken once. They stay as they are for as long as
  /// somebody holds them.
  [[nodiscard]] std::shared_ptr<const KeptRows> Find(const std::string& record,
                                                     unsigned char category) const;

 private:
  std::map<std::pair<std::string, unsigned char>, std::shared_ptr<const KeptRows>> m_kept;
};
