#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "local/history/Sql.h"

/// How many rows a batch has put into a table, by its name.
using InsertedRows = std::map<std::string, std::int64_t>;

/// Removes the oldest rows of each table that are older than `end`, seconds since the epoch, as
/// many as one batch may: more than it has put in. Whether there may be more. Throws SqlError.
[[nodiscard]] bool RemoveRowsBefore(SqlDatabase& database, std::int64_t end,
                                    const InsertedRows& inserted);

/// Removes some rows of the table that has the oldest one of all, the oldest ones. False if no
/// table has any that can be removed. Throws SqlError.
[[nodiscard]] bool RemoveOldestRows(SqlDatabase& database);
