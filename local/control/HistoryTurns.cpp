#include "local/control/HistoryTurns.h"

#include <new>
#include <utility>

ControlError HistoryError(const std::string& reason) {
  return {"no-history", "the history can't be read: " + reason, ""};
}

std::optional<ControlError> CheckHistory(HistoryStore& store) {
  if (store.Settings().file.empty()) {
    return ControlError{"no-history", "the daemon keeps no history", ""};
  }
  if (store.Database() == nullptr) {
    return HistoryError(store.Problem());
  }
  return std::nullopt;
}

void TakeHistoryTurns(EventLoop& loop, HistoryStore& store,
                      const std::shared_ptr<ControlRequest>& request, HistoryTurn turn) {
  if (request->Peer().IsGone()) {
    request->Peer().Answer("");
    return;
  }
  try {
    // The file may have been closed since the last turn.
    if (const auto error = CheckHistory(store)) {
      request->Fail(*error);
      return;
    }
    if (!turn(*store.Database())) {
      return;
    }
    LoopTask task;
    task.run = [&loop, &store, request, turn = std::move(turn)](CMBNode&) {
      TakeHistoryTurns(loop, store, request, turn);
    };
    task.drop = [request] { request->Fail(StoppingError()); };
    loop.Post(std::move(task));
  } catch (const SqlError& error) {
    request->Fail(HistoryError(error.what()));
  } catch (const std::bad_alloc&) {
    request->FailForMemory();
  }
}
