#pragma once

#include <span>

#include "json/RowCondition.h"
#include "node/LayoutRegistry.h"

/// Whether some row may fulfil all of the conditions at once: of a field, no two that shut each
/// other out, and nothing below 0 of what never is. `isPredicted`: numbers are where a line leads,
/// which may be anything. True where it can't be told.
[[nodiscard]] bool MayHold(std::span<const RowCondition> conditions, const RecordLayout& layout,
                           bool isPredicted);
/// Whether each row that fulfils all `conditions`, of none each row, fulfils all `others` as well.
/// False where it can't be told.
[[nodiscard]] bool Implies(std::span<const RowCondition> conditions,
                           std::span<const RowCondition> others, const RecordLayout& layout,
                           bool isPredicted);
