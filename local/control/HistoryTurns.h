#pragma once

#include <chrono>
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

/// The open history, or why there is none.
[[nodiscard]] std::optional<ControlError> CheckHistory(HistoryStore& store);
/// What a client is told when reading the history fails.
[[nodiscard]] ControlError HistoryError(const std::string& reason);

/// Takes the first turn now and each other one when its time in the loop comes, so that others are
/// served in between. The request fails with no-history where the history can't be read (any more),
/// and with no-memory; a client that has gone is told nothing. Loop and store outlive the request.
void TakeHistoryTurns(EventLoop& loop, HistoryStore& store,
                      const std::shared_ptr<ControlRequest>& request, HistoryTurn turn);
