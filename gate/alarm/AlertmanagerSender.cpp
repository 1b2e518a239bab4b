#include "gate/alarm/AlertmanagerSender.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"

namespace {

constexpr std::chrono::seconds kAlertTimeout{10};
constexpr std::chrono::seconds kLongestAlertPause{60};

std::string AlertTime(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts{};
  std::array<char, 40> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
    return "1970-01-01T00:00:00Z";
  }
  return text.data();
}

std::string AlertValue(const Json& value) {
  return value.IsString() ? value.Text() : value.IsNull() ? "" : JsonText(value);
}

/// The name that a label of a record has among metrics; never one of the alert's own.
std::string AlertLabel(const std::string& label) {
  std::string name;
  for (const char letter : label) {
    const bool isCapital = letter >= 'A' && letter <= 'Z';
    if (isCapital || (letter >= 'a' && letter <= 'z') || (letter >= '0' && letter <= '9')) {
      name += static_cast<char>(isCapital ? letter - 'A' + 'a' : letter);
    } else if (letter != '/' && !name.empty() && name.back() != '_') {
      name += '_';
    }
  }
  while (name.ends_with('_')) {
    name.pop_back();
  }
  static constexpr std::array kOwn{"alertname", "severity", "instance", "record", ""};
  const bool isTaken = std::ranges::find(kOwn, name) != kOwn.end();
  return isTaken || (name.front() >= '0' && name.front() <= '9') ? "key_" + name : name;
}

std::string ValuesText(const Json& alarm) {
  std::string text;
  if (const Json* values = alarm.Find("values"); values != nullptr && values->IsObject()) {
    for (const auto& [label, value] : values->Members()) {
      text += (text.empty() ? "" : ", ") + label + " = " + AlertValue(value);
    }
  }
  return text;
}

}  // namespace

Json AlertOf(const Alarm& alarm, const std::string& host, const std::string& link,
             std::int64_t now) {
  Json labels = Json::Object();
  const auto add = [](Json& object, const std::string& name, const std::string& value) {
    // One without a value is none.
    if (!value.empty()) {
      object[name] = value;
    }
  };
  add(labels, "alertname", alarm.name);
  add(labels, "severity", alarm.severity);
  add(labels, "instance", host);
  add(labels, "record", alarm.record);
  if (const Json* key = alarm.told.Find("key"); key != nullptr && key->IsObject()) {
    for (const auto& [label, value] : key->Members()) {
      add(labels, AlertLabel(label), AlertValue(value));
    }
  }
  Json annotations = Json::Object();
  add(annotations, "summary", alarm.text);
  add(annotations, "values", ValuesText(alarm.told));
  Json alert{
      {"labels", labels},
      {"annotations", annotations},
      {"startsAt", AlertTime(std::min(alarm.since, now))},
      {"endsAt", AlertTime(alarm.IsActive() ? now + kAlertLife : std::min(alarm.until, now))}};
  add(alert, "generatorURL", link);
  return alert;
}

AlertmanagerSender::AlertmanagerSender(IoLoop& loop, HttpSender& sender, const std::string& url,
                                       AlarmReceiverSettings settings, Pace pace)
    : m_sender(sender),
      m_settings(std::move(settings)),
      m_pace(pace),
      m_figures{.url = url},
      m_note(url, m_settings.report),
      m_backoff(pace.first, kLongestAlertPause),
      m_timer(loop) {}

void AlertmanagerSender::Take(const AlarmPtr& alarm, bool isNews) {
  const AlarmKey key = alarm->Key();
  if (!m_alarms.contains(key) && m_alarms.size() >= kMostAlarms) {
    ++m_figures.dropped;
    m_settings.onChange();
    return;
  }
  m_news.insert(key);
  m_alarms[key] = std::make_shared<Notice>(Notice{alarm, isNews});
  if (!m_isSending && !m_isWaiting) {
    Plan(m_pace.gather);
  }
}

void AlertmanagerSender::Plan(std::chrono::milliseconds pause) {
  m_timer.After(pause, [this] { Try(&AlertmanagerSender::BeginRound); });
}

template <class... Arguments>
void AlertmanagerSender::Try(void (AlertmanagerSender::*step)(Arguments...),
                             Arguments... arguments) {
  OrIfNoMemory([&] { (this->*step)(arguments...); },
               [&] {
                 m_isSending = false;
                 m_isWaiting = true;
                 m_fullRound = {};
                 Plan(m_pace.first);
               });
}

void AlertmanagerSender::BeginRound() {
  m_isWaiting = false;
  m_round.clear();
  const auto now = LoopTimer::Clock::now();
  if (now >= m_fullRound) {
    m_fullRound = now + m_pace.again;
    for (const auto& [key, notice] : m_alarms) {
      m_round.push_back(notice);
    }
  } else {
    for (const AlarmKey& key : m_news) {
      if (const auto known = m_alarms.find(key); known != m_alarms.end()) {
        m_round.push_back(known->second);
      }
    }
  }
  m_news.clear();
  // The oldest goes first: an alarm that began again after its end has the same labels.
  std::ranges::reverse(m_round);
  SendNext();
}

void AlertmanagerSender::EndRound() {
  m_isSending = false;
  m_sending.reset();
  if (!m_news.empty()) {
    Plan(m_pace.gather);
  } else if (!m_alarms.empty()) {
    m_timer.At(m_fullRound, [this] { Try(&AlertmanagerSender::BeginRound); });
  }
}

void AlertmanagerSender::SendNext() {
  if (m_round.empty()) {
    EndRound();
    return;
  }
  m_isSending = true;
  m_onWay = std::min(m_round.size(), m_most);
  const std::int64_t now = std::time(nullptr);
  Json alerts = Json::Array();
  for (std::size_t count = 1; count <= m_onWay; ++count) {
    alerts.PushBack(
        AlertOf(*m_round[m_round.size() - count]->alarm, m_settings.host, m_settings.link, now));
  }
  std::string url = m_figures.url;
  while (url.ends_with('/')) {
    url.pop_back();
  }
  m_sending = m_sender.Send({.url = url + "/api/v2/alerts",
                             .headers = {"Content-Type: application/json"},
                             .body = JsonText(alerts),
                             .identity = m_settings.identity,
                             .timeout = kAlertTimeout},
                            [this](const SendResult& result) {
                              Try<const SendResult&>(&AlertmanagerSender::OnResult, result);
                            });
}

void AlertmanagerSender::OnResult(const SendResult& result) {
  if (!IsTaken(result)) {
    ++m_figures.failures;
    IsRefused(result) ? OnRefusal(result) : OnFailure(result);
    m_settings.onChange();
    return;
  }
  m_note.Work();
  m_backoff.Reset();
  m_most = std::min(2 * m_most, kMostOfRequest);
  for (; m_onWay != 0; --m_onWay) {
    m_figures.sent += std::exchange(m_round.back()->isUntold, false) ? 1 : 0;
    Drop(false);
  }
  // The request that has just ended is freed by the next one, out of its own turn.
  m_timer.After({}, [this] { Try(&AlertmanagerSender::SendNext); });
  m_settings.onChange();
}

void AlertmanagerSender::OnFailure(const SendResult& result) {
  m_note.Fail(result);
  DropLate();
  m_isSending = false;
  m_isWaiting = true;
  for (const NoticePtr& notice : m_round) {
    if (m_alarms.contains(notice->alarm->Key())) {
      m_news.insert(notice->alarm->Key());
    }
  }
  if (result.status == 0) {
    // One that is not there may have forgotten all when it comes back.
    m_fullRound = {};
  }
  Plan(m_backoff.Next(result.retryAfter));
}

void AlertmanagerSender::OnRefusal(const SendResult& result) {
  Backoff::Pause pause{0};
  if (m_onWay > 1) {
    m_most = m_onWay / 2;
  } else {
    m_note.Refuse(m_round.back()->alarm->name, result);
    ++m_figures.dropped;
    Drop(true);
    // One that refuses all is not asked alarm by alarm in no time.
    pause = m_backoff.Next(result.retryAfter);
  }
  m_timer.After(pause, [this] { Try(&AlertmanagerSender::SendNext); });
}

void AlertmanagerSender::Drop(bool isGivenUp) {
  const NoticePtr notice = std::move(m_round.back());
  m_round.pop_back();
  const auto present = m_alarms.find(notice->alarm->Key());
  if (present != m_alarms.end() && present->second == notice &&
      (isGivenUp || !notice->alarm->IsActive())) {
    m_news.erase(present->first);
    m_alarms.erase(present);
  }
}

void AlertmanagerSender::DropLate() {
  const std::int64_t late = std::time(nullptr) - m_pace.lateEnd.count();
  const std::size_t dropped = std::erase_if(m_alarms, [&](const auto& entry) {
    const Alarm& alarm = *entry.second->alarm;
    return !alarm.IsActive() && alarm.until < late;
  });
  std::erase_if(m_news, [&](const AlarmKey& key) { return !m_alarms.contains(key); });
  m_figures.dropped += dropped;
}

void AlertmanagerSender::AddOwed(std::set<AlarmKey>& keys) const {
  for (const auto& [key, notice] : m_alarms) {
    if (!notice->alarm->IsActive()) {
      keys.insert(key);
    }
  }
}
