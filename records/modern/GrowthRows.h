#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "records/IntervalEngine.h"
#include "records/UserObjects.h"
#include "records/modern/DerivedWords.h"
#include "support/NotTold.h"
#include "support/OsCalls.h"

// Builds the interval records of the profile `modern`, whose layouts say all that there is to make:
// which figures grow, and what is a rate, a load, a share or an average of which growth. Counters
// are Double fields. A figure that is not told stays so through differences and rates.

/// A row on its way: the record, and when its figures were taken. Times are those of
/// RunningSeconds(), 0 for none.
template <class Record>
struct TimedRow : Record {
  using PublishedRecord = Record;
  double at = 0;
  double lastBuild = 0;       ///< when the record was last built by the schedule
  double seconds = kNotTold;  ///< that its growth took
};

/// What an instance that the last interval did not have counts in its first one.
enum class NewInstance {
  kNothing,  ///< its counters hold more than the interval
  kAll       ///< it came into being meanwhile and began at 0
};

/// The growth of a counter; 0 for one that fell, since it has started again.
[[nodiscard]] inline double GrowthOfCounter(double now, double before) {
  return now < before ? 0.0 : now - before;
}

/// The growth of one of a record's counters; specialized by a record that has other rules.
template <class Record>
struct CounterRule {
  static double Growth(const Record& now, const Record& before, Double Record::*counter) {
    return GrowthOfCounter(now.*counter, before.*counter);
  }
};

/// What lies between two times; kNotTold if the clock did not go on.
[[nodiscard]] inline double SecondsBetween(double before, double now) {
  return before != 0 && now > before ? now - before : kNotTold;
}

/// `part` / `whole`; kNotTold for a part of nothing.
[[nodiscard]] inline double Quotient(double part, double whole) {
  return whole > 0 ? part / whole : kNotTold;
}

/// Calls `visit(member)` for each counter of the record.
template <class Record, class Visitor>
void VisitCounters(const Visitor& visit) {
  DerivedWords<Record>::Visit([&](auto member, auto word) {
    if constexpr (std::is_same_v<decltype(member), Double Record::*> &&
                  std::is_same_v<decltype(word), FieldMeaning>) {
      if (word == FieldMeaning::counter) {
        visit(member);
      }
    }
  });
}

/// Sets each rate, load, share and average to what `growth` has of its members in `seconds`.
template <class Record>
void PutDerived(Record& row, const Record& growth, double seconds) {
  const auto of = [&](auto member) { return static_cast<double>(growth.*member); };
  DerivedWords<Record>::Visit([&](auto member, [[maybe_unused]] auto word) {
    const auto put = [&](double value) {
      using Value = std::remove_cvref_t<decltype(row.*member)>;
      if constexpr (std::is_same_v<Value, Float>) {
        row.*member = static_cast<float>(value);
      } else if constexpr (std::is_same_v<Value, Double>) {
        row.*member = value;
      }
    };
    if constexpr (requires { word.counter; }) {
      put(Quotient(of(word.counter), seconds));
    } else if constexpr (requires { word.seconds; }) {
      put(100 * Quotient(of(word.seconds), seconds));
    } else if constexpr (requires { word.part; }) {
      put(100 * Quotient(of(word.part), of(word.whole)));
    } else if constexpr (requires { word.sum; }) {
      put(Quotient(of(word.sum), of(word.count)));
    }
  });
}

/// Whether some of its counters fell and none rose. A single one falls where it wraps, where a
/// device of a group has gone, or by a driver's whim.
template <class Record>
[[nodiscard]] bool CountsAnew(const Record& now, const Record& before) {
  bool hasFallen = false;
  bool hasRisen = false;
  VisitCounters<Record>([&](Double Record::*counter) {
    hasFallen = hasFallen || now.*counter < before.*counter;
    hasRisen = hasRisen || now.*counter > before.*counter;
  });
  return hasFallen && !hasRisen;
}

/// Ends the subtraction of a scheduled row.
template <class Record, NewInstance newInstance>
void AmendGrowth(TimedRow<Record>& row, TimedRow<Record>& raw, const TimedRow<Record>& previous) {
  // One that was away for a build is another of its name if it counts less.
  const bool isAnother = newInstance == NewInstance::kAll && previous.at != raw.lastBuild &&
                         CountsAnew<Record>(raw, previous);
  const bool isNew = previous.at == 0 || isAnother;
  row.seconds = SecondsBetween(isNew ? raw.lastBuild : previous.at, raw.at);
  const bool countsAll = newInstance == NewInstance::kAll && raw.lastBuild != 0;
  VisitCounters<Record>([&](Double Record::*counter) {
    if (!isNew) {
      row.*counter = CounterRule<Record>::Growth(raw, previous, counter);
    } else if (!countsAll) {
      row.*counter = kNotTold;
    }
  });
  // The row's own clock may have been set.
  const auto shown = static_cast<double>(static_cast<std::uint32_t>(row.interval));
  if (const bool isShown = std::abs(row.seconds - shown) <= 1.0; isNew || !isShown) {
    row.interval = IsTold(row.seconds) ? static_cast<std::uint32_t>(std::lround(row.seconds)) : 0U;
  }
}

template <class Record, NewInstance newInstance>
inline constexpr IntervalFamily<TimedRow<Record>> kGrowthFamily{
    .sameInstance = [](const TimedRow<Record>& a,
                       const TimedRow<Record>& b) { return SameKeys(a, b); },
    .instanceHash = [](const TimedRow<Record>& row) { return HashOfKeys(row); },
    .amend = AmendGrowth<Record, newInstance>,
    // A build may lack one that is still there: too many rows, no descriptor, no whole answer.
    .forgetsAfter = newInstance == NewInstance::kAll ? 2U : 0U};

template <class Record>
struct GrowthState : FamilyState {
  RawRows<TimedRow<Record>> rawRows;
  double lastBuild = 0;  ///< by the schedule, with rows
};

/// On a request that has been served.
struct LookObject : CMBUserObject {
  double at = 0;  ///< of its last answer
};

/// The request to answer.
struct GrowthCall {
  const char* name;  ///< of the builder, in traces
  CMBRecordRequestEvent* event;
  CMBRecordRequest* request;
  std::int32_t upTime;  ///< seconds since boot
  double takenAt;       ///< when the figures were, by RunningSeconds()
};

/// What grew, and in how many seconds: in the interval, since boot for a look with rates, since the
/// predecessor for one without.
template <class Record>
struct Growth {
  Record row;
  double seconds = kNotTold;
};

template <class Record>
[[nodiscard]] Growth<Record> GrowthOfLook(const Record& row, const Record* predecessor,
                                          double seconds) {
  Growth<Record> growth{row, seconds};
  VisitCounters<Record>([&](Double Record::*counter) {
    growth.row.*counter =
        predecessor == nullptr ? kNotTold : CounterRule<Record>::Growth(row, *predecessor, counter);
  });
  return growth;
}

/// Builds a row of each of the sources in their order. `fill(row, source)` puts in what is told as
/// it is, counters since boot included; `derive(row, growth, seconds)` puts in what the layout's
/// words can't say, from a record whose counters are growths. Always null: nothing fails.
template <class Record, NewInstance newInstance = NewInstance::kNothing, class Sources, class Fill,
          class Derive>
UtlError* BuildGrowthRows(const GrowthCall& call, GrowthState<Record>& state,
                          const Sources& sources, const Fill& fill, const Derive& derive,
                          const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  TraceEntry(call.name, AddressOf(call.event), AddressOf(call.request));
  const auto claimed = ClaimUserObject<LookObject>(*call.request);
  LookObject& look = claimed.object;
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const double at = call.takenAt;
  IntervalBuild<TimedRow<Record>> build(kGrowthFamily<Record, newInstance>, state.rawRows,
                                        *call.event, claimed.first, call.upTime);
  for (const auto& source : sources) {
    TimedRow<Record> row{NewRow<Record>(now), at, state.lastBuild};
    fill(static_cast<Record&>(row), source);
    // Without a rate step nothing fails.
    (void)build.Add(row, [&](TimedRow<Record>& finished, const Record* predecessor) {
      Growth<Record> growth{finished, finished.seconds};
      if (build.IsRealtime() && build.WithRates()) {
        growth.seconds = static_cast<double>(call.upTime);
      } else if (build.IsRealtime()) {
        growth = GrowthOfLook<Record>(finished, predecessor, SecondsBetween(look.at, at));
      }
      PutDerived<Record>(finished, growth.row, growth.seconds);
      derive(static_cast<Record&>(finished), growth.row, growth.seconds);
    });
  }
  look.at = at;
  if (!build.IsRealtime() && build.RowCount() != 0) {
    state.lastBuild = at;
  }
  RecordBuilder::TraceCreated(file, line, RecordTraits<Record>::kName, build.RowCount());
  TraceExit(call.name, 0);
  return nullptr;
}

/// For a record whose layout says all.
struct DeriveNoMore {
  template <class Record>
  void operator()(Record& /*row*/, const Record& /*growth*/, double /*seconds*/) const {}
};
