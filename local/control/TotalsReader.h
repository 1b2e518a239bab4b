#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "local/control/RowSource.h"
#include "local/history/TotalsTable.h"

/// Goes through the kept totals of some records at once, as they stand packed. It is good for one
/// open file, as long as no table changes. All throw SqlError.
class TotalsReader : public RowSource {
 public:
  using Clock = std::chrono::steady_clock;
  struct Wanted {
    const RecordLayout* layout;
    RowPlace after;  ///< its own rows behind this row are given, see RowFinder::FirstBehind()
  };

  TotalsReader() = default;
  TotalsReader(const TotalsReader&) = delete;
  TotalsReader& operator=(const TotalsReader&) = delete;

  /// Goes to the first rows that are wanted, no earlier than behind the row `from`. At `end` it
  /// rests with nothing at hand, but not before it has looked at one row of the table more.
  void Seek(SqlDatabase& database, std::span<const Wanted> wanted, std::int64_t from,
            std::int64_t now, Clock::time_point end);
  /// Whether there may be more though nothing is at hand, as time was up.
  [[nodiscard]] bool IsInterrupted() const { return m_isInterrupted; }
  [[nodiscard]] bool HasRow() const override { return m_chunk.layout != nullptr; }
  [[nodiscard]] std::int64_t Time() const override { return m_at.time; }
  /// The record of the row at hand.
  [[nodiscard]] const RecordLayout& Layout() const { return *m_chunk.layout->layout; }
  [[nodiscard]] TakenRows& Take() override;
  [[nodiscard]] const RowPlace& Last() const override { return m_last; }
  /// The last row of the table behind which stands all that was not taken; its number is 0 for
  /// none.
  [[nodiscard]] const RowPlace& Passed() const { return m_passed; }
  /// The first row at which the record is looked for; none if there is none.
  [[nodiscard]] std::optional<std::int64_t> BeginOf(const RecordLayout& layout) const;
  void Rest() override;

 private:
  /// Rows of one layout within a pack.
  struct Chunk {
    const DescribedLayout* layout = nullptr;  ///< null: there is none
    std::span<const unsigned char> bytes;
    bool isGoingOn = false;  ///< with the rows of the chunk before
  };
  struct Begin {
    const RecordLayout* layout;
    std::int64_t row;
  };

  void Prepare(SqlDatabase& database);
  /// False at the end.
  [[nodiscard]] bool StepPack();
  /// The same; false also if time is up.
  [[nodiscard]] bool NextPack();
  /// Goes to the next rows that are wanted.
  void NextChunk();
  /// Takes the next chunk off the pack; false at its end, which is also where it is damaged.
  [[nodiscard]] bool TakeChunk(Chunk& chunk);
  [[nodiscard]] bool IsWanted(const Chunk& chunk) const;
  [[nodiscard]] const DescribedLayout* LayoutOf(std::int64_t number);
  void AddRows(TakenRows& taken) const;
  /// Forgets the layouts that could not be read.
  void DropUnread();

  bool m_isPrepared = false;  ///< without statements: there is no table
  std::optional<RowFinder> m_finder;
  std::optional<SqlStatement> m_packs;
  std::optional<SqlStatement> m_description;
  std::map<std::int64_t, std::optional<DescribedLayout>> m_layouts;  ///< by their numbers
  std::map<const RecordLayout*, TakenRows> m_taken;
  std::vector<Begin> m_begins;
  std::span<const unsigned char> m_pack;  ///< what is left of it
  Chunk m_chunk;
  RowPlace m_at;
  RowPlace m_last;
  RowPlace m_passed;
  Clock::time_point m_end;
  bool m_isInterrupted = false;
  bool m_isAtEnd = false;
};
