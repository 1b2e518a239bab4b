#pragma once

#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/show/Terminal.h"

/// How the rows of records are printed.
enum class Format { kTable, kJson, kJsonLine, kCsv };

/// One record with what it takes to show it.
struct ShownRecord {
  RecordAnswer answer;
  Schema schema;  ///< without fields if the daemon has no layout to tell
};

/// One array of {"record", "category", "time", "rows"}, with a newline at its end; `indent` blanks
/// a level, or all in one line for -1. Takes the rows out of `records`.
[[nodiscard]] std::string RecordsJson(std::vector<ShownRecord>& records, int indent);

/// A line of labels and a line for each row; values with a comma, a quote or a line end are quoted
/// as RFC 4180 has it. An empty text for no rows. For a terminal, texts are made safe.
[[nodiscard]] std::string CsvText(const Json& rows, bool isForTerminal = WritesToTerminal());

/// The rows as a table, or under the headings that the schema names: times as local date and time,
/// floats with up to three decimals; file systems as df(1) has them. An empty text for no rows.
[[nodiscard]] std::string RowsText(const ShownRecord& record, const Screen& screen);

/// A length of time as "1d 02:03:04"; "?" for what is none.
[[nodiscard]] std::string DurationText(double seconds);

[[nodiscard]] std::string SchemaText(const Schema& schema, const Screen& screen);
[[nodiscard]] std::string ListingText(const std::vector<Listing>& records, const Screen& screen);
[[nodiscard]] std::string StatusText(const Status& status, const Screen& screen);
[[nodiscard]] std::string ScheduleText(const std::vector<Schedule>& schedules,
                                       const Screen& screen);
