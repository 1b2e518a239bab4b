#include "gate/alarm/AlarmDesk.h"

#include <chrono>
#include <cstdint>
#include <ctime>
#include <new>
#include <string>
#include <utility>

#include "gate/alarm/AlertmanagerSender.h"
#include "gate/alarm/WebhookSender.h"
#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"

namespace {

constexpr std::chrono::seconds kFollowPause{1};
/// A daemon that tells no alarms may be another one by then.
constexpr std::chrono::seconds kRefusedPause{60};
constexpr std::chrono::seconds kSavePause{1};
constexpr std::chrono::seconds kTick{20};
constexpr std::size_t kMostEarlyLines = 10000;
constexpr JsonLimits kAlarmJson{.depth = 32};

std::string Alarms(std::uint64_t count) {
  return count == 1 ? "an alarm" : std::to_string(count) + " alarms";
}

}  // namespace

AlarmDesk::AlarmDesk(DaemonDesk& desk, HttpSender& sender, AlarmTargets targets, Hooks hooks)
    : m_desk(desk),
      m_sender(sender),
      m_targets(std::move(targets)),
      m_hooks(std::move(hooks)),
      m_again(desk.Loop()),
      m_save(desk.Loop()),
      m_tick(desk.Loop()),
      m_file(desk.Loop(), m_targets.folder.empty() ? "" : m_targets.folder + "/alarms.json",
             [this](const std::string& error) { OnSaved(error); }) {
  MakeReceivers();
  if (!m_receivers.empty()) {
    Remember();
    Follow();
  }
}

AlarmDesk::~AlarmDesk() {
  // The end of the file's writer waits for it.
  try {
    if (!m_receivers.empty()) {
      Save();
    }
  } catch (const std::bad_alloc&) {
    // The file stays as it is: what it lacks is told once more.
  }
}

void AlarmDesk::Remember() {
  if (m_targets.folder.empty()) {
    return;
  }
  std::string error;
  m_memory = m_saved = ReadAlarmMemory(m_file.Path(), error);
  if (!error.empty()) {
    m_hooks.report(error + "; all alarms that are active are told anew");
  }
}

void AlarmDesk::MakeReceivers() {
  const AlarmReceiverSettings settings{m_targets.host, m_targets.link, m_targets.identity,
                                       m_hooks.report, [this] {
                                         PlanSave();
                                         m_hooks.onFigures();
                                       }};
  for (const std::string& url : m_targets.alertmanagers) {
    m_receivers.push_back(std::make_unique<AlertmanagerSender>(
        m_desk.Loop(), m_sender, url, settings, AlertmanagerSender::Pace{}));
  }
  for (const std::string& url : m_targets.webhooks) {
    m_receivers.push_back(std::make_unique<WebhookSender>(m_desk.Loop(), m_sender, url, settings));
  }
}

std::vector<ReceiverFigures> AlarmDesk::Figures() const {
  std::vector<ReceiverFigures> figures;
  for (const auto& receiver : m_receivers) {
    figures.push_back(receiver->Figures());
  }
  return figures;
}

void AlarmDesk::Follow() {
  m_isLive = false;
  m_lines.clear();
  m_follow = std::make_unique<DaemonFollow>(
      m_desk, Json{{"op", "alarm_follow"}},
      DaemonFollow::Hooks{[this](bool isGood, std::string_view line) { OnAnswer(isGood, line); },
                          [this](std::string_view line) { OnLine(line); },
                          [this] { FollowAgain(kFollowPause); }});
}

void AlarmDesk::FollowAgain(std::chrono::milliseconds pause) {
  m_isLive = false;
  m_question.reset();
  m_missed.reset();
  m_again.After(pause,
                [this] { OrIfNoMemory([&] { Follow(); }, [&] { FollowAgain(kFollowPause); }); });
}

void AlarmDesk::OnAnswer(bool isGood, std::string_view line) {
  if (!isGood) {
    // First, as the words on it may lack memory.
    FollowAgain(kRefusedPause);
    if (!std::exchange(m_isRefusalTold, true)) {
      m_hooks.report("the daemon tells no alarms; it is asked again each minute");
    }
    return;
  }
  m_isRefusalTold = false;
  const Json told = ParseJson(line, kAlarmJson).value;
  const Json* list = told.Find("alarms");
  AlarmMemory before = m_memory;
  if (m_isCatchingUp) {
    // What the answers before have told may be newer than what is still missed.
    before.MeasureAs(m_before);
  }
  m_memory.BoundBy(m_hooks.now());
  before.BoundBy(m_hooks.now());
  m_before = std::move(before);
  m_isCatchingUp = true;
  // What ends from now on is news, also where the first answer can't be taken.
  m_memory.contact = m_memory.contact == 0 ? m_hooks.now() : m_memory.contact;
  TakeActive(list == nullptr ? Json::Array() : *list);
  if (m_before.contact == 0) {
    GoLive();
  } else {
    m_missed.emplace(m_before, m_memory, m_listed, MissedAlarms::Bounds{});
    AskMissed();
  }
}

void AlarmDesk::TakeActive(const Json& list) {
  m_listed.clear();
  for (const AlarmPtr& alarm : ReadAlarms(list)) {
    m_listed.insert(alarm->Key());
    Tell(alarm, !m_before.active.contains(alarm->Key()));
  }
}

void AlarmDesk::AskMissed() {
  m_question = m_desk.AskJson(m_missed->Question(), [this](const Json& answer) {
    if (answer.IsNull()) {
      FollowAgain(kFollowPause);
      return;
    }
    const Json* alarms = answer.Find("alarms");
    const Json* list = alarms == nullptr ? nullptr : alarms->Find("list");
    // A daemon that keeps none has none to tell.
    if (m_missed->Take(list == nullptr ? Json::Array() : *list)) {
      AskMissed();
    } else {
      TellMissed();
    }
  });
}

void AlarmDesk::TellMissed() {
  const std::uint64_t lost = m_missed->Lost();
  for (const AlarmPtr& alarm : m_missed->Ended()) {
    Tell(alarm, m_memory.active.contains(alarm->Key()) ||
                    m_before.IsNewToAll(alarm->Key(), m_hooks.now()));
  }
  // After them, as what memory lacks for is asked for anew, and those lost are counted anew then.
  for (const auto& receiver : m_receivers) {
    receiver->Miss(lost);
  }
  GoLive();
  m_missed.reset();
  if (lost != 0) {
    m_hooks.onFigures();
    m_hooks.report(Alarms(lost) +
                   " began and ended while the daemon was not followed that the receivers are not "
                   "told of: there were too many");
  }
}

void AlarmDesk::GoLive() {
  EndForgotten();
  m_isLive = true;
  m_isCatchingUp = false;
  m_memory.owed.clear();
  m_memory.contact = m_hooks.now();
  // What goes on may have begun while the clock was wrong.
  m_memory.BoundBy(m_memory.contact);
  NoteContact();
  PlanSave();
  for (const std::string& line : std::exchange(m_lines, {})) {
    OnLine(line);
  }
}

void AlarmDesk::NoteContact() {
  // What this process has not read while it was stopped may be lost: the time is noted once the
  // next one shows that the daemon is still followed.
  m_tick.After(kTick, [this, time = m_hooks.now()] {
    if (m_isLive) {
      m_memory.contact = time;
      NoteContact();
    }
  });
}

void AlarmDesk::EndForgotten() {
  for (const AlarmKey& key : m_before.active) {
    if (m_listed.contains(key) || !m_memory.active.contains(key)) {
      continue;
    }
    if (const auto known = m_active.find(key); known != m_active.end()) {
      Tell(EndedAlarm(*known->second, m_hooks.now()), true);
    } else {
      m_memory.active.erase(key);
    }
  }
}

void AlarmDesk::OnLine(std::string_view line) {
  if (!m_isLive) {
    if (m_lines.size() == kMostEarlyLines) {
      FollowAgain(kFollowPause);
    }
    if (m_lines.size() <= kMostEarlyLines) {
      m_lines.emplace_back(line);
    }
    return;
  }
  const Json told = ParseJson(line, kAlarmJson).value;
  const Json* alarm = told.Find("alarm");
  if (AlarmPtr read = alarm == nullptr ? nullptr : ReadAlarm(*alarm)) {
    TakeEvent(read);
  }
}

void AlarmDesk::TakeEvent(const AlarmPtr& alarm) {
  const bool isKnown = m_memory.active.contains(alarm->Key());
  if (isKnown || m_memory.IsNew(alarm->Key(), m_hooks.now())) {
    Tell(alarm, !isKnown || !alarm->IsActive());
  }
}

void AlarmDesk::Tell(const AlarmPtr& alarm, bool isNews) {
  // Before it counts as told: where memory lacks it is told once more rather than never.
  for (const auto& receiver : m_receivers) {
    const bool isItsNews = isNews || m_memory.IsOwedTo(receiver->Number(), alarm->Key());
    if (isItsNews || alarm->IsActive()) {
      receiver->Take(alarm, isItsNews);
    }
  }
  if (alarm->IsActive()) {
    m_active[alarm->Key()] = alarm;
  } else {
    m_active.erase(alarm->Key());
  }
  m_memory.Note(*alarm);
  m_desk.Memory().NoteWork();
  PlanSave();
}

void AlarmDesk::PlanSave() {
  if (!m_targets.folder.empty() && !std::exchange(m_isSavePlanned, true)) {
    m_save.After(kSavePause, [this] { OrIfNoMemory([&] { Save(); }, [&] { PlanSave(); }); });
  }
}

void AlarmDesk::Save() {
  m_isSavePlanned = false;
  if (m_targets.folder.empty()) {
    return;
  }
  AlarmMemory memory = m_memory;
  if (m_isCatchingUp) {
    // Who begins with it is to ask for what is still missed.
    memory.MeasureAs(m_before);
  }
  for (const auto& receiver : m_receivers) {
    std::set<AlarmKey> keys;
    receiver->AddOwed(keys);
    memory.AddOwed(receiver->Number(), keys, m_receivers.size());
  }
  if (!(memory == m_saved)) {
    m_file.Write(AlarmMemoryText(memory));
    m_saved = std::move(memory);
  }
}

void AlarmDesk::OnSaved(const std::string& error) {
  if (error.empty()) {
    m_isFaultTold = false;
    return;
  }
  // The next change is written whatever it is.
  m_saved = {};
  if (!std::exchange(m_isFaultTold, true)) {
    m_hooks.report(error + "; what was told of alarms is not kept");
  }
}
