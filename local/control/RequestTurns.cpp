#include "local/control/RequestTurns.h"

#include <new>
#include <utility>

void RequestTurns::Add(std::shared_ptr<ControlRequest> request, RequestTurn turn) {
  m_waiting.push_back({std::move(request), std::move(turn)});
  try {
    Post();
  } catch (const std::bad_alloc&) {
    // The caller answers it.
    m_waiting.pop_back();
    throw;
  }
}

void RequestTurns::Post() {
  if (m_waiting.empty() || m_isPosted) {
    return;
  }
  LoopTask task;
  task.run = [this](CMBNode&) { TakeNext(); };
  task.drop = [this] { Drop(); };
  m_loop.Post(std::move(task));
  m_isPosted = true;
}

void RequestTurns::TakeNext() {
  m_isPosted = false;
  Waiting next = std::move(m_waiting.front());
  m_waiting.pop_front();
  try {
    if (!TakeTurn(next)) {
      m_inARow = 0;
    } else if (++m_inARow < kInARow) {
      m_waiting.push_front(std::move(next));
    } else {
      m_inARow = 0;
      m_waiting.push_back(std::move(next));
    }
  } catch (const std::bad_alloc&) {
    m_inARow = 0;
    next.request->FailForMemory();
  }
  PostOrFail();
}

void RequestTurns::PostOrFail() {
  try {
    Post();
  } catch (const std::bad_alloc&) {
    // Nothing else would take their turns.
    for (const Waiting& waiting : std::exchange(m_waiting, {})) {
      waiting.request->FailForMemory();
    }
  }
}

bool RequestTurns::TakeTurn(const Waiting& waiting) {
  if (waiting.request->Peer().IsGone()) {
    waiting.request->Peer().Answer("");
    return false;
  }
  return waiting.turn();
}

void RequestTurns::Drop() {
  m_isPosted = false;
  for (const Waiting& waiting : std::exchange(m_waiting, {})) {
    waiting.request->Fail(StoppingError());
  }
}
