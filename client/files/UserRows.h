#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/ask/Connection.h"
#include "support/UserFileFormat.h"

/// Rows of user records as an operator writes them: labels of columns, and under them cells.
struct UserTable {
  struct Row {
    std::size_t line = 0;  ///< in the file, from 1
    std::vector<std::string> cells;
  };
  std::vector<std::string> labels;
  std::vector<Row> rows;
};

/// What is wrong or doubtful in a line of a file.
struct UserFault {
  std::size_t line = 0;
  std::string text;
};

/// Records as they stand in the agent's file, or why they can't be made.
struct UserRecords {
  std::string bytes;
  std::vector<std::size_t> lines;  ///< of each record
  std::vector<UserFault> faults;   ///< kMaxUserFaults at most
  std::vector<UserFault> warnings;
};
inline constexpr std::size_t kMaxUserFaults = 50;

/// Reads comma-separated values as RFC 4180 has them, or, where the text begins with '[' or '{',
/// JSON: an array of objects or one object a line. Faults are added to `faults`; the table then
/// holds what could be read.
[[nodiscard]] UserTable ReadUserTable(std::string_view text, std::vector<UserFault>& faults);

/// Makes the records of a kind. A column that is not there is 0 or empty in each row, an empty
/// `Collect Time` is `now`.
[[nodiscard]] UserRecords MakeUserRecords(const UserFileKind& kind, const UserTable& table,
                                          std::int64_t now);

/// The rows of records, by their labels; times are whole seconds.
[[nodiscard]] Json UserRowsJson(const UserFileKind& kind, std::string_view records);
