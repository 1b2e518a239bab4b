#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/control/HistoryTurns.h"
#include "local/history/HistoryStore.h"
#include "local/loop/EventLoop.h"

/// The operation `history`: rows that were kept of one record, a page at a time, or what they come
/// to in buckets of time. A page takes at most kPageMilliseconds, so that no question holds the
/// loop; the client asks on from its end. What takes longer is read in turns of the loop.
class HistoryQueries {
 public:
  static constexpr std::size_t kPageRows = 1000;
  static constexpr int kPageMilliseconds = 20;

  /// Both outlive the questions.
  HistoryQueries(RequestTurns& turns, HistoryStore& store)
      : m_store(store), m_turns(turns, store) {}

  void History(const std::shared_ptr<ControlRequest>& request);
  /// Its file, of how many bytes, and how many batches could not be kept since the start.
  [[nodiscard]] Json StateJson() const {
    return Json{{"file", m_store.Settings().file},
                {"size_bytes", m_store.SizeBytes()},
                {"lost_batches", m_store.LostBatches()}};
  }

 private:
  HistoryStore& m_store;
  HistoryTurns m_turns;
};
