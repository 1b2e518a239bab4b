#pragma once

#include <functional>
#include <memory>

#include "local/control/RequestTurns.h"
#include "local/history/HistoryStore.h"

/// A RequestTurn at an answer from the history. May throw SqlError.
using HistoryTurn = std::function<bool(SqlDatabase& database)>;

/// Adds the request to `turns` with the database, which may close in between: the request fails
/// with no-history where the history can't be read (any more). The store outlives the request as
/// well.
void TakeHistoryTurns(RequestTurns& turns, HistoryStore& store,
                      const std::shared_ptr<ControlRequest>& request, HistoryTurn turn);
