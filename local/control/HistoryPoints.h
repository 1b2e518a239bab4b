#pragma once

#include <memory>
#include <optional>
#include <variant>

#include "local/control/HistoryTurns.h"
#include "local/control/RowChoices.h"

/// The part of `history` that answers with buckets of time instead of rows: the members `points`
/// and `by`.
struct PointsRequest {
  const RecordLayout* layout;
  RowChoices choices;  ///< with 1 to 16 numeric columns
  std::vector<std::size_t> by;
  std::int64_t points;
  std::optional<std::int64_t> since;  ///< none: the oldest row's time
  std::optional<std::int64_t> until;  ///< none: now
};

/// What the request wants, or what is wrong with it; `message` has the member `points` or `by`.
[[nodiscard]] std::variant<PointsRequest, ControlError> ReadPoints(
    const Json& message, const RecordLayout& layout, const RowChoices& choices,
    std::optional<std::int64_t> since, std::optional<std::int64_t> until);

/// Answers the request, in as many turns as reading the rows takes.
void AnswerPoints(HistoryTurns& turns, const std::shared_ptr<ControlRequest>& request,
                  const PointsRequest& wanted);
