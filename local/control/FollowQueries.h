#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "local/control/ControlRequest.h"
#include "local/schedule/RecordSink.h"

/// The operation `follow`: what the schedules collect is told to who asked for it, batch by batch.
/// The rows are those that LastRows keeps, and are put into words as a follower takes them.
class FollowQueries : public RecordSink {
 public:
  /// Batches that may wait for a follower; with one more it is dropped.
  static constexpr std::size_t kMostBehind = 8;

  /// `lastRows` takes each batch's rows before this one does.
  explicit FollowQueries(const LastRows& lastRows) : m_lastRows(lastRows) {}
  ~FollowQueries() override;

  void Follow(const std::shared_ptr<ControlRequest>& request);
  void Take(const ScheduledRows& rows) override;
  void EndBatch() override;

 private:
  struct Rows;
  struct Batch;
  class Follower;

  const LastRows& m_lastRows;
  std::shared_ptr<Batch> m_batch;  ///< what EndBatch is to give; null where nobody follows
  std::vector<std::shared_ptr<Follower>> m_followers;
};
