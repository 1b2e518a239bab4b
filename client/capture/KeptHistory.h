#pragma once

#include <cstdint>
#include <string>

#include "client/ask/Connection.h"

/// Writes the rows that the daemon has kept from `since` to `until`, seconds since the epoch, of
/// the records that it serves, on a schedule or not: history/RECORD.jsonl in `folder`, a row a
/// line, the oldest first. Returns how many there are; a record without rows has no file. Writes
/// nothing elsewhere, whatever the daemon names. Throws ClientError, Interrupted.
std::uint64_t WriteKeptHistory(Connection& connection, const std::string& folder,
                               std::int64_t since, std::int64_t until);
