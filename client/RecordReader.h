#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/Connection.h"
#include "client/Render.h"
#include "client/RowChoice.h"

struct RecordOptions {
  std::vector<std::string> records;  ///< as typed
  bool rates = false;
  Format format = Format::kTable;
  ChoiceOptions choice;
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

  /// Throws ClientError, or Interrupted.
  [[nodiscard]] Sample Read();

  /// Whether a record failed in any reading.
  [[nodiscard]] bool AnyFailed() const { return m_anyFailed; }

 private:
  const Schema& SchemaOf(const RecordName& record);
  void MakeChoices(const ChoiceOptions& options);

  Format m_format;
  std::vector<RecordName> m_names;
  /// One for each name if there is anything to choose; none in it for a record without a layout.
  std::vector<std::optional<RowChoice>> m_choices;
  Json m_request;
  Connection m_connection;
  std::map<std::string, Schema> m_schemas;
  bool m_anyFailed = false;
};
