#include "local/control/HistoryTurns.h"

#include <new>
#include <utility>

namespace {

ControlError HistoryError(const std::string& reason) {
  return {"no-history", "the history can't be read: " + reason, ""};
}

/// Why there is no open history.
std::optional<ControlError> CheckHistory(HistoryStore& store) {
  if (store.Settings().file.empty()) {
    return ControlError{"no-history", "the daemon keeps no history", ""};
  }
  if (store.Database() == nullptr) {
    return HistoryError(store.Problem());
  }
  return std::nullopt;
}

}  // namespace

void HistoryTurns::Add(std::shared_ptr<ControlRequest> request, HistoryTurn turn) {
  if (const auto error = CheckHistory(m_store)) {
    request->Fail(*error);
    return;
  }
  m_waiting.push_back({std::move(request), std::move(turn)});
  Post();
}

void HistoryTurns::Post() {
  if (m_waiting.empty() || m_isPosted) {
    return;
  }
  LoopTask task;
  task.run = [this](CMBNode&) { TakeNext(); };
  task.drop = [this] { Drop(); };
  m_loop.Post(std::move(task));
  m_isPosted = true;
}

void HistoryTurns::TakeNext() {
  m_isPosted = false;
  Waiting next = std::move(m_waiting.front());
  m_waiting.pop_front();
  try {
    if (TakeTurn(next)) {
      m_waiting.push_back(std::move(next));
    }
  } catch (const SqlError& error) {
    next.request->Fail(HistoryError(error.what()));
  } catch (const std::bad_alloc&) {
    next.request->FailForMemory();
  }
  Post();
}

bool HistoryTurns::TakeTurn(const Waiting& waiting) {
  if (waiting.request->Peer().IsGone()) {
    waiting.request->Peer().Answer("");
    return false;
  }
  // The file may have been closed since the last turn.
  if (const auto error = CheckHistory(m_store)) {
    waiting.request->Fail(*error);
    return false;
  }
  return waiting.turn(*m_store.Database());
}

void HistoryTurns::Drop() {
  m_isPosted = false;
  for (const Waiting& waiting : std::exchange(m_waiting, {})) {
    waiting.request->Fail(StoppingError());
  }
}
