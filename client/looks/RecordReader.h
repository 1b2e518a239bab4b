#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/Connection.h"
#include "client/looks/TwoLooks.h"
#include "client/show/RecordWriters.h"
#include "client/show/RowChoice.h"

struct RecordOptions {
  std::vector<std::string> records;  ///< as typed
  bool rates = false;                ///< averages since the machine was started
  bool raw = false;                  ///< the rows as the daemon has them
  bool isPlayed = false;             ///< looks lie as far apart as the daemon's times tell
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
  /// before anything is collected; ClientError. `limits.answerBytes` bounds also what is held to
  /// compare readings.
  RecordReader(const std::string& socket, const RecordOptions& options, const char* operation,
               int stop = -1, const ConnectionLimits& limits = {});

  /// With "get", figures are those since the reading before, unless `options` want others. Throws
  /// ClientError, or Interrupted. What it holds is bounded, and so is how much can be had.
  [[nodiscard]] Sample Read();

  /// The same of any length: rows go to `sink` as they come, those that are to be sorted apart.
  /// Returns what the operator has to know of the other records.
  [[nodiscard]] std::vector<std::string> Read(RecordSink& sink);

  /// Takes a reading that the next one is compared with, and holds no more of it. False if there is
  /// nothing to compare.
  [[nodiscard]] bool LookFirst();

  /// Whether a record failed in any reading.
  [[nodiscard]] bool AnyFailed() const { return m_anyFailed; }

 private:
  class Reading;

  /// Without a sink the rows are compared alone.
  std::vector<std::string> ReadTo(RecordSink* sink);
  /// Throws ClientError where more is held to compare readings than may be.
  void CheckHeld() const;
  void ResolveNames();
  const Schema& SchemaOf(const RecordName& record);
  void MakeChoices(const ChoiceOptions& options);

  Format m_format;
  bool m_isPlayed;
  std::vector<RecordName> m_names;
  /// One for each name: what to say of a record that there is not; empty for the others.
  std::vector<std::string> m_missing;
  /// One for each name if there is anything to choose; none in it for a record without a layout.
  std::vector<std::optional<RowChoice>> m_choices;
  std::vector<std::optional<TwoLooks>> m_looks;  ///< one for each name that is compared
  Json m_request;
  std::size_t m_mostHeld;  ///< bytes
  Connection m_connection;
  std::map<std::string, Schema> m_known;
  std::vector<Schema> m_schemas;  ///< one for each name, without fields where none is wanted
  bool m_anyFailed = false;
};
