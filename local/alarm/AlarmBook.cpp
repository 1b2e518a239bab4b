#include "local/alarm/AlarmBook.h"

#include <algorithm>
#include <utility>

namespace {

using AlarmClock = std::chrono::steady_clock;

/// Rows between two looks at the clock.
constexpr std::size_t kRowsBetweenLooks = 16;

}  // namespace

AlarmBook::AlarmBook(EventLoop& loop, BatchDesk& desk, ScheduleBook& schedule,
                     const LastRows& lastRows, HistoryStore& history, ProblemReport report)
    : m_loop(loop),
      m_schedule(schedule),
      m_lastRows(lastRows),
      m_store(history),
      m_report(std::move(report)),
      m_history(history, m_report),
      m_capture(loop, desk, schedule, lastRows, m_history),
      m_command(loop, m_report),
      m_lossLog(m_report),
      m_agentRow(desk, schedule, history) {
  m_capture.OnReady([this] { Post(); });
  m_capture.OnKept([this](std::int64_t id, const std::string& record) { Captured(id, record); });
  // The last schedule may go, with no batch to come.
  schedule.OnRemoved([this, isAlive = m_isAlive] {
    if (*isAlive) {
      Post();
    }
  });
}

AlarmBook::~AlarmBook() { *m_isAlive = false; }

std::chrono::seconds AlarmBook::IntervalOf(const std::string& record) const {
  std::chrono::seconds shortest{0};
  for (const auto& entry : m_schedule.Entries()) {
    const bool isIt = record == kAgentRecord || record == entry->asker->Record();
    if (isIt && (shortest.count() == 0 || entry->period < shortest)) {
      shortest = entry->period;
    }
  }
  return shortest;
}

void AlarmBook::CheckSchedules() {
  for (const auto& watch : m_watches) {
    const AlarmDefinition& definition = watch->Definition();
    if (!definition.why.empty()) {
      continue;
    }
    const bool isScheduled = definition.layout == &AgentLayout() ||
                             m_schedule.Holds(definition.record, definition.layout->category);
    if (isScheduled != watch->Why().empty()) {
      watch->SetWhy(isScheduled ? "" : "no schedule collects the record " + definition.record);
      if (!isScheduled) {
        m_onOff(definition, watch->Why());
      }
    }
  }
}

bool AlarmBook::EndOff(AlarmClock::time_point end) {
  const auto change = [this](AlarmWatch& one, AlarmState& state) { Changed(one, state); };
  const auto isOver = [end] { return AlarmClock::now() >= end; };
  return std::ranges::any_of(m_watches, [&](const auto& watch) {
    return !watch->Why().empty() && watch->EndAll(std::time(nullptr), change, isOver);
  });
}

void AlarmBook::Take(const ScheduledRows& rows) {
  if (m_watches.empty()) {
    return;
  }
  if (m_taken == nullptr) {
    m_taken = std::make_unique<Batch>();
  }
  m_taken->rows[rows.record] = m_lastRows.Find(rows.record, rows.category);
}

void AlarmBook::EndBatch() {
  if (m_watches.empty()) {
    return;
  }
  if (m_hasAgentAlarms) {
    const std::time_t now = std::time(nullptr);
    std::vector<unsigned char> row =
        m_agentRow.Make(now, m_command.Failures() + m_command.Dropped());
    if (!row.empty()) {
      const auto kept = std::make_shared<KeptRows>();
      kept->time = now;
      const auto bytes = std::make_shared<const std::vector<unsigned char>>(std::move(row));
      kept->rows.emplace_back(*bytes);
      kept->owner = bytes;
      if (m_taken == nullptr) {
        m_taken = std::make_unique<Batch>();
      }
      m_taken->rows[kAgentRecord] = kept;
    }
  }
  if (m_taken != nullptr) {
    if (m_batches.size() >= kMostBatches) {
      // The one at work is half done.
      m_batches.erase(m_batches.begin() + 1);
      ++m_skippedBatches;
    }
    m_batches.push_back(std::exchange(m_taken, nullptr));
  }
  Post();
}

void AlarmBook::Post() {
  if (m_isPosted) {
    return;
  }
  LoopTask task;
  task.run = [this, isAlive = m_isAlive](CMBNode&) {
    if (*isAlive) {
      m_isPosted = false;
      Work();
    }
  };
  task.drop = [this, isAlive = m_isAlive] {
    if (*isAlive) {
      m_isPosted = false;
    }
  };
  m_loop.Post(std::move(task));
  m_isPosted = true;
}

void AlarmBook::Work() {
  const auto end = AlarmClock::now() + kTurn;
  CheckSchedules();
  bool isMore = EndOff(end) || ReadPast(end) || Evaluate(end);
  isMore = m_capture.Work(end) || isMore;
  // A turn of its own where this one has been used up.
  isMore = AlarmClock::now() < end ? m_history.Flush() || isMore : true;
  if (m_batches.empty() && m_states != nullptr) {
    m_states->Save(m_watches);
  }
  m_lossLog.Note(Losses(), AlarmClock::now());
  if (isMore) {
    Post();
  }
}

bool AlarmBook::ReadPast(AlarmClock::time_point end) {
  while (!m_past.empty() && AlarmClock::now() < end) {
    bool isMore = false;
    SqlDatabase* database = m_store.Database();
    try {
      isMore = database != nullptr && m_past.front().GoOn(*database);
    } catch (const SqlError&) {
      // The line begins anew, as it does without a history.
    }
    if (!isMore) {
      m_past.pop_front();
    }
  }
  return !m_past.empty();
}

bool AlarmBook::Evaluate(AlarmClock::time_point end) {
  while (!m_batches.empty()) {
    Batch& batch = *m_batches.front();
    while (batch.watch < m_watches.size()) {
      if (EvaluateWatch(batch, end)) {
        return true;
      }
      ++batch.watch;
      batch.row = 0;
      batch.hasBegun = false;
    }
    m_batches.pop_front();
  }
  return false;
}

bool AlarmBook::EvaluateWatch(Batch& batch, AlarmClock::time_point end) {
  AlarmWatch& watch = *m_watches[batch.watch];
  const AlarmDefinition& definition = watch.Definition();
  const auto found = batch.rows.find(definition.record);
  if (!watch.Why().empty() || found == batch.rows.end()) {
    return false;
  }
  const KeptRows& rows = *found->second;
  if (!rows.lacksFigures && watch.IsFirstLook(rows.schedule, rows.rows.empty())) {
    return false;
  }
  const AlarmWatch::Change change = [this](AlarmWatch& one, AlarmState& state) {
    Changed(one, state);
  };
  if (!std::exchange(batch.hasBegun, true)) {
    watch.Begin(rows.time, IntervalOf(definition.record), !rows.lacksFigures);
  }
  while (batch.row < rows.rows.size()) {
    watch.Row(rows.rows[batch.row], change);
    ++batch.row;
    if (batch.row % kRowsBetweenLooks == 0 && batch.row < rows.rows.size() &&
        AlarmClock::now() >= end) {
      return true;
    }
  }
  return watch.End(change, [end] { return AlarmClock::now() >= end; });
}

void AlarmBook::Changed(AlarmWatch& watch, AlarmState& state) {
  const bool isBegin = state.phase == AlarmState::Phase::kActive;
  if (isBegin) {
    state.id = m_states->TakeId();
    state.captured = m_capture.Take(state.id, watch.Definition().capture, m_batches.front()->rows);
    ++m_begun;
  }
  const Json alarm = AlarmJson(watch, state);
  m_history.Put(alarm);
  Tell(alarm);
}

void AlarmBook::Captured(std::int64_t id, const std::string& record) {
  const auto recent = std::find_if(m_recent.rbegin(), m_recent.rend(),
                                   [&](const Json& alarm) { return alarm["id"].Whole() == id; });
  for (const auto& watch : m_watches) {
    if (const AlarmState* state = watch->NoteCaptured(id, record); state != nullptr) {
      const Json alarm = AlarmJson(*watch, *state);
      if (recent != m_recent.rend()) {
        *recent = alarm;
      }
      m_history.Put(alarm);
      return;
    }
  }
  // It has ended since, and is forgotten but for the list.
  if (recent != m_recent.rend()) {
    (*recent)["captured"].PushBack(record);
    m_history.Put(*recent);
  }
}

void AlarmBook::Tell(const Json& alarm) {
  m_recent.push_back(alarm);
  if (m_recent.size() > kMostRecent) {
    m_recent.pop_front();
  }
  if (m_command.IsConfigured()) {
    m_command.Run(AlarmEnvironment(alarm));
  }
  for (const Listener& listener : m_listeners) {
    listener(alarm);
  }
}

Json AlarmBook::AlarmJson(const AlarmWatch& watch, const AlarmState& state) {
  const AlarmDefinition& definition = watch.Definition();
  const bool isActive = state.phase == AlarmState::Phase::kActive;
  return Json{{"id", state.id},
              {"alarm", definition.name},
              {"record", definition.record},
              {"key", state.key},
              {"severity", definition.severity},
              {"state", isActive ? "active" : "ended"},
              {"since", state.since},
              {"until", isActive ? Json(nullptr) : Json(state.until)},
              {"text", state.text},
              {"values", state.values},
              {"captured", Json(state.captured)}};
}

const char* AlarmBook::StateName(const AlarmWatch& watch) {
  return !watch.Why().empty()  ? "off"
         : watch.Active() > 0  ? "active"
         : watch.Pending() > 0 ? "pending"
                               : "ok";
}

std::vector<Json> AlarmBook::Active() const {
  std::vector<Json> list;
  for (const auto& watch : m_watches) {
    for (const auto& [key, state] : watch->States()) {
      if (state.phase == AlarmState::Phase::kActive) {
        list.push_back(AlarmJson(*watch, state));
      }
    }
  }
  std::ranges::sort(list,
                    [](const Json& a, const Json& b) { return a["id"].Whole() > b["id"].Whole(); });
  return list;
}

AlarmFigures AlarmBook::Figures() const {
  AlarmFigures figures;
  for (const auto& watch : m_watches) {
    figures.alarms.push_back(
        {watch->Definition().name, watch->Definition().severity, watch->Active()});
  }
  figures.begun = m_begun;
  figures.losses = Losses();
  figures.commands = m_command.Runs();
  figures.commandFailures = m_command.Failures();
  figures.droppedCommands = m_command.Dropped();
  return figures;
}

AlarmLosses AlarmBook::Losses() const {
  AlarmLosses losses{m_skippedBatches, 0, m_history.Lost(), m_capture.Lost()};
  for (const auto& watch : m_watches) {
    losses.leftOut += watch->LeftOut();
  }
  return losses;
}

void AlarmBook::Stop() {
  if (m_states == nullptr) {
    return;
  }
  m_loop.Try([this] { m_command.Stop(); });
  m_loop.Try([this] { static_cast<void>(Evaluate(AlarmClock::now() + kTurn)); });
  m_loop.Try([this] { static_cast<void>(m_history.Flush()); });
  m_loop.Try([this] { m_states->SaveLast(m_watches); });
}
