#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "local/history/Sql.h"

/// Opens the file or makes it, as the history keeps it: with a journal beside it while a batch is
/// being written, and pages that are given back. A statement waits 20 ms for others. Throws
/// SqlError, also for what is no regular file.
[[nodiscard]] std::unique_ptr<SqlDatabase> OpenHistoryFile(const std::string& file);

/// Whether the file is a database without damage, or can't be judged for the moment.
[[nodiscard]] bool IsWholeHistory(const std::string& file);

/// Renames the file, and its journal with it, to FILE.broken-DATE-TIME. The reason if that fails,
/// else empty.
[[nodiscard]] std::string SetHistoryAside(const std::string& file);

/// What so many pages of the file take.
[[nodiscard]] std::int64_t PageBytes(SqlDatabase& database, std::int64_t pages);
/// What those of its pages take that hold something.
[[nodiscard]] std::int64_t UsedFileBytes(SqlDatabase& database);
