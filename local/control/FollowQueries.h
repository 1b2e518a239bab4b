#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "local/control/ControlRequest.h"
#include "local/log/ProblemReport.h"
#include "local/schedule/RecordSink.h"

/// The operation `follow`: what the schedules collect is told to who asked for it, batch by batch.
/// The rows are those that LastRows keeps, and are put into words as a follower takes them. A
/// follower that is dropped is reported.
class FollowQueries : public RecordSink {
 public:
  /// Batches that may wait for a follower; with one more it is dropped.
  static constexpr std::size_t kMostBehind = 8;
  /// Followers at a time; one more is told `busy`, but for the gate, which has those of consoles.
  static constexpr std::size_t kMostFollowers = 16;

  /// `lastRows` takes each batch's rows before this one does. Of rows that it has newer ones of, at
  /// most `mostBytes` wait for all followers; who is furthest behind is dropped for them.
  explicit FollowQueries(const LastRows& lastRows, std::size_t mostBytes = std::size_t{64} << 20U)
      : m_lastRows(lastRows), m_mostBytes(mostBytes) {}
  ~FollowQueries() override;

  void OnProblem(ProblemReport report) { m_report = std::move(report); }
  void Follow(const std::shared_ptr<ControlRequest>& request);
  void Take(const ScheduledRows& rows) override;
  void EndBatch() override;
  void AbandonBatch() override { m_batch.reset(); }

 private:
  struct Rows;
  struct Batch;
  class Follower;

  /// Drops who is furthest behind until what waits is little enough.
  void BoundBytes();

  const LastRows& m_lastRows;
  std::size_t m_mostBytes;
  ProblemReport m_report = [](const std::string&) {};
  std::uint64_t m_batches = 0;                                              ///< so many have begun
  std::shared_ptr<std::size_t> m_bytes = std::make_shared<std::size_t>(0);  ///< of rows that wait
  std::shared_ptr<Batch> m_batch;  ///< what EndBatch is to give; null where nobody follows
  std::vector<std::shared_ptr<Follower>> m_followers;
};
