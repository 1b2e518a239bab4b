#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/history/HistoryStore.h"

/// The operation `history`: rows that were kept of one record, a page at a time. A page takes at
/// most kPageMilliseconds, so that no question holds the loop; the client asks on from its end.
class HistoryQueries {
 public:
  static constexpr std::size_t kPageRows = 1000;
  static constexpr int kPageMilliseconds = 20;

  explicit HistoryQueries(HistoryStore& store) : m_store(store) {}

  void History(const std::shared_ptr<ControlRequest>& request);

 private:
  HistoryStore& m_store;
};
