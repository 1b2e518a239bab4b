#pragma once

#include <functional>
#include <memory>

#include "local/control/RequestTurns.h"
#include "local/history/HistoryStore.h"

/// A RequestTurn at an answer from the history. May throw SqlError.
using HistoryTurn = std::function<bool(SqlDatabase& database)>;

/// Requests that read the history, in turns with all others that take long.
class HistoryTurns {
 public:
  /// Both outlive the requests.
  HistoryTurns(RequestTurns& turns, HistoryStore& store) : m_turns(turns), m_store(store) {}

  /// The request fails with no-history where the history can't be read (any more), besides what
  /// RequestTurns fails it with.
  void Add(std::shared_ptr<ControlRequest> request, HistoryTurn turn);

 private:
  RequestTurns& m_turns;
  HistoryStore& m_store;
};
