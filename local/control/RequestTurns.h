#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>

#include "local/control/ControlRequest.h"
#include "local/loop/EventLoop.h"

/// How long one turn works at an answer.
inline constexpr std::chrono::milliseconds kRequestTurn{10};

/// One turn at an answer; true if it needs another. The last one answers the request.
using RequestTurn = std::function<bool()>;

/// Requests whose answers take long, one turn of one of them at a time: however many there are,
/// what else waits in the loop, such as a batch that is due, waits for one turn only. Each request
/// has kInARow turns when the others have had theirs: several that are nearly as long end one after
/// the other, not all of them late.
class RequestTurns {
 public:
  static constexpr int kInARow = 5;

  /// The loop outlives the requests.
  explicit RequestTurns(EventLoop& loop) : m_loop(loop) {}
  RequestTurns(const RequestTurns&) = delete;
  RequestTurns& operator=(const RequestTurns&) = delete;

  /// The request fails with no-memory, and with stopping where the loop ends first; a client that
  /// has gone is told nothing, and no further turn is taken for it.
  void Add(std::shared_ptr<ControlRequest> request, RequestTurn turn);

 private:
  struct Waiting {
    std::shared_ptr<ControlRequest> request;
    RequestTurn turn;
  };

  void Post();
  void PostOrFail();
  void TakeNext();
  /// Whether it needs another turn.
  [[nodiscard]] static bool TakeTurn(const Waiting& waiting);
  void Drop();

  EventLoop& m_loop;
  std::deque<Waiting> m_waiting;
  int m_inARow = 0;         ///< turns that the first has had since it became the first
  bool m_isPosted = false;  ///< a turn stands in the loop's queue
};
