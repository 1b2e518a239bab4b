#include "local/control/RequestTurns.h"

#include <new>
#include <utility>

void TakeTurns(EventLoop& loop, const std::shared_ptr<ControlRequest>& request, RequestTurn turn) {
  if (request->Peer().IsGone()) {
    request->Peer().Answer("");
    return;
  }
  try {
    if (!turn()) {
      return;
    }
    LoopTask task;
    task.run = [&loop, request, turn = std::move(turn)](CMBNode&) mutable {
      TakeTurns(loop, request, std::move(turn));
    };
    task.drop = [request] { request->Fail(StoppingError()); };
    loop.Post(std::move(task));
  } catch (const std::bad_alloc&) {
    request->FailForMemory();
  }
}
