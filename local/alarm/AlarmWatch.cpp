#include "local/alarm/AlarmWatch.h"

#include <algorithm>
#include <new>
#include <utility>

#include "json/JsonText.h"
#include "local/history/RecordJson.h"
#include "local/history/RowFields.h"

namespace {

using AlarmBytes = std::span<const unsigned char>;

constexpr std::int64_t kCountedIntervals = 2;

bool AllHold(const std::vector<RowCondition>& conditions,
             const std::function<Json(std::size_t)>& valueAt) {
  return std::ranges::all_of(conditions, [&](const RowCondition& condition) {
    return condition.Holds(AsSeen(valueAt(condition.Field().place)));
  });
}

}  // namespace

AlarmWatch::AlarmWatch(AlarmDefinition definition)
    : m_definition(std::move(definition)), m_why(m_definition.why) {}

std::size_t AlarmWatch::Count(AlarmState::Phase phase) const {
  return static_cast<std::size_t>(std::ranges::count_if(
      m_states, [&](const auto& entry) { return entry.second.phase == phase; }));
}

Json AlarmWatch::KeyOf(AlarmBytes bytes) const {
  Json key = Json::Object();
  for (const std::size_t place : m_definition.keys) {
    const FieldLayout& field = m_definition.layout->fields[place];
    key.Members().push_back({field.label, AsSeen(FieldToJson(field, bytes))});
  }
  return key;
}

std::string AlarmWatch::RawKeyOf(AlarmBytes bytes) const {
  std::string key;
  for (const std::size_t place : m_definition.keys) {
    const FieldLayout& field = m_definition.layout->fields[place];
    const AlarmBytes part = bytes.subspan(field.offset, field.width);
    // What is behind the end of a text is no part of it.
    const auto end = field.type == FieldType::kText ? std::ranges::find(part, '\0') : part.end();
    key.append(part.begin(), end).push_back('\0');
  }
  return key;
}

void AlarmWatch::Begin(std::time_t time, std::chrono::seconds interval, bool isWhole) {
  const std::int64_t past = m_time == 0 ? 0 : time - m_time;
  // A clock that was set back says nothing.
  m_elapsed = std::clamp<std::int64_t>(past, 0, kCountedIntervals * interval.count());
  if (past < 0) {
    SetBack(time, interval);
  }
  m_time = time;
  m_isWhole = isWhole;
  m_batchKeys.clear();
  ++m_batch;
}

/// What was lies as far back as before, lest it counts as the future until the clock is there
/// again.
void AlarmWatch::SetBack(std::time_t time, std::chrono::seconds interval) {
  for (auto& [key, state] : m_states) {
    for (std::time_t& begin : state.begins) {
      begin = std::min(begin - (m_time - time), time);
    }
  }
  for (auto& [key, fields] : m_series) {
    for (AlarmSeries& series : fields) {
      series.MoveBack(time - interval.count());
    }
  }
}

bool AlarmWatch::Foretell(const std::string& key, AlarmBytes bytes) {
  const auto& fields = m_definition.predicted;
  m_foretold.assign(fields.size(), 0);
  bool isTold = true;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const Json value = FieldToJson(m_definition.layout->fields[fields[i]], bytes);
    if (!value.IsNumber()) {
      return false;
    }
    AddPast(key, i, m_time, value.Number());
    const auto series = m_series.find(key);
    const auto ahead = series == m_series.end()
                           ? std::nullopt
                           : series->second[i].Ahead(m_time, m_definition.predict);
    isTold = isTold && ahead.has_value();
    m_foretold[i] = ahead.value_or(0);
  }
  return isTold;
}

void AlarmWatch::AddPast(const std::string& key, std::size_t field, std::time_t time,
                         double value) {
  auto series = m_series.find(key);
  if (series == m_series.end()) {
    if (m_series.size() >= kMostSeries) {
      ++m_leftOut;
      return;
    }
    series = m_series
                 .emplace(key, std::vector(m_definition.predicted.size(),
                                           AlarmSeries(m_definition.over)))
                 .first;
  }
  series->second[field].Add(time, value);
}

void AlarmWatch::Row(AlarmBytes bytes, const Change& change) {
  const auto present = [&](std::size_t place) {
    return FieldToJson(m_definition.layout->fields[place], bytes);
  };
  if (!AllHold(m_definition.where, present)) {
    return;
  }
  const auto [place, isFirst] = m_batchKeys.insert(RawKeyOf(bytes));
  if (!isFirst) {
    return;
  }
  try {
    Judge(bytes, change);
  } catch (const std::bad_alloc&) {
    m_batchKeys.erase(place);  // it is given once more
    throw;
  }
}

void AlarmWatch::Judge(AlarmBytes bytes, const Change& change) {
  const auto present = [&](std::size_t place) {
    return FieldToJson(m_definition.layout->fields[place], bytes);
  };
  Json key;
  std::string keyText;
  const bool isForetold = !m_definition.predicted.empty();
  bool isTold = true;
  if (isForetold || !m_states.empty()) {
    key = KeyOf(bytes);
    keyText = JsonText(key);
    isTold = !isForetold || Foretell(keyText, bytes);
  }
  const auto judged = [&](std::size_t place) -> Json {
    const auto at = std::ranges::find(m_definition.predicted, place);
    return at == m_definition.predicted.end()
               ? present(place)
               : Json(m_foretold[static_cast<std::size_t>(at - m_definition.predicted.begin())]);
  };
  const bool holds = isTold && AllHold(m_definition.condition, judged);
  if (!holds && m_states.empty()) {
    return;
  }
  if (keyText.empty()) {
    key = KeyOf(bytes);
    keyText = JsonText(key);
  }
  auto place = m_states.find(keyText);
  if (place == m_states.end()) {
    if (!holds) {
      return;
    }
    if (m_states.size() >= kMostStates) {
      ++m_leftOut;
      return;
    }
    place = m_states.emplace(std::move(keyText), AlarmState()).first;
    place->second.phase = AlarmState::Phase::kEnded;
    place->second.key = std::move(key);
  }
  AlarmState& state = place->second;
  if (std::exchange(state.seen, m_batch) == m_batch || !isTold) {
    return;
  }
  const bool isOver = !holds && (m_definition.until.empty() || AllHold(m_definition.until, judged));
  Note(state, holds, isOver, bytes, change);
}

void AlarmWatch::Note(AlarmState& state, bool holds, bool isOver, AlarmBytes bytes,
                      const Change& change) {
  using enum AlarmState::Phase;
  if (state.phase == kActive) {
    if (isOver) {
      NoteOver(state, change);
    } else {
      m_isChanged = m_isChanged || state.over.has_value();
      state.over.reset();
      Fill(state, bytes);
    }
    return;
  }
  if (!holds) {
    if (state.phase == kPending) {
      state.phase = kEnded;
      m_isChanged = true;
    }
    return;
  }
  if (state.phase == kEnded) {
    state.phase = kPending;
    state.held = 0;
    m_isChanged = true;
  } else {
    state.held += m_elapsed;
  }
  if (state.held >= m_definition.holdFor.count()) {
    Fill(state, bytes);
    Start(state, change);
  }
}

void AlarmWatch::Start(AlarmState& state, const Change& change) {
  state.phase = AlarmState::Phase::kActive;
  state.over.reset();
  state.since = m_time;
  state.until = 0;
  state.begins.push_back(m_time);
  if (state.begins.size() > kFlaps) {
    state.begins.pop_front();
  }
  m_isChanged = m_hasTold = true;
  change(*this, state);
}

std::int64_t AlarmWatch::KeepOf(const AlarmState& state) const {
  const bool isFlapping =
      state.begins.size() >= kFlaps && m_time - state.begins.front() < kFlapTime.count();
  return std::max<std::int64_t>(m_definition.keep.count(), isFlapping ? kFlapKeep.count() : 0);
}

void AlarmWatch::NoteOver(AlarmState& state, const Change& change) {
  m_isChanged = m_isChanged || !state.over;
  state.over = state.over ? *state.over + m_elapsed : 0;
  if (*state.over < KeepOf(state)) {
    return;
  }
  state.phase = AlarmState::Phase::kEnded;
  state.until = std::max(state.since, m_time);
  m_isChanged = m_hasTold = true;
  change(*this, state);
}

void AlarmWatch::Fill(AlarmState& state, AlarmBytes bytes) const {
  const auto value = [&](std::size_t place) {
    return AsSeen(FieldToJson(m_definition.layout->fields[place], bytes));
  };
  state.text = m_definition.text.Expand(value);
  state.values = Json::Object();
  for (const std::size_t place : m_definition.values) {
    state.values.Members().push_back({m_definition.layout->fields[place].label, value(place)});
  }
}

bool AlarmWatch::End(const Change& change, const IsOver& isOver) {
  m_batchKeys = {};
  for (auto place = m_states.begin(); place != m_states.end();) {
    AlarmState& state = place->second;
    bool isTold = false;
    if (std::exchange(state.seen, m_batch) != m_batch && m_isWhole) {
      if (state.phase == AlarmState::Phase::kActive) {
        NoteOver(state, change);
        isTold = state.phase == AlarmState::Phase::kEnded;
      } else if (state.phase == AlarmState::Phase::kPending) {
        state.phase = AlarmState::Phase::kEnded;
        m_isChanged = true;
      }
    }
    // What has ended takes no room from what begins.
    const bool isRemembered = !state.begins.empty() && m_states.size() <= kMostStates / 2 &&
                              m_time - state.begins.back() < kFlapTime.count();
    if (state.phase == AlarmState::Phase::kEnded && !isRemembered) {
      place = m_states.erase(place);
    } else {
      ++place;
    }
    if (isTold && isOver()) {
      return true;
    }
  }
  std::erase_if(m_series, [&](const auto& entry) {
    return entry.second.front().LastTime() < m_time - m_definition.over.count();
  });
  return false;
}

bool AlarmWatch::EndAll(std::time_t time, const Change& change, const IsOver& isOver) {
  m_isChanged = m_isChanged || !m_states.empty();
  m_batchKeys = {};
  while (!m_states.empty()) {
    AlarmState& state = m_states.begin()->second;
    if (state.phase == AlarmState::Phase::kActive) {
      state.phase = AlarmState::Phase::kEnded;
      state.until = std::max(state.since, time);
      m_hasTold = true;
      change(*this, state);
    }
    m_states.erase(m_states.begin());
    if (isOver()) {
      break;
    }
  }
  if (!m_states.empty()) {
    return true;
  }
  m_series.clear();
  m_time = 0;
  m_schedule.reset();
  return false;
}

AlarmState* AlarmWatch::NoteCaptured(std::int64_t id, const std::string& record) {
  for (auto& [key, state] : m_states) {
    if (state.id == id) {
      state.captured.push_back(record);
      m_isChanged = true;
      return &state;
    }
  }
  return nullptr;
}

void AlarmWatch::Adopt(AlarmState state) {
  std::string key = JsonText(state.key);
  m_states.insert_or_assign(std::move(key), std::move(state));
}

bool AlarmWatch::IsCounting() const {
  return std::ranges::any_of(m_states, [](const auto& entry) {
    const AlarmState& state = entry.second;
    return state.phase == AlarmState::Phase::kPending ||
           (state.phase == AlarmState::Phase::kActive && state.over);
  });
}

void AlarmWatch::Forget(const std::set<std::int64_t>& ids) {
  std::erase_if(m_states, [&](const auto& entry) { return ids.contains(entry.second.id); });
}
