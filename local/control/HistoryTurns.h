#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "local/control/RequestTurns.h"
#include "local/history/HistoryStore.h"

/// A RequestTurn at an answer from the history. May throw SqlError.
using HistoryTurn = std::function<bool(SqlDatabase& database)>;

/// The open history, or why there is none.
[[nodiscard]] std::optional<ControlError> CheckHistory(HistoryStore& store);
/// What a client is told when reading the history fails.
[[nodiscard]] ControlError HistoryError(const std::string& reason);

/// TakeTurns with the database, which may close in between: the request fails with no-history where
/// the history can't be read (any more). The store outlives the request as well.
void TakeHistoryTurns(EventLoop& loop, HistoryStore& store,
                      const std::shared_ptr<ControlRequest>& request, HistoryTurn turn);
