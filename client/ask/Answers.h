#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/ask/Connection.h"

/// A record as the operator names it: "CPUP", or "4:CPUP" with its category.
struct RecordName {
  std::string name;
  std::string category;  ///< "4", "3", or empty for whichever has the name

  /// As the control protocol writes it.
  [[nodiscard]] Json ToJson() const;
  [[nodiscard]] std::string Text() const;
};

/// Throws UsageError for what cannot be the name of a record.
[[nodiscard]] RecordName ParseRecordName(std::string_view text);

/// Whether it is of the letters that names and categories of records have, and of no more of them
/// than the name of a file takes: nothing that a shell takes for more or that leads out of a
/// folder.
[[nodiscard]] bool IsPlainName(std::string_view name);

/// What one record was answered with: rows, or an error.
struct RecordAnswer {
  std::string record;
  std::string category;
  std::int64_t time = 0;      ///< seconds since the epoch at which the rows were built
  Json rows = Json::Array();  ///< array of objects of plain values
  std::string error;          ///< empty if there are rows
};

/// Some of the rows that were kept of a record.
struct HistoryPage {
  RecordAnswer answer;
  Json next;  ///< what the request for the following page says as "after"; null at the end
};

struct Field {
  std::string label;
  std::string type;  ///< "ulong", "utime", "char[40]"
  std::uint64_t offset = 0;
  std::uint64_t width = 0;
  std::string meaning;      ///< "key", "time", "percent" and so on
  std::string group;        ///< the heading that it stands under, empty for none
  std::string rateOf = {};  ///< of a rate: the label of the counter that it divides, empty for none
  bool needsTwoLooks = false;  ///< only says something of the time between two looks
  std::string help = {};       ///< what it is for, empty if the daemon does not say
  bool hasSource = true;
};

/// A column of the table of who has chosen none.
struct ShownColumn {
  std::string label;
  std::string heading;
};

struct Schema {
  std::string record;
  std::string structure;
  std::string category;
  std::uint64_t size = 0;
  std::vector<Field> fields;
  std::string about = {};               ///< what a row tells, empty if the daemon does not say
  std::vector<ShownColumn> shown = {};  ///< in their order; none for all fields
};

struct Listing {
  std::string record;
  std::string category;
  bool served = false;
};

struct Schedule {
  std::string record;
  std::string category;
  double seconds = 0;
  std::uint64_t runs = 0;
  std::uint64_t rows = 0;
  std::int64_t lastTime = 0;  ///< seconds since the epoch, 0 if it never ran
  std::uint64_t skipped = 0;
};

struct LastBatch {
  bool any = false;
  double ageSeconds = 0;
  double durationSeconds = 0;
  std::uint64_t records = 0;
  std::uint64_t errors = 0;
};

struct Status {
  std::int64_t pid = 0;
  double uptimeSeconds = 0;
  std::string version;
  std::string node;
  std::string host;
  std::string http;         ///< the address of the metrics; empty if there is none
  std::string hostProfile;  ///< empty if the agent does not say, as the next two
  std::string kernelVariant;
  std::string processSource;        ///< "iterator" or "proc"; empty if the agent does not say
  std::string processSourceReason;  ///< why it is no iterator
  std::string skippedProcesses;     ///< that the last collection has no row for
  std::vector<Schedule> schedules;
  LastBatch lastBatch;
  LastBatch lastScheduledBatch;  ///< of an older daemon the last one of any kind
};

/// A place of the daemon's configuration tree.
struct ConfigNode {
  enum class Kind { kFolder, kText, kChoice };

  Kind kind = Kind::kFolder;
  std::string label;
  std::string help;
  std::vector<ConfigNode> children;  ///< of a folder
  std::uint64_t id = 0;              ///< of an item, 0 to 65535
  std::string value;                 ///< of an item, empty for a choice that has none
  std::uint64_t current = 0;         ///< of a choice, the index of its value
  std::vector<std::string> choices;  ///< of a choice, empty if the daemon can't tell them
};

/// What came of a change.
struct ConfigOutcome {
  enum class Kind { kDone, kRefused, kNotWritten, kFailed };

  Kind kind = Kind::kFailed;
  std::int64_t code = 0;  ///< the agent's own number for it
};

/// A report that the agent made: each row as long as the columns.
struct ReportTable {
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> notes;
};

// What the daemon answered, checked member by member. Each throws ClientError, naming the member,
// for an answer that is not what the control protocol promises.

/// What a result of "get" or "last" says beside its rows, which must be that of `asked`.
[[nodiscard]] RecordAnswer ReadResult(const Json& result, const RecordName& asked);
/// The results of "get" and "last", which must be those of `asked`. Takes the rows out of `answer`.
[[nodiscard]] std::vector<RecordAnswer> ReadResults(Json& answer,
                                                    const std::vector<RecordName>& asked);
/// A page of "history" of the record `asked`. Takes the rows out of `answer`.
[[nodiscard]] HistoryPage ReadHistory(Json& answer, const RecordName& asked);
/// Makes of `request`, whose answer was `page`, that for the page behind it; false if there is
/// none. Throws ClientError for a place that is not behind the one before: the pages would have no
/// end.
[[nodiscard]] bool GoToNextPage(Json& request, HistoryPage& page);
[[nodiscard]] Schema ReadSchema(const Json& answer);
[[nodiscard]] std::vector<Listing> ReadListing(const Json& answer);
[[nodiscard]] Status ReadStatus(const Json& answer);
/// The host profile of a status or of a configuration; empty if the agent does not say.
[[nodiscard]] std::string ReadHostProfile(const Json& part);
/// The top of the tree.
[[nodiscard]] std::vector<ConfigNode> ReadConfig(const Json& answer);
[[nodiscard]] ReportTable ReadReport(const Json& answer);
/// The outcome of a change of `item`.
[[nodiscard]] ConfigOutcome ReadConfigOutcome(const Json& answer, std::uint64_t item);
