#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

#include "node/RecordRequest.h"
#include "records/FormerRows.h"
#include "records/RateWords.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/TimeValues.h"
#include "support/TraceLog.h"
#include "support/UtlError.h"

/// A counter that the delta step subtracts, and its name in the trace of one that went backwards.
template <class Record>
struct CounterField {
  Ulong Record::*field;
  const char* traceName;
};

/// The record that a row is published as: the row itself, or for a row with more members than its
/// record, which it then derives from, its `PublishedRecord`.
template <class Row>
struct PublishedAs {
  using Record = Row;
};
template <class Row>
requires requires { typename Row::PublishedRecord; }
struct PublishedAs<Row> {
  using Record = typename Row::PublishedRecord;
};

/// What a rate over a zero interval costs: the rest of the build, or the one row.
enum class RateFailure { kEndsBuild, kSkipsRow };

/// now - before; 0 for a time that went back, as a kernel's time of waiting for I/O now and then
/// does. Right across the wrap of 32 bits of seconds, which a sum over many processors comes to.
[[nodiscard]] tagUTIME TimeGrowth(const tagUTIME& now, const tagUTIME& before);

/// Traces at level 20 that a counter went backwards.
void TraceCounterFell(const char* traceName, std::uint32_t current, std::uint32_t previous);
/// current - previous, wrapping at 32 bits; a counter that went backwards is traced at level 20.
[[nodiscard]] std::uint32_t CounterDelta(std::uint32_t current, std::uint32_t previous,
                                         const char* traceName);
/// The same for a sum that may fall, as when a device goes with what it has counted: one that fell
/// by less than half of its range counts 0 and is traced, one that fell by more has wrapped.
[[nodiscard]] std::uint32_t CounterGrowth(std::uint32_t current, std::uint32_t previous,
                                          const char* traceName);

/// What one record gives to the engine, which has its rates from the record's layout. All tables
/// live as long as the process.
template <class Record>
struct IntervalFamily {
  std::span<const CounterField<Record>> counters = {};
  std::span<Utime Record::*const> times = {};
  /// How two of its times are subtracted.
  tagUTIME (*timeDelta)(const tagUTIME& now, const tagUTIME& before) = UTIMEDelta4Overflow;
  /// How two of its counters are subtracted.
  std::uint32_t (*counterDelta)(std::uint32_t current, std::uint32_t previous,
                                const char* traceName) = CounterDelta;
  /// Whether a counter or time of 0 is one that could not be read: it then stands where it last
  /// did, so that no interval holds its whole past once it is there again.
  bool zeroIsUnread = false;
  /// Whether two rows are of one instance; null for a record of a single row.
  bool (*sameInstance)(const Record&, const Record&) = nullptr;
  /// Finds rows of one instance without a search, which many instances that come and go would make
  /// long: equal for two of them. Null for a search.
  std::size_t (*instanceHash)(const Record&) = nullptr;
  /// Ends the subtraction: may correct the difference `row`, whose fields of no table still hold
  /// their current values, and the row `raw` that it was made from and that is kept for the next
  /// interval. Null for none.
  void (*amend)(Record& row, Record& raw, const Record& previous) = nullptr;
  /// The rate step's name in its error, as in "RecordBuilder::BuildRates_CPUP"; null for a record
  /// without rates, which an interval of 0 does not harm.
  const char* ratesOperation = nullptr;
  RateFailure rateFailure = RateFailure::kEndsBuild;
  /// Whether a finished row counts less than its predecessor. A real-time row that does is dumped
  /// but not output. Null for never.
  bool (*movedBackwards)(const typename PublishedAs<Record>::Record& row,
                         const typename PublishedAs<Record>::Record& predecessor) = nullptr;
  /// After how many scheduled builds in a row without a row of it an instance is forgotten; 0 for
  /// never. A build without any row, or that an error ended, is none of them.
  unsigned forgetsAfter = 0;
};

/// The same for figures that are fractions; the difference may be negative.
[[nodiscard]] float FloatCounterDelta(float current, float previous, const char* traceName);
[[nodiscard]] UtlErrorPtr ZeroIntervalError(const char* ratesOperation);
/// The same length of time with 64 bits of seconds.
[[nodiscard]] UtlTime WideTime(const tagUTIME& value);
/// 0 to 100; 0 if the total is zero.
[[nodiscard]] float PercentOf(const tagUTIME& part, const tagUTIME& total);

/// Puts the previous counters and times where the current ones are 0.
template <class Record>
void RestoreUnread(const IntervalFamily<Record>& family, Record& current, const Record& previous) {
  for (Utime Record::*field : family.times) {
    if (current.*field == tagUTIME{}) {
      current.*field = previous.*field;
    }
  }
  for (const CounterField<Record>& counter : family.counters) {
    if (current.*counter.field == 0U) {
      current.*counter.field = previous.*counter.field;
    }
  }
}

/// The current row with the previous one's counters and times subtracted and with the seconds
/// between the two as its interval. `current` changes only as the family restores or amends it.
template <class Record>
[[nodiscard]] Record DeltaPI(const IntervalFamily<Record>& family, Record& current,
                             const Record& previous) {
  if (family.zeroIsUnread) {
    RestoreUnread(family, current, previous);
  }
  Record row = current;
  row.interval = CounterDelta(static_cast<std::uint32_t>(current.recordTime),
                              static_cast<std::uint32_t>(previous.recordTime), "interval");
  for (Utime Record::*field : family.times) {
    row.*field = family.timeDelta(current.*field, previous.*field);
  }
  for (const CounterField<Record>& counter : family.counters) {
    row.*counter.field =
        family.counterDelta(current.*counter.field, previous.*counter.field, counter.traceName);
  }
  if (family.amend != nullptr) {
    family.amend(row, current, previous);
  }
  return row;
}

/// The raw rows of one record, one an instance: the cumulative figures of the last interval. Rows
/// of instances that vanished stay until they are forgotten.
template <class Record>
class RawRows {
 public:
  /// Begins a build, from which on rows count as replaced.
  void Begin() { ++m_build; }
  /// Drops the rows that were not replaced since the last Begin(), as in the calls before, so that
  /// it is `builds` of them in a row.
  void Forget(unsigned builds) {
    for (KeptRow& kept : m_rows) {
      kept.missed += kept.build == m_build ? 0U : 1U;
    }
    if (std::erase_if(m_rows, [=](const KeptRow& kept) { return kept.missed >= builds; }) != 0) {
      m_places.clear();
    }
  }
  [[nodiscard]] std::size_t Count() const { return m_rows.size(); }

  /// The difference of `current` to its instance's last raw row, or to zero where there is none;
  /// `current` takes that row's place.
  [[nodiscard]] Record Replace(const IntervalFamily<Record>& family, Record current) {
    KeptRow* previous = Find(family, current);
    Record row = DeltaPI(family, current, previous == nullptr ? Record{} : previous->row);
    if (previous == nullptr) {
      if (family.instanceHash != nullptr) {
        m_places.emplace(family.instanceHash(current), m_rows.size());
      }
      m_rows.push_back({current, m_build});
    } else {
      *previous = {current, m_build};
    }
    return row;
  }

  /// The raw row of a record of a single row; a zero one before the first interval.
  [[nodiscard]] Record Single() const { return m_rows.empty() ? Record{} : m_rows.front().row; }

 private:
  struct KeptRow {
    Record row;
    std::uint64_t build;  ///< the one that it was last replaced in
    unsigned missed = 0;  ///< calls of Forget() since then
  };

  KeptRow* Find(const IntervalFamily<Record>& family, const Record& current) {
    return family.instanceHash == nullptr ? Search(family, current) : LookUp(family, current);
  }

  KeptRow* LookUp(const IntervalFamily<Record>& family, const Record& current) {
    if (m_places.empty()) {
      for (std::size_t place = 0; place < m_rows.size(); ++place) {
        m_places.emplace(family.instanceHash(m_rows[place].row), place);
      }
    }
    const auto [begin, end] = m_places.equal_range(family.instanceHash(current));
    const auto found = std::find_if(begin, end, [&](const auto& entry) {
      return family.sameInstance(m_rows[entry.second].row, current);
    });
    return found == end ? nullptr : &m_rows[found->second];
  }

  /// Rows come in the same order at each interval, so the search goes on where it last ended.
  KeptRow* Search(const IntervalFamily<Record>& family, const Record& current) {
    for (std::size_t step = 0; step < m_rows.size(); ++step) {
      const std::size_t place = (m_next + step) % m_rows.size();
      if (family.sameInstance == nullptr || family.sameInstance(m_rows[place].row, current)) {
        m_next = place + 1;
        return &m_rows[place];
      }
    }
    return nullptr;
  }

  std::vector<KeptRow> m_rows;
  /// Of the rows, by their hashes; none while these are not known.
  std::unordered_multimap<std::size_t, std::size_t> m_places;
  std::size_t m_next = 0;
  std::uint64_t m_build = 0;
};

/// A counter's growth divided by seconds, which are not 0.
[[nodiscard]] inline float RateOf(const Ulong& growth, float seconds) {
  return static_cast<float>(static_cast<std::uint32_t>(growth)) / seconds;
}
[[nodiscard]] inline float RateOf(const Float& growth, float seconds) {
  return (growth + 0.0F) / seconds;
}
[[nodiscard]] inline float RateOf(const Double& growth, float seconds) {
  return static_cast<float>((growth + 0.0) / static_cast<double>(seconds));
}

/// Sets all rates of the row's layout; `seconds` is not 0.
template <class Record>
void PutRates(Record& row, float seconds) {
  using Layout = RateWords<typename PublishedAs<Record>::Record>;
  Layout::Visit([&]([[maybe_unused]] auto rate, FieldMeaning /*meaning*/, auto... growth) {
    ((row.*rate = RateOf(row.*growth.counter, seconds)), ...);
  });
}

/// Divides the row's counters by its interval. Null, or an error for an interval of 0.
template <class Record>
[[nodiscard]] UtlErrorPtr BuildRates(const IntervalFamily<Record>& family, Record& row) {
  if (row.interval == 0U) {
    return ZeroIntervalError(family.ratesOperation);
  }
  PutRates(row, static_cast<float>(static_cast<std::uint32_t>(row.interval)));
  return nullptr;
}

/// One build of one record: takes rows with cumulative figures and makes finished records of them.
template <class Record>
class IntervalBuild {
 public:
  /// What is output, and what the node hands back as the request's last answer.
  using Published = typename PublishedAs<Record>::Record;

  /// `first` tells that the request has not been served before; `upTime` is in seconds. All is
  /// referred to for the life of the build.
  IntervalBuild(const IntervalFamily<Record>& family, RawRows<Record>& rawRows,
                CMBRecordRequestEvent& event, bool first, std::int32_t upTime)
      : m_family(family),
        m_rawRows(rawRows),
        m_event(event),
        m_first(first),
        m_upTime(static_cast<std::uint32_t>(upTime)),
        m_realtime(event.IsRealtime() != 0),
        m_withRates(event.ShouldCalcRates() != 0) {
    m_rawRows.Begin();
  }
  IntervalBuild(const IntervalBuild&) = delete;
  IntervalBuild& operator=(const IntervalBuild&) = delete;
  ~IntervalBuild() {
    if (m_family.forgetsAfter > 0 && !m_realtime && !m_endedByError && m_rows > 0) {
      m_rawRows.Forget(m_family.forgetsAfter);
    }
  }

  /// Takes one row through mode, rates, `derive` and output. `derive(row, predecessor)` computes
  /// percentages and averages: from the row's own figures with rates, else from the differences to
  /// the predecessor, which may be null. Null, or the error that ends the build.
  template <class Derive>
  [[nodiscard]] UtlErrorPtr Add(Record row, const Derive& derive) {
    row = InMode(row);
    if (m_family.ratesOperation != nullptr) {
      if (UtlErrorPtr error = BuildRates(m_family, row)) {
        return Reject(std::move(error));
      }
    }
    m_rateSeconds = row.interval;
    if (!m_withRates) {
      row.interval = static_cast<std::uint32_t>(row.recordTime);
    }
    const Published* predecessor = MatchPredecessor(row);
    derive(row, m_withRates ? nullptr : predecessor);
    if (m_realtime || !m_first) {
      DumpRecord(row, m_rows);
      if (!IsWithheld(row, predecessor)) {
        m_event.AddRecord(std::make_unique<typename RecordTraits<Published>::Class>(&row));
        ++m_output;
      }
    }
    ++m_rows;
    return nullptr;
  }

  [[nodiscard]] bool WithRates() const { return m_withRates; }
  [[nodiscard]] bool IsRealtime() const { return m_realtime; }
  /// What the rates of the row that is derived from were divided by; its interval need not say it.
  [[nodiscard]] std::uint32_t RateSeconds() const { return m_rateSeconds; }
  /// Rows processed, output or not.
  [[nodiscard]] int RowCount() const { return m_rows; }
  [[nodiscard]] int OutputCount() const { return m_output; }

 private:
  Record InMode(const Record& raw) {
    constexpr const char* kName = RecordTraits<Published>::kName;
    if (!m_realtime) {
      Trace(30, kInformation, "%1 - Processing Interval Request.", kName);
      return m_rawRows.Replace(m_family, raw);
    }
    Record row = raw;
    if (m_withRates) {
      row.interval = m_upTime;
    } else {
      Trace(30, kInformation, "%1 - Processing Realtime Request with no rate calculations.", kName);
      row.interval = 1U;
    }
    return row;
  }

  UtlErrorPtr Reject(UtlErrorPtr error) {
    if (m_family.rateFailure == RateFailure::kEndsBuild) {
      m_endedByError = true;
      return error;
    }
    Trace(30, kWarning, "Unable to process %1 record: %2 : Record skipped.",
          RecordTraits<Published>::kName, error->GetMessage());
    return nullptr;
  }

  [[nodiscard]] bool MayWithhold() const {
    return m_realtime && m_family.movedBackwards != nullptr;
  }

  /// The row's predecessor where one is compared with; null for none.
  const Published* MatchPredecessor(const Record& row) {
    if (m_withRates && !MayWithhold()) {
      return nullptr;
    }
    if (!m_former) {
      m_former.emplace(m_event);
    }
    return m_former->Find(row);
  }

  [[nodiscard]] bool IsWithheld(const Published& row, const Published* predecessor) const {
    return MayWithhold() && predecessor != nullptr && m_family.movedBackwards(row, *predecessor);
  }

  const IntervalFamily<Record>& m_family;
  RawRows<Record>& m_rawRows;
  CMBRecordRequestEvent& m_event;
  bool m_first;
  std::uint32_t m_upTime;
  bool m_realtime;
  bool m_withRates;
  bool m_endedByError = false;
  std::uint32_t m_rateSeconds = 0;
  std::optional<FormerRows<Published>> m_former;  ///< made when first needed
  int m_rows = 0;
  int m_output = 0;
};
