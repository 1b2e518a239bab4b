#pragma once

#include <cstdint>
#include <string>

#include "client/ask/Connection.h"
#include "client/capture/CaptureFolder.h"

/// How much is taken of a daemon's history, whoever answers.
struct HistoryLimits {
  /// Of a record. Twice as many are read of a file: addresses may get longer by their stand-ins.
  std::uint64_t recordBytes = kMostFileBytes / 2;
  std::uint64_t allBytes = std::uint64_t{2} << 30U;  ///< half of what an archive may unpack to
};

/// Writes the rows that the daemon has kept from `since` to `until`, seconds since the epoch, of
/// the records that it serves, on a schedule or not: history/RECORD.jsonl in `folder`, a row a
/// line, the oldest first. Rows beyond the limits are left out, and that is told. Returns how many
/// there are; a record without rows has no file. Writes nothing elsewhere, whatever the daemon
/// names. Throws ClientError, Interrupted.
std::uint64_t WriteKeptHistory(Connection& connection, const std::string& folder,
                               std::int64_t since, std::int64_t until,
                               const HistoryLimits& limits = {});
