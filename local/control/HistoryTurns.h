#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "local/control/ControlRequest.h"
#include "local/history/HistoryStore.h"
#include "local/loop/EventLoop.h"

/// How long one turn reads the history.
inline constexpr std::chrono::milliseconds kHistoryTurn{10};

/// One turn at an answer from the history; true if it needs another. The last one answers the
/// request. May throw SqlError.
using HistoryTurn = std::function<bool(SqlDatabase& database)>;

/// Requests that read the history, one turn of one of them at a time: however many there are, what
/// else waits in the loop, such as a batch that is due, waits for one turn only. Each request has
/// its turn when the others have had theirs.
class HistoryTurns {
 public:
  /// Both outlive the requests.
  HistoryTurns(EventLoop& loop, HistoryStore& store) : m_loop(loop), m_store(store) {}
  HistoryTurns(const HistoryTurns&) = delete;
  HistoryTurns& operator=(const HistoryTurns&) = delete;

  /// The request fails with no-history where the history can't be read (any more), and with
  /// no-memory; a client that has gone is told nothing.
  void Add(std::shared_ptr<ControlRequest> request, HistoryTurn turn);

 private:
  struct Waiting {
    std::shared_ptr<ControlRequest> request;
    HistoryTurn turn;
  };

  void Post();
  void TakeNext();
  /// Whether it needs another turn.
  [[nodiscard]] bool TakeTurn(const Waiting& waiting);
  void Drop();

  EventLoop& m_loop;
  HistoryStore& m_store;
  std::deque<Waiting> m_waiting;
  bool m_isPosted = false;  ///< a turn stands in the loop's queue
};
