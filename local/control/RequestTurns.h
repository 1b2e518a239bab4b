#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "local/control/ControlRequest.h"
#include "local/loop/EventLoop.h"

/// How long one turn works at an answer.
inline constexpr std::chrono::milliseconds kRequestTurn{10};

/// One turn at an answer; true if it needs another. The last one answers the request.
using RequestTurn = std::function<bool()>;

/// Takes the first turn now and each other one when its time in the loop comes, so that others are
/// served in between. The request fails with no-memory, and with stopping where the loop ends
/// first; a client that has gone is told nothing, and no further turn is taken for it. The loop
/// outlives the request.
void TakeTurns(EventLoop& loop, const std::shared_ptr<ControlRequest>& request, RequestTurn turn);
