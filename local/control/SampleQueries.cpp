#include "local/control/SampleQueries.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "local/history/HistoryTables.h"
#include "local/metrics/MetricNames.h"
#include "local/metrics/MetricText.h"
#include "local/metrics/MetricsDesk.h"
#include "node/LayoutRegistry.h"

namespace {

/// Of a line of samples and its share of the head, somewhat more than usual.
constexpr std::size_t kUsualLine = 64;
constexpr std::size_t kMostReserved = std::size_t{1} << 19;

/// One record of a request.
struct WantedRecord {
  std::string name;
  const RecordLayout* layout;
  RowPlace place;               ///< the last row that was given, or PassedPlace()
  RowReader* reader = nullptr;  ///< null for totals
  std::int64_t taken = 0;       ///< the last row that was given in this turn

  void NoteTaken(const RowPlace& last) {
    place = last;
    taken = last.row;
  }
};

ControlError BadSamplesField(const char* name, const std::string& wanted) {
  return {"bad-field", std::string(name) + " must be " + wanted, name};
}

bool IsSigned64(const Json& value) {
  return value.IsWhole() &&
         (!value.IsUnsigned() ||
          value.Unsigned() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
}

std::optional<ControlError> ReadSampledRecords(const Json& message,
                                               std::vector<WantedRecord>& wanted) {
  const Json* const names = message.Find("records");
  if (names == nullptr || !names->IsArray() || names->Size() == 0 ||
      names->Size() > SampleQueries::kMostRecords) {
    return BadSamplesField(
        "records", "an array of 1 to " + std::to_string(SampleQueries::kMostRecords) + " names");
  }
  for (const Json& name : names->Elements()) {
    if (!name.IsString()) {
      return BadSamplesField("records", "an array of names");
    }
    if (const char* reason = WhyNotSampled(name.Text()); reason != nullptr) {
      return ControlError{"bad-field", "the record " + name.Text() + ' ' + reason, "records"};
    }
    const RecordLayout* const layout = LayoutRegistry::Instance().Find(name.Text());
    const bool isNew = std::ranges::none_of(
        wanted, [&](const WantedRecord& other) { return other.layout == layout; });
    if (isNew) {
      wanted.push_back({name.Text(), layout, {}});
    }
  }
  return std::nullopt;
}

/// Each record's place to go on from: its own, or the time to begin at.
std::optional<ControlError> ReadPlaces(const Json& message, std::vector<WantedRecord>& wanted) {
  constexpr auto kFirstTime = std::numeric_limits<std::int64_t>::min();
  const Json* const since = message.Find("since");
  if (since != nullptr && !IsSigned64(*since)) {
    return BadSamplesField("since", "a whole number of 64 bits");
  }
  const std::int64_t begin = since == nullptr ? kFirstTime : since->Whole();
  const Json* const after = message.Find("after");
  if (after != nullptr && !after->IsObject()) {
    return BadSamplesField("after", "the \"next\" of an answer");
  }
  for (WantedRecord& record : wanted) {
    const Json* const place = after == nullptr ? nullptr : after->Find(record.name);
    if (place == nullptr) {
      // Behind the row 0 of the second before.
      record.place = {begin == kFirstTime ? begin : begin - 1, 0};
    } else if (place->IsArray() && place->Size() == 2 && IsSigned64((*place)[0]) &&
               IsSigned64((*place)[1])) {
      record.place = {(*place)[0].Whole(), (*place)[1].Whole()};
    } else {
      return BadSamplesField("after", "the \"next\" of an answer");
    }
  }
  return std::nullopt;
}

std::optional<ControlError> ReadSampleCount(const Json& message, std::size_t& count) {
  const Json* const samples = message.Find("samples");
  if (samples == nullptr) {
    return std::nullopt;
  }
  if (!samples->IsUnsigned() || samples->Unsigned() < 1 ||
      samples->Unsigned() > SampleQueries::kMostSamples) {
    return BadSamplesField(
        "samples", "a whole number from 1 to " + std::to_string(SampleQueries::kMostSamples));
  }
  count = samples->Unsigned();
  return std::nullopt;
}

std::optional<ControlError> ReadSampleNames(const Json& message, MetricNames& names) {
  const Json* const word = message.Find("names");
  const auto found = word == nullptr    ? std::optional(MetricNames::kAgent)
                     : word->IsString() ? MetricNamesOf(word->Text())
                                        : std::nullopt;
  names = found.value_or(MetricNames::kAgent);
  return found ? std::nullopt : std::optional(BadSamplesField("names", "\"agent\" or \"node\""));
}

/// One look at the file for all records, which is let go of at the end, whatever happens. `rest`:
/// has what reads rest, and does not throw.
class ReadingTurn {
 public:
  ReadingTurn(SqlDatabase& database, std::function<void()> rest)
      : m_database(database), m_rest(std::move(rest)), m_isOwn(!database.IsInTransaction()) {
    if (m_isOwn) {
      m_database.Execute("BEGIN");
    }
  }
  ~ReadingTurn() {
    m_rest();
    try {
      if (m_isOwn && m_database.IsInTransaction()) {
        m_database.Execute("ROLLBACK");
      }
    } catch (const SqlError&) {
      // Nothing was written, and the next one who begins is told.
    }
  }
  ReadingTurn(const ReadingTurn&) = delete;
  ReadingTurn& operator=(const ReadingTurn&) = delete;

 private:
  SqlDatabase& m_database;
  std::function<void()> m_rest;
  bool m_isOwn;
};

}  // namespace

const char* WhyNotSampled(const std::string& record) {
  if (const char* reason = WhyNotExposed(record); reason != nullptr) {
    return reason;
  }
  return HasTime(*LayoutRegistry::Instance().Find(record)) ? nullptr : "is not kept";
}

struct SampleQueries::Work {
  std::shared_ptr<ControlRequest> request;
  std::vector<WantedRecord> records;
  std::size_t most = kUsualSamples;
  MetricNames names = MetricNames::kAgent;
  MetricText text{MetricFormat::kSamples};
  std::size_t rows = 0;
  std::int64_t oldest = 0;
  TurnClock::time_point answerBy;
  bool hasMoved = false;        ///< some place is another than the one that was asked for
  std::int64_t totalsRead = 0;  ///< the row up to which all totals that are wanted are given

  /// A record, and what has its rows.
  struct Source {
    WantedRecord* record;
    RowSource* rows;
  };
  /// That whose row at hand is the oldest; none where there is no row.
  std::optional<Source> Oldest(TotalsReader& totals) {
    std::optional<Source> found;
    for (WantedRecord& record : records) {
      if (record.reader != nullptr && record.reader->HasRow() &&
          (!found || record.reader->Time() < found->rows->Time())) {
        found = Source{&record, record.reader};
      }
    }
    if (totals.HasRow() && (!found || totals.Time() < found->rows->Time())) {
      found =
          Source{&*std::ranges::find(records, &totals.Layout(), &WantedRecord::layout), &totals};
    }
    return found;
  }
  /// Adds all rows of the time that is at hand. False, with nothing added, if they are too many.
  bool Add(const Source& source) {
    WantedRecord& record = *source.record;
    const MetricText::Mark before = text.End();
    const std::int64_t time = source.rows->Time();
    // Of a series a server takes one sample a time, and may refuse others with it.
    const bool isGiven = record.place.row > 0 && record.place.time == time;
    TakenRows& taken = source.rows->Take();
    if (isGiven) {
      hasMoved = true;
      record.NoteTaken(source.rows->Last());
      return true;
    }
    text.SetTime(time);
    if (names == MetricNames::kNode) {
      NodeText node;
      node.AddRows(taken.NodeNames(), taken.Rows());
      node.WriteTo(text);
    } else {
      text.AddRows(taken.Metrics(), taken.Rows());
    }
    if (rows != 0 && text.End().samples > most) {
      text.CutTo(before);
      return false;
    }
    hasMoved = true;
    oldest = rows == 0 ? time : oldest;
    rows += taken.Size();
    record.NoteTaken(source.rows->Last());
    return true;
  }
  /// A record without rows up to where totals have been read need not be looked for there again.
  void PassTotals(const TotalsReader& totals, const RowPlace& passed) {
    totalsRead = std::max(totalsRead, passed.row);
    for (WantedRecord& record : records) {
      const auto begin = totals.BeginOf(*record.layout);
      // A second batch of the second that was given last may still come.
      const bool isOfThatTime = record.place.row > 0 && record.place.time == passed.time;
      if (begin && passed.row >= *begin && passed.row > record.taken && !isOfThatTime) {
        record.place = PassedPlace(passed);
        hasMoved = true;
      }
    }
  }
  [[nodiscard]] bool IsFull() const {
    return text.End().samples >= most || text.End().bytes >= kMostBytes;
  }
  void Answer(bool isMore, long wait) {
    Json next = Json::Object();
    for (const WantedRecord& record : records) {
      next[record.name] = Json::Array({record.place.time, record.place.row});
    }
    const MetricText::Mark end = text.End();
    const Json head{
        {"next", std::move(next)}, {"more", isMore},     {"oldest", oldest}, {"rows", rows},
        {"count", end.samples},    {"bytes", end.bytes}, {"wait", wait}};
    request->SucceedRaw("samples", head, text.Finish());
  }
};

SampleQueries::SampleQueries(RequestTurns& turns, HistoryStore& store, const ScheduleBook& schedule,
                             std::chrono::milliseconds longestLook)
    : m_store(store), m_schedule(schedule), m_turns(turns, store), m_longestLook(longestLook) {
  m_store.OnClosing([this] { DropReaders(); });
}

SampleQueries::~SampleQueries() { m_store.OnClosing(nullptr); }

void SampleQueries::Samples(const std::shared_ptr<ControlRequest>& request) {
  const Json& message = request->Message();
  const auto work = std::make_shared<Work>();
  work->request = request;
  work->answerBy = TurnClock::now() + m_longestLook;
  for (auto error :
       {ReadSampleNames(message, work->names), ReadSampledRecords(message, work->records),
        ReadPlaces(message, work->records), ReadSampleCount(message, work->most)}) {
    if (error) {
      request->Fail(*error);
      return;
    }
  }
  // Growing step by step costs more than all else; room that is not used costs nothing.
  work->text.Reserve(std::min(kMostReserved, work->most * kUsualLine));
  m_turns.Add(request, [this, work](SqlDatabase& database) { return TakeTurn(database, *work); });
}

void SampleQueries::DropReaders() {
  m_readers.clear();
  m_totals.reset();
}

void SampleQueries::DropOldReaders(SqlDatabase& database) {
  const std::int64_t schema = database.Number("PRAGMA schema_version");
  if (m_schema != schema || !m_totals) {
    DropReaders();
    m_totals.emplace();
    m_schema = schema;
  }
}

void SampleQueries::SeekAll(SqlDatabase& database, Work& work, TurnClock::time_point end) {
  const std::int64_t now = std::time(nullptr);
  std::vector<TotalsReader::Wanted> totals;
  for (WantedRecord& record : work.records) {
    record.taken = 0;
    if (HoldsGrowth(*record.layout)) {
      totals.push_back({record.layout, record.place});
      continue;
    }
    std::unique_ptr<RowReader>& reader = m_readers[record.layout];
    if (reader == nullptr) {
      reader = std::make_unique<RowReader>(*record.layout);
    }
    record.reader = reader.get();
    reader->Seek(database, record.place, now);
  }
  m_totals->Seek(database, totals, work.totalsRead, now, end);
}

void SampleQueries::RestAll(Work& work) {
  if (m_totals) {
    m_totals->Rest();
  }
  for (WantedRecord& record : work.records) {
    if (record.reader != nullptr) {
      std::exchange(record.reader, nullptr)->Rest();
    }
  }
}

long SampleQueries::WaitFor(const Work& work) const {
  auto next = TurnClock::now() + kLongestWait;
  for (const auto& entry : m_schedule.Entries()) {
    const bool isWanted = std::ranges::any_of(work.records, [&](const WantedRecord& record) {
      return record.name == entry->asker->Record();
    });
    if (isWanted) {
      next = std::min(next, entry->due);
    }
  }
  const auto rest = std::chrono::ceil<std::chrono::seconds>(next - TurnClock::now());
  return std::max<long>(0, static_cast<long>(rest.count()));
}

void SampleQueries::Answer(Work& work, bool isMore) {
  work.Answer(isMore, isMore ? 0 : WaitFor(work));
}

bool SampleQueries::TakeTurn(SqlDatabase& database, Work& work) {
  const ReadingTurn turn(database, [&] { RestAll(work); });
  const auto end = TurnClock::now() + kRequestTurn;
  DropOldReaders(database);
  SeekAll(database, work, end);
  const Reading reading = ReadOn(work, end);
  // Who would be told the place that it asked for would not get on.
  if (reading == Reading::kWaits && !(work.hasMoved && end >= work.answerBy)) {
    return true;
  }
  Answer(work, reading != Reading::kDone);
  return false;
}

SampleQueries::Reading SampleQueries::ReadOn(Work& work, TurnClock::time_point end) {
  while (!m_totals->IsInterrupted()) {
    const auto source = work.Oldest(*m_totals);
    if (!source) {
      work.PassTotals(*m_totals, m_totals->Passed());
      return Reading::kDone;
    }
    const RowPlace passed = m_totals->Passed();
    if (!work.Add(*source)) {
      work.PassTotals(*m_totals, passed);
      return Reading::kHasMore;
    }
    if (work.IsFull()) {
      work.PassTotals(*m_totals, m_totals->Passed());
      const bool isMore = m_totals->IsInterrupted() || work.Oldest(*m_totals);
      return isMore ? Reading::kHasMore : Reading::kDone;
    }
    if (TurnClock::now() >= end) {
      break;
    }
  }
  work.PassTotals(*m_totals, m_totals->Passed());
  return Reading::kWaits;
}
