#pragma once

#include <cstdint>

#include "local/history/Sql.h"

/// Removes the oldest rows of each table that are older than `end`, seconds since the epoch, as
/// many as one batch may. Whether there may be more. Throws SqlError.
[[nodiscard]] bool RemoveRowsBefore(SqlDatabase& database, std::int64_t end);

/// Removes rows of the table that has the oldest one of all, the oldest ones. False if there was
/// none. Throws SqlError.
[[nodiscard]] bool RemoveOldestRows(SqlDatabase& database);
