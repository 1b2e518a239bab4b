#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <system_error>
#include <utility>

#include "json/JsonText.h"
#include "local/alarm/AlarmBook.h"
#include "local/alarm/AlarmFile.h"

namespace {

/// Faults of the file that the log is told.
constexpr std::size_t kMostToldFaults = 100;

}  // namespace

void AlarmBook::Configure(AlarmBookSettings settings) {
  m_settings = std::move(settings);
  m_command.Configure(m_settings.command);
  m_states =
      std::make_unique<AlarmStates>(m_loop, m_settings.statesFile, m_report, [this] { Post(); });
  ReadFile();
  m_states->Load(m_watches);
  // What is off ends behind that, once, by the number that the history knows.
  Resume();
  CheckSchedules();
  const std::time_t now = std::time(nullptr);
  for (const auto& watch : m_watches) {
    const AlarmDefinition& definition = watch->Definition();
    m_hasAgentAlarms = m_hasAgentAlarms || definition.layout == &AgentLayout();
    if (watch->Why().empty() && !definition.predicted.empty() &&
        definition.layout != &AgentLayout()) {
      m_past.emplace_back(*watch, now);
    }
  }
  Post();
}

void AlarmBook::ReadFile() {
  if (m_settings.file.empty()) {
    return;
  }
  const AlarmFileText file = ReadAlarmFile(m_settings.file);
  if (!file.error.empty()) {
    if (m_settings.isRequired || !file.isMissing) {
      m_report("Alarms: " + file.error);
    }
    return;
  }
  std::size_t told = 0;
  const auto tell = [&](const IniProblem& fault) {
    if (++told <= kMostToldFaults) {
      m_report(m_settings.file + ':' + std::to_string(fault.line) + ": " + fault.text);
    }
  };
  std::ranges::for_each(file.faults, tell);
  for (const AlarmEntry& entry : file.entries) {
    std::vector<IniProblem> faults;
    m_watches.push_back(std::make_unique<AlarmWatch>(MakeAlarmDefinition(entry, faults)));
    std::ranges::for_each(faults, tell);
    if (!m_watches.back()->Why().empty()) {
      m_onOff(m_watches.back()->Definition(), m_watches.back()->Why());
    }
  }
  if (told > kMostToldFaults) {
    m_report(m_settings.file + ": and " + std::to_string(told - kMostToldFaults) +
             " more faults, which qmtctl check alarms lists");
  }
}

AlarmWatch* AlarmBook::FindWatch(const Json& alarm) const {
  const auto found = std::ranges::find_if(m_watches, [&](const auto& watch) {
    return watch->Definition().name == alarm["alarm"].Text() &&
           watch->Definition().record == alarm["record"].Text();
  });
  return found == m_watches.end() ? nullptr : found->get();
}

/// The history is believed in what has begun and ended, the file of states in all else: a kill may
/// have come between the two.
void AlarmBook::Resume() {
  std::error_code ignored;
  if (m_watches.empty() && !std::filesystem::exists(m_store.Settings().file, ignored)) {
    return;
  }
  std::int64_t lastId = 0;
  std::vector<Json> active;
  m_history.ReadOpen(lastId, active);
  m_states->TakenUpTo(lastId);
  std::set<std::int64_t> open;
  for (const Json& each : active) {
    open.insert(each["id"].Whole());
  }
  for (const auto& watch : m_watches) {
    std::set<std::int64_t> ended;
    for (const auto& [key, state] : watch->States()) {
      if (state.phase != AlarmState::Phase::kActive || open.contains(state.id)) {
        continue;
      }
      const std::optional<bool> hasEnded = m_history.HasEnded(state.id);
      if (!hasEnded) {
        m_history.Put(AlarmJson(*watch, state));
      } else if (*hasEnded) {
        ended.insert(state.id);
      }
    }
    watch->Forget(ended);
  }
  std::ranges::for_each(active, [this](const Json& kept) { ResumeOne(kept); });
}

void AlarmBook::ResumeOne(const Json& kept) {
  AlarmWatch* watch = FindWatch(kept);
  const std::int64_t id = kept["id"].Whole();
  std::time_t until = std::max<std::time_t>(std::time(nullptr), kept["since"].Whole());
  if (watch != nullptr) {
    const auto known = watch->States().find(JsonText(kept["key"]));
    const bool isKnown = known != watch->States().end() && known->second.id >= id;
    if (isKnown && known->second.id == id && known->second.phase == AlarmState::Phase::kActive) {
      return;
    }
    if (!isKnown) {
      AlarmState state;
      state.phase = AlarmState::Phase::kActive;
      state.id = id;
      // The file may hold anything at all, and times are reckoned with it.
      state.since = std::max<std::time_t>(kept["since"].Whole(), 0);
      state.begins.push_back(state.since);
      state.key = kept["key"];
      state.values = kept["values"];
      state.text = kept["text"].Text();
      state.captured = CapturedNames(kept);
      watch->Adopt(std::move(state));
      return;
    }
    until = known->second.id == id && known->second.until != 0 ? known->second.until : until;
  }
  Json ended = kept;
  ended["state"] = "ended";
  ended["until"] = until;
  m_history.Put(ended);
  Tell(ended);
}
