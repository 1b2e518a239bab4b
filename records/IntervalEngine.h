#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <type_traits>
#include <vector>

#include "node/RecordRequest.h"
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

/// A rate and the counter that it is the quotient of.
template <class Record>
struct RateField {
  Float Record::*rate;
  Ulong Record::*counter;
};

/// The same for figures that are fractions; the difference may be negative.
template <class Record>
struct FloatCounterField {
  Float Record::*field;
  const char* traceName;
};
template <class Record>
struct FloatRateField {
  Float Record::*rate;
  Float Record::*counter;
};
template <class Record>
struct DoubleRateField {
  Float Record::*rate;
  Double Record::*counter;
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

/// All rates of the row's layout whose counters are of the type that `Rate` has.
template <template <class> class Rate, class Row>
constexpr auto RatesOf() {
  using Words = RateWords<typename PublishedAs<Row>::Record>;
  using Counter = decltype(Rate<typename Words::Row>::counter);
  constexpr auto visitAll = [](auto&& take) {
    Words::Visit([&](auto member, FieldMeaning /*meaning*/, auto... growth) {
      if constexpr ((std::is_same_v<decltype(growth), GrowthOf<Counter>> || ...)) {
        (take(Rate<Row>{member, growth.counter}), ...);
      }
    });
  };
  constexpr std::size_t kCount = [=] {
    std::size_t count = 0;
    visitAll([&](const auto&) { ++count; });
    return count;
  }();
  std::array<Rate<Row>, kCount> table{};
  std::size_t next = 0;
  visitAll([&](const auto& rate) { table[next++] = rate; });
  return table;
}

/// What a rate over a zero interval costs: the rest of the build, or the one row.
enum class RateFailure { kEndsBuild, kSkipsRow };

/// What one record gives to the engine. All tables live as long as the process.
template <class Record>
struct IntervalFamily {
  std::span<const CounterField<Record>> counters;
  std::span<Utime Record::*const> times;
  std::span<const RateField<Record>> rates;
  /// Whether two rows are of one instance; null for a record of a single row.
  bool (*sameInstance)(const Record&, const Record&) = nullptr;
  /// The rate step's name in its error, as in "RecordBuilder::BuildRates_CPUP"; null for a record
  /// without rates, which an interval of 0 does not harm.
  const char* ratesOperation;
  RateFailure rateFailure = RateFailure::kEndsBuild;
  std::span<const FloatCounterField<Record>> floatCounters = {};
  std::span<const FloatRateField<Record>> floatRates = {};
  /// Ends the subtraction: may correct the difference `row`, whose fields of no table still hold
  /// their current values, and the row `raw` that it was made from and that is kept for the next
  /// interval. Null for none.
  void (*amend)(Record& row, Record& raw, const Record& previous) = nullptr;
  std::span<const DoubleRateField<Record>> doubleRates = {};
  /// Whether a finished row counts less than its predecessor. A real-time row that does is dumped
  /// but not output. Null for never.
  bool (*movedBackwards)(const typename PublishedAs<Record>::Record& row,
                         const typename PublishedAs<Record>::Record& predecessor) = nullptr;
  /// Ends the rate step with rates of a form of their own; the row still has the interval that they
  /// are divided by, which is not 0. Null for none.
  void (*moreRates)(Record& row, bool withRates) = nullptr;
};

/// Traces at level 20 that a counter went backwards.
void TraceCounterFell(const char* traceName, std::uint32_t current, std::uint32_t previous);
/// current - previous, wrapping at 32 bits; a counter that went backwards is traced at level 20.
[[nodiscard]] std::uint32_t CounterDelta(std::uint32_t current, std::uint32_t previous,
                                         const char* traceName);
/// current - previous; a negative difference is traced at level 20.
[[nodiscard]] float FloatCounterDelta(float current, float previous, const char* traceName);
[[nodiscard]] UtlErrorPtr ZeroIntervalError(const char* ratesOperation);
/// The same length of time with 64 bits of seconds.
[[nodiscard]] UtlTime WideTime(const tagUTIME& value);
/// 0 to 100; 0 if the total is zero.
[[nodiscard]] float PercentOf(const tagUTIME& part, const tagUTIME& total);

/// The current row with the previous one's counters and times subtracted and with the seconds
/// between the two as its interval. `current` changes only as the family amends it.
template <class Record>
[[nodiscard]] Record DeltaPI(const IntervalFamily<Record>& family, Record& current,
                             const Record& previous) {
  Record row = current;
  row.interval = CounterDelta(static_cast<std::uint32_t>(current.recordTime),
                              static_cast<std::uint32_t>(previous.recordTime), "interval");
  for (Utime Record::*field : family.times) {
    row.*field = UTIMEDelta4Overflow(current.*field, previous.*field);
  }
  for (const CounterField<Record>& counter : family.counters) {
    row.*counter.field =
        CounterDelta(current.*counter.field, previous.*counter.field, counter.traceName);
  }
  for (const FloatCounterField<Record>& counter : family.floatCounters) {
    row.*counter.field =
        FloatCounterDelta(current.*counter.field, previous.*counter.field, counter.traceName);
  }
  if (family.amend != nullptr) {
    family.amend(row, current, previous);
  }
  return row;
}

/// The raw rows of one record, one an instance: the cumulative figures of the last interval. Rows
/// of instances that vanished stay.
template <class Record>
class RawRows {
 public:
  /// The difference of `current` to its instance's last raw row, or to zero where there is none;
  /// `current` takes that row's place.
  [[nodiscard]] Record Replace(const IntervalFamily<Record>& family, Record current) {
    Record* previous = Find(family, current);
    const Record row = DeltaPI(family, current, previous == nullptr ? Record{} : *previous);
    if (previous == nullptr) {
      m_rows.push_back(current);
    } else {
      *previous = current;
    }
    return row;
  }

  /// The raw row of a record of a single row; a zero one before the first interval.
  [[nodiscard]] Record Single() const { return m_rows.empty() ? Record{} : m_rows.front(); }

 private:
  /// Rows come in the same order at each interval, so the search goes on where it last ended.
  Record* Find(const IntervalFamily<Record>& family, const Record& current) {
    for (std::size_t step = 0; step < m_rows.size(); ++step) {
      const std::size_t place = (m_next + step) % m_rows.size();
      if (family.sameInstance == nullptr || family.sameInstance(m_rows[place], current)) {
        m_next = place + 1;
        return &m_rows[place];
      }
    }
    return nullptr;
  }

  std::vector<Record> m_rows;
  std::size_t m_next = 0;
};

/// Divides the row's counters by its interval. Null, or an error for an interval of 0.
template <class Record>
[[nodiscard]] UtlErrorPtr BuildRates(const IntervalFamily<Record>& family, Record& row) {
  if (row.interval == 0U) {
    return ZeroIntervalError(family.ratesOperation);
  }
  const auto seconds = static_cast<float>(static_cast<std::uint32_t>(row.interval));
  for (const RateField<Record>& rate : family.rates) {
    const std::uint64_t counter = static_cast<std::uint32_t>(row.*rate.counter);
    row.*rate.rate = static_cast<float>(counter) / seconds;
  }
  for (const FloatRateField<Record>& rate : family.floatRates) {
    row.*rate.rate = (row.*rate.counter + 0.0F) / seconds;
  }
  for (const DoubleRateField<Record>& rate : family.doubleRates) {
    row.*rate.rate = static_cast<float>((row.*rate.counter + 0.0) / static_cast<double>(seconds));
  }
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
        m_withRates(event.ShouldCalcRates() != 0) {}

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
    if (m_family.moreRates != nullptr) {
      m_family.moreRates(row, m_withRates);
    }
    if (!m_withRates) {
      row.interval = static_cast<std::uint32_t>(row.recordTime);
    }
    const bool realtime = m_event.IsRealtime() != 0;
    const bool mayBeWithheld = realtime && m_family.movedBackwards != nullptr;
    const Published* predecessor = !m_withRates || mayBeWithheld ? Predecessor(row) : nullptr;
    derive(row, m_withRates ? nullptr : predecessor);
    if (realtime || !m_first) {
      DumpRecord(row, m_rows);
      if (!mayBeWithheld || predecessor == nullptr || !m_family.movedBackwards(row, *predecessor)) {
        m_event.m_records.push_back(new typename RecordTraits<Published>::Class(&row));
        ++m_output;
      }
    }
    ++m_rows;
    return nullptr;
  }

  [[nodiscard]] bool WithRates() const { return m_withRates; }
  /// Rows processed, output or not.
  [[nodiscard]] int RowCount() const { return m_rows; }
  [[nodiscard]] int OutputCount() const { return m_output; }

 private:
  Record InMode(const Record& raw) {
    constexpr const char* kName = RecordTraits<Published>::kName;
    if (m_event.IsRealtime() == 0) {
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

  UtlErrorPtr Reject(UtlErrorPtr error) const {
    if (m_family.rateFailure == RateFailure::kEndsBuild) {
      return error;
    }
    Trace(30, kWarning, "Unable to process %1 record: %2 : Record skipped.",
          RecordTraits<Published>::kName, error->GetMessage());
    return nullptr;
  }

  /// The row of the request's last answer that has the same identity; owned by the framework.
  const Published* Predecessor(const Record& row) const {
    const typename RecordTraits<Published>::Class sample(&row);
    for (const CMBRecord* record : m_event.PreviousRecords()) {
      if (record->GetRecSize() == static_cast<int>(sizeof(Published)) && sample == *record) {
        return static_cast<const Published*>(record->GetRecStart());
      }
    }
    return nullptr;
  }

  const IntervalFamily<Record>& m_family;
  RawRows<Record>& m_rawRows;
  CMBRecordRequestEvent& m_event;
  bool m_first;
  std::uint32_t m_upTime;
  bool m_withRates;
  int m_rows = 0;
  int m_output = 0;
};
