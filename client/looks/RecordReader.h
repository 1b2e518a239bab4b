#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/Connection.h"
#include "client/looks/TwoLooks.h"
#include "client/show/Render.h"
#include "client/show/RowChoice.h"

struct RecordOptions {
  std::vector<std::string> records;  ///< as typed
  bool rates = false;                ///< averages since the machine was started
  bool raw = false;                  ///< the rows as the daemon has them
  Format format = Format::kTable;
  ChoiceOptions choice;

  /// Whether what happened between two looks is wanted.
  [[nodiscard]] bool Compares() const { return !rates && !raw; }
};

/// What one request for records came to.
struct Sample {
  std::vector<ShownRecord> records;  ///< those that were answered with rows, or with none
  std::vector<std::string> notes;    ///< what the operator has to know of the others
};

/// The request for the layout of a record.
[[nodiscard]] Json SchemaRequest(const RecordName& record);

/// Asks for the same records as often as wanted, over one connection.
class RecordReader {
 public:
  /// `operation` is "get" or "last". Throws UsageError for names and choices that can't be meant,
  /// before anything is collected; ClientError.
  RecordReader(const std::string& socket, const RecordOptions& options, const char* operation,
               int stop = -1);

  /// With "get", figures are those since the reading before, unless `options` want others. Throws
  /// ClientError, or Interrupted.
  [[nodiscard]] Sample Read();

  /// Whether a record was read that only a comparison with another reading says all of.
  [[nodiscard]] bool NeedsAnother() const;

  /// Whether a record failed in any reading.
  [[nodiscard]] bool AnyFailed() const { return m_anyFailed; }

 private:
  void ResolveNames();
  const Schema& SchemaOf(const RecordName& record);
  void MakeChoices(const ChoiceOptions& options);
  void Compare(ShownRecord& record, std::size_t place, TwoLooks::TimePoint at);

  Format m_format;
  std::vector<RecordName> m_names;
  /// One for each name: what to say of a record that there is not; empty for the others.
  std::vector<std::string> m_missing;
  /// One for each name if there is anything to choose; none in it for a record without a layout.
  std::vector<std::optional<RowChoice>> m_choices;
  bool m_compares;
  std::vector<std::optional<TwoLooks>> m_looks;  ///< one for each name, from its first rows on
  Json m_request;
  Connection m_connection;
  std::map<std::string, Schema> m_schemas;
  bool m_anyFailed = false;
};
