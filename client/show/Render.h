#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"
#include "client/show/Terminal.h"

/// How the rows of records are printed.
enum class Format { kTable, kJson, kJsonLine, kCsv };

/// One record with what it takes to show it.
struct ShownRecord {
  RecordAnswer answer;
  Schema schema;  ///< without fields if the daemon has no layout to tell
};

/// A line of labels and a line for each row; values with a comma, a quote or a line end are quoted
/// as RFC 4180 has it. An empty text for no rows. For a terminal, texts are made safe.
[[nodiscard]] std::string CsvText(const Json& rows, bool isForTerminal = WritesToTerminal());

/// The same of rows that come in parts: the labels stand above the first ones. Throws ClientError
/// for a label that these do not have.
class CsvRows {
 public:
  [[nodiscard]] std::string Text(const Json& rows, bool isForTerminal = WritesToTerminal());

 private:
  std::optional<std::vector<std::string>> m_labels;
};

/// The rows as a table, or under the headings that the schema names: times as local date and time,
/// floats with up to three decimals; file systems as df(1) has them. An empty text for no rows.
[[nodiscard]] std::string RowsText(const ShownRecord& record, const Screen& screen);

/// The same of rows that come in parts. The lines of a table go on, its columns as wide as they
/// were at least; of one that is too wide for a line, and of file systems, each part is a table.
class RowsTable {
 public:
  /// `record` has the next rows.
  [[nodiscard]] std::string Text(const ShownRecord& record, const Screen& screen);

 private:
  std::vector<ColumnStyle> m_styles;
  std::optional<Table> m_table;
  bool m_isBegun = false;
};

/// A length of time as "1d 02:03:04"; "?" for what is none.
[[nodiscard]] std::string DurationText(double seconds);

[[nodiscard]] std::string SchemaText(const Schema& schema, const Screen& screen);
[[nodiscard]] std::string ListingText(const std::vector<Listing>& records, const Screen& screen);
[[nodiscard]] std::string StatusText(const Status& status, const Screen& screen);
[[nodiscard]] std::string ScheduleText(const std::vector<Schedule>& schedules,
                                       const Screen& screen);
