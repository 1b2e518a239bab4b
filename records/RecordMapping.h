#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "collect/CategoryFlags.h"
#include "node/RecordRequest.h"
#include "support/UtlError.h"

class RecordBuilder;

/// A builder answers one request of one event: it appends finished records to the event's list.
/// Null for success, else an error that the caller owns.
using RecordBuilderFunction = UtlError* (RecordBuilder::*)(CMBRecordRequestEvent*,
                                                           CMBRecordRequest*);

/// One row from a record's name and category to what it needs. Names live as long as the process.
struct RecordMapping {
  std::uint32_t category;  ///< '4' interval, '3' detail
  const char* name;
  std::uint32_t collectionFlags;  ///< the categories of figures that the record needs
  std::uint32_t extraFlags;
  RecordBuilderFunction builder;
  CollectionMask modernFlags = 0;  ///< what the profile `modern` collects for it besides
};

/// A record that a site may switch on by name.
struct OptionalRecord {
  const char* name;
  std::uint32_t bit;
};

inline constexpr std::uint32_t kOptionalUFSS = 0x400;

/// The records in force, in search order.
[[nodiscard]] std::span<const RecordMapping> UnixBaseRecordMappings();
/// Those that stand behind them under the profile `modern`.
[[nodiscard]] std::span<const RecordMapping> ModernRecordMappings();
/// The pool that optional rows are taken from.
[[nodiscard]] std::span<const RecordMapping> PoolRecordMappings();
[[nodiscard]] std::span<const OptionalRecord> OptionalRecordTable();

/// What the site's file of optional records asks for.
struct OptionalRecordChoice {
  std::uint32_t mask = 0;
  std::int32_t count = 0;
};

/// Reads /opt/qmtrx/mond/agent/optrecs.dat, one name a line, at most 100 lines. A missing, empty or
/// unreadable file chooses nothing; every fault is traced.
[[nodiscard]] OptionalRecordChoice ReadOptrecsFile();

/// What is wrong in a file of optional records, with the line, counted from 1.
using OptionalRecordFault = std::function<void(int line, const std::string& what)>;

/// The same for the file at `path`, which is taken as it is.
[[nodiscard]] OptionalRecordChoice ReadOptrecsFile(const std::string& path,
                                                   const OptionalRecordFault& fault);
