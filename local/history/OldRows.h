#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "local/history/Sql.h"

/// How many rows a batch has put into a table, by its name.
using InsertedRows = std::map<std::string, std::int64_t>;

/// Removes the oldest rows of each table that are older than `end`, seconds since the epoch, as
/// many as one batch may: more than it has put in. Whether there may be more. Throws SqlError.
[[nodiscard]] bool RemoveRowsBefore(SqlDatabase& database, std::int64_t end,
                                    const InsertedRows& inserted);

/// The oldest rows of all tables, which go a part at a time. Of a table without an index each look
/// for its oldest row goes through all of it: at the begin, and after each part that it gave.
class OldestRows {
 public:
  /// `database` outlives it, and is written by nobody else meanwhile. Throws SqlError, as does
  /// Remove().
  explicit OldestRows(SqlDatabase& database);
  /// Removes a small part of the table that has the oldest row of all, the oldest ones, or so many
  /// parts as far as they are no newer than the oldest row of another table: a table of few rows
  /// would lose all of its past at once. How many parts that were; 0 if no table has any row that
  /// can be removed.
  [[nodiscard]] std::int64_t Remove(std::int64_t parts);

 private:
  void Add(std::string table);

  SqlDatabase& m_database;
  std::set<std::pair<std::int64_t, std::string>> m_tables;  ///< that have rows, by the oldest one
};
