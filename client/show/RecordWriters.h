#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/show/Render.h"

/// Takes what records were answered with as it comes: of each record Begin, its rows, and End.
class RecordSink {
 public:
  virtual ~RecordSink() = default;

  /// `record` has all but the rows.
  virtual void Begin(const ShownRecord& record) = 0;
  /// Returns whether the row was let go, as one that was printed; false if it is kept.
  virtual bool Row(Json row) = 0;
  virtual void End() = 0;
};

/// Prints records. What it holds is bounded, however many rows there are.
class RecordWriter : public RecordSink {
 public:
  /// Takes what is printed next.
  using Write = std::function<void(std::string_view text)>;

  /// After the last record.
  virtual void Finish() = 0;
};

/// Rows that a table is made of at a time: its columns are as wide as these want, and where later
/// ones want more, they are wider from there on. On a screen too narrow for one line a row, each
/// such part is a table of its own.
inline constexpr std::size_t kRowsAtATime = 5000;

/// `titles`: name and time stand above each table. The labels of CSV are those of the first rows;
/// ClientError for a later row with others.
[[nodiscard]] std::unique_ptr<RecordWriter> MakeRecordWriter(Format format, bool titles,
                                                             const Screen& screen,
                                                             RecordWriter::Write write);

/// What that prints of all of them. Takes the rows out of `records`.
[[nodiscard]] std::string RecordsText(std::vector<ShownRecord>& records, Format format, bool titles,
                                      const Screen& screen);
