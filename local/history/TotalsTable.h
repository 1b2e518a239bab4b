#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "local/history/Sql.h"
#include "node/LayoutRegistry.h"
#include "node/Record.h"

/// The table of totals: the same rows as a look without rates makes them, where those of a record's
/// own table hold what was added since the row before. One row holds those of many records, packed,
/// as they are read only all together, and what a batch costs is the number of pages it changes:
/// the column kPackColumn is a run of chunks, each of a TotalsHead and the records' bytes. The time
/// (kTimeLabel) is that of all rows in it.
inline constexpr const char* kTotalsTable = "qmt totals";
/// What the bytes in it mean: by the number in a chunk's head the description of a layout.
inline constexpr const char* kTotalsLayoutTable = "qmt totals layouts";
inline constexpr const char* kPackColumn = "Rows";
inline constexpr const char* kLayoutColumn = "Layout";
inline constexpr const char* kDescriptionColumn = "Description";

/// The begin of a chunk, in the byte order of the host.
struct TotalsHead {
  std::int64_t layout;      ///< TotalsLayout::number
  std::uint32_t bytes;      ///< of the rows that follow
  std::uint32_t isGoingOn;  ///< 1: more rows of the chunk before, of the same look; else 0
};

/// What a file that outlives this version has to know of a layout.
struct TotalsLayout {
  std::int64_t number = 0;
  std::string description;  ///< JSON
};
[[nodiscard]] TotalsLayout TotalsLayoutOf(const RecordLayout& layout);
/// The number that a description has; another one has not been meant for it.
[[nodiscard]] std::int64_t TotalsLayoutNumber(std::string_view description);

/// A described layout as rows of the record's layout of now are made from it.
struct DescribedLayout {
  static constexpr std::uint32_t kNoPlace = UINT32_MAX;
  const RecordLayout* layout = nullptr;  ///< of the record that is published under that name
  std::size_t size = 0;                  ///< bytes of a row
  /// Of each field of `layout` its offset here; one that lacks, or has another type, has no place.
  std::vector<std::uint32_t> places;
  bool isSame = false;  ///< a row is one of `layout`
};
/// None if the description is none, or the record is published no more.
[[nodiscard]] std::optional<DescribedLayout> ReadTotalsLayout(std::string_view description);

/// Writes totals into an open file, for as long as it is open. All throw SqlError.
class TotalsTable {
 public:
  /// A pack that has so many bytes is written, and another one begun.
  static constexpr std::size_t kMostPackBytes = std::size_t{64} << 10;
  /// A larger one is of somebody else, and neither read nor moved.
  static constexpr std::size_t kMostReadBytes = std::size_t{512} << 10;

  /// Makes the tables and the columns that lack.
  explicit TotalsTable(SqlDatabase& database);

  /// Takes rows whose time is that one, seconds since the epoch, whatever they themselves tell.
  void Add(const RecordLayout& layout, std::int64_t time, std::span<const CMBRecord* const> rows);
  /// Writes what was taken. Without it, it is lost with this object.
  void Flush();
  /// Rows of the table that were written since the call before.
  [[nodiscard]] std::int64_t TakeInserted() { return std::exchange(m_inserted, 0); }

 private:
  void Append(const void* bytes, std::size_t size);
  [[nodiscard]] std::int64_t NumberOf(const RecordLayout& layout);

  SqlDatabase& m_database;
  SqlStatement m_insert;
  std::map<const RecordLayout*, std::int64_t> m_numbers;  ///< of layouts that the file has
  std::int64_t m_time = 0;
  std::int64_t m_inserted = 0;
  std::vector<unsigned char> m_pack;
};

/// Moves the totals up to that row number into the main file, with the descriptions of layouts,
/// from the attached file of that name, from which the rows are still to be deleted.
void MoveTotals(SqlDatabase& database, const std::string& schema, std::int64_t last);
