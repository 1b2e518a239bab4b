#include "local/control/HistoryTurns.h"

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
  m_turns.Add(request, [&store = m_store, request, turn = std::move(turn)] {
    try {
      // The file may have been closed since the last turn.
      if (const auto error = CheckHistory(store)) {
        request->Fail(*error);
        return false;
      }
      return turn(*store.Database());
    } catch (const SqlError& error) {
      request->Fail(HistoryError(error.what()));
      return false;
    }
  });
}
