#include "local/schedule/ScheduleBook.h"

#include <algorithm>
#include <charconv>
#include <new>

#include "node/LayoutRegistry.h"
#include "node/RecordCategory.h"
#include "node/Trace.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Lines of unknown records that are told one by one.
constexpr std::size_t kMostNamed = 10;

unsigned char CategoryOf(const std::string& record) {
  const RecordListing* listing = LayoutRegistry::Instance().FindListing(record);
  return listing == nullptr ? kIntervalCategory : listing->category;
}

/// Nothing is unknown while no record has been published.
bool IsUnknown(const std::string& record) {
  return !LayoutRegistry::Instance().Listing().empty() &&
         CheckRecord(record, 0) == RequestOutcome::kUnknownRecord;
}

/// Names of records are upper case: "; did you mean ...?" for one that is but for its case.
std::string Suggestion(const std::string& record) {
  for (const RecordListing& listing : LayoutRegistry::Instance().Listing()) {
    if (xlb_stricmp(record.c_str(), listing.name) == 0) {
      return std::string("; did you mean \"") + listing.name + "\"?";
    }
  }
  return "";
}

constexpr std::chrono::milliseconds kSecond{1000};
constexpr std::chrono::milliseconds kMiddle{500};
/// So far from the middle of a second a schedule's time may lie.
constexpr std::chrono::milliseconds kOffMiddle{100};

/// How long after `time` the next middle of a second of the wall clock is. The agent counts
/// intervals in whole seconds of that clock: a time near the turn of a second would make some
/// intervals of one second 0 seconds long.
Clock::duration UntilMiddleOfSecond(Clock::time_point time) {
  const auto wall = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch() + (time - Clock::now()));
  return (kSecond + kMiddle - wall % kSecond) % kSecond;
}

Clock::time_point NextMiddleOfSecond() {
  const Clock::time_point now = Clock::now();
  return now + UntilMiddleOfSecond(now);
}

/// The same time, or the nearest middle of a second that is to come, where the wall clock has been
/// set meanwhile.
Clock::time_point NearMiddleOfSecond(Clock::time_point time) {
  const Clock::duration ahead = UntilMiddleOfSecond(time);
  const Clock::time_point before = time + ahead - kSecond;
  if (ahead <= kOffMiddle || kSecond - ahead <= kOffMiddle) {
    return time;
  }
  return ahead > kMiddle && before > Clock::now() ? before : time + ahead;
}

}  // namespace

long ScheduleBook::ParseSeconds(const std::string& text) {
  long seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool isWhole = error == std::errc{} && end == text.data() + text.size();
  return isWhole && seconds >= kMinSeconds && seconds <= kMaxSeconds ? seconds : 0;
}

ScheduleBook::ScheduleBook(EventLoop& loop, BatchDesk& desk, RecordSink& sink)
    : m_loop(loop), m_desk(desk), m_sink(sink), m_timer(loop) {}

void ScheduleBook::Load(const std::string& path, const std::vector<ScheduleLine>& lines,
                        const ProblemReport& report) {
  Load(lines, [&](std::size_t line, const std::string& problem) {
    report(path + ":" + std::to_string(line) + ": " + problem);
  });
}

void ScheduleBook::Load(const std::vector<ScheduleLine>& lines, const LineReport& report) {
  std::size_t unknown = 0;
  std::size_t lastUnknown = 0;
  for (const ScheduleLine& line : lines) {
    if (IsUnknown(line.record)) {
      lastUnknown = line.number;
      if (++unknown <= kMostNamed) {
        report(line.number, "no record \"" + line.record + '"' + Suggestion(line.record));
      }
      continue;
    }
    const long seconds = ParseSeconds(line.seconds);
    if (seconds == 0) {
      report(line.number, "the seconds of " + line.record +
                              " must be a whole number from 1 to 86400, not \"" + line.seconds +
                              "\"");
      continue;
    }
    const unsigned char category = CategoryOf(line.record);
    if (!m_held.emplace(line.record, category).second) {
      report(line.number,
             "the record " + line.record + " has a line already; this one is left out");
      continue;
    }
    Add(line.record, category, seconds);
  }
  if (unknown > kMostNamed) {
    report(lastUnknown, "this line and " + std::to_string(unknown - kMostNamed - 1) +
                            " others above it name records that don't exist either");
  }
}

std::shared_ptr<ScheduleBook::Entry> ScheduleBook::Add(const std::string& record,
                                                       unsigned char category, long seconds) {
  auto entry = std::make_shared<Entry>();
  entry->asker =
      std::make_shared<RecordAsker>(record, category, RecordAsker::Look::kScheduled, true);
  entry->number = ++m_lastNumber;
  if (m_withTotals.contains(record)) {
    entry->totals =
        std::make_shared<RecordAsker>(record, category, RecordAsker::Look::kOnDemand, false);
  }
  entry->period = std::chrono::seconds(seconds);
  m_entries.push_back(entry);
  return entry;
}

ScheduleBook::EntryList::iterator ScheduleBook::Find(const std::string& record) {
  return std::find_if(m_entries.begin(), m_entries.end(),
                      [&](const auto& entry) { return record == entry->asker->Record(); });
}

void ScheduleBook::Set(const std::string& record, long seconds) {
  const auto found = Find(record);
  const bool isNew = found == m_entries.end();
  const unsigned char category = CategoryOf(record);
  const std::shared_ptr<Entry> entry = isNew ? Add(record, category, seconds) : *found;
  entry->period = std::chrono::seconds(seconds);
  entry->due = NextMiddleOfSecond() + entry->period;
  if (isNew) {
    m_held.emplace(record, category);
    PostBatch({entry});
  }
  WaitForNext();
}

bool ScheduleBook::Remove(const std::string& record) {
  const auto found = Find(record);
  if (found == m_entries.end()) {
    return false;
  }
  m_held.erase({record, (*found)->asker->Category()});
  m_entries.erase(found);
  WaitForNext();
  m_onRemoved();
  return true;
}

bool ScheduleBook::Holds(const std::string& record, unsigned char category) const {
  return m_held.contains({record, category});
}

void ScheduleBook::Start() {
  const Clock::time_point base = NextMiddleOfSecond();
  for (const std::shared_ptr<Entry>& entry : m_entries) {
    entry->due = base + entry->period;
  }
  PostBatch(m_entries);
  WaitForNext();
}

void ScheduleBook::WaitForNext() {
  const auto next = std::min_element(m_entries.begin(), m_entries.end(),
                                     [](const auto& a, const auto& b) { return a->due < b->due; });
  if (next == m_entries.end()) {
    m_timer.Cancel();
    return;
  }
  m_timer.At((*next)->due, [this] {
    try {
      AskForDue();
    } catch (const std::bad_alloc&) {
      // The next batch is due all the same.
      WaitForNext();
      throw;
    }
    WaitForNext();
  });
}

void ScheduleBook::AskForDue() {
  const Clock::time_point now = Clock::now();
  EntryList due;
  for (const std::shared_ptr<Entry>& entry : m_entries) {
    if (entry->due > now) {
      continue;
    }
    const auto passed = (now - entry->due) / entry->period;
    entry->skipped += static_cast<std::uint64_t>(passed);
    entry->due = NearMiddleOfSecond(entry->due + entry->period * (passed + 1));
    if (entry->isWaiting) {
      ++entry->skipped;
    } else {
      due.push_back(entry);
    }
  }
  PostBatch(std::move(due));
}

void ScheduleBook::SetWaiting(const EntryList& entries, bool isWaiting) {
  for (const std::shared_ptr<Entry>& entry : entries) {
    entry->isWaiting = isWaiting;
  }
}

void ScheduleBook::PostBatch(EntryList due) {
  if (due.empty()) {
    return;
  }
  const auto entries = std::make_shared<const EntryList>(std::move(due));
  LoopTask task;
  task.isBatch = true;
  task.run = [this, entries](CMBNode& node) { Collect(node, *entries); };
  task.fail = [entries] { SetWaiting(*entries, false); };
  m_loop.Post(std::move(task));
  SetWaiting(*entries, true);
}

std::vector<const CMBRecord*> ScheduleBook::LoggedRows(CMBNode& node, const RecordAsker& asker) {
  std::vector<const CMBRecord*> rows;
  for (CMBRecord* row : asker.Rows()) {
    if (node.ShouldLogRecord(row) != 0) {
      rows.push_back(row);
    }
  }
  return rows;
}

void ScheduleBook::Collect(CMBNode& node, const EntryList& due) {
  std::vector<std::shared_ptr<RecordAsker>> askers;
  for (const std::shared_ptr<Entry>& entry : due) {
    askers.push_back(entry->asker);
  }
  for (const std::shared_ptr<Entry>& entry : due) {
    if (entry->totals != nullptr) {
      askers.push_back(entry->totals);
    }
  }
  const std::vector<RequestOutcome> outcomes = m_desk.SendOfSchedule(node, askers);
  try {
    GiveRows(node, due, outcomes);
    m_sink.EndBatch();
  } catch (const std::bad_alloc&) {
    m_sink.AbandonBatch();
    throw;
  }
  m_desk.ReleaseMemory();
}

void ScheduleBook::GiveRows(CMBNode& node, const EntryList& due,
                            std::span<const RequestOutcome> outcomes) {
  std::size_t totals = due.size();
  for (std::size_t i = 0; i < due.size(); ++i) {
    Entry& entry = *due[i];
    entry.isWaiting = false;
    ++entry.runs;
    const bool hasTotals = entry.totals != nullptr && outcomes[totals++] == RequestOutcome::kDone;
    if (outcomes[i] != RequestOutcome::kDone) {
      continue;
    }
    const std::vector<const CMBRecord*> rows = LoggedRows(node, *entry.asker);
    entry.rows = rows.size();
    entry.lastTime = entry.asker->AnswerTime();
    m_sink.Take({entry.asker->Record(), entry.asker->Category(), entry.lastTime, rows,
                 entry.asker->Owner(), entry.number, entry.asker->LacksFigures()});
    // A first look, which has nothing to compare with, is no row of either.
    if (hasTotals && !rows.empty()) {
      m_sink.TakeTotals({entry.totals->Record(), entry.totals->Category(), entry.lastTime,
                         LoggedRows(node, *entry.totals), entry.totals->Owner(), entry.number});
    }
  }
}
