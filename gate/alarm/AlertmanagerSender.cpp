#include "gate/alarm/AlertmanagerSender.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

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
  Json alert{{"labels", labels},
             {"annotations", annotations},
             {"startsAt", AlertTime(alarm.since)},
             {"endsAt", AlertTime(alarm.IsActive() ? now + kAlertLife : alarm.until)}};
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

void AlertmanagerSender::Take(const AlarmPtr& alarm, bool /*isNews*/) {
  if (!m_alarms.contains(alarm->id) && m_alarms.size() >= kMostAlarms) {
    ++m_figures.dropped;
    m_settings.onChange();
    return;
  }
  m_alarms[alarm->id] = alarm;
  m_news.insert(alarm->id);
  if (!m_isSending && !m_isWaiting) {
    Plan(m_pace.gather);
  }
}

void AlertmanagerSender::Plan(std::chrono::milliseconds pause) {
  m_timer.After(pause, [this] { BeginRound(); });
}

void AlertmanagerSender::BeginRound() {
  m_isWaiting = false;
  m_round.clear();
  const auto now = LoopTimer::Clock::now();
  if (now >= m_fullRound) {
    m_fullRound = now + m_pace.again;
    for (const auto& [id, alarm] : m_alarms) {
      m_round.push_back(alarm);
    }
  } else {
    for (const std::int64_t id : m_news) {
      m_round.push_back(m_alarms.at(id));
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
    m_timer.At(m_fullRound, [this] { BeginRound(); });
  }
}

void AlertmanagerSender::SendNext() {
  if (m_round.empty()) {
    EndRound();
    return;
  }
  m_isSending = true;
  m_onWay = std::min(m_round.size(), kMostOfRequest);
  const std::int64_t now = std::time(nullptr);
  Json alerts = Json::Array();
  for (std::size_t count = 1; count <= m_onWay; ++count) {
    alerts.PushBack(
        AlertOf(*m_round[m_round.size() - count], m_settings.host, m_settings.link, now));
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
                            [this](const SendResult& result) { OnResult(result); });
}

void AlertmanagerSender::OnResult(const SendResult& result) {
  if (result.status / 100 != 2) {
    ++m_figures.failures;
    m_note.Fail(result);
    DropLate();
    m_isSending = false;
    m_isWaiting = true;
    // Nothing of the round is known to have come.
    m_fullRound = {};
    Plan(m_backoff.Next(result.retryAfter));
    m_settings.onChange();
    return;
  }
  m_note.Work();
  m_backoff.Reset();
  m_figures.sent += m_onWay;
  for (; m_onWay != 0; --m_onWay) {
    const AlarmPtr alarm = std::move(m_round.back());
    m_round.pop_back();
    const auto present = m_alarms.find(alarm->id);
    if (present != m_alarms.end() && present->second == alarm && !alarm->IsActive()) {
      m_alarms.erase(present);
      m_news.erase(alarm->id);
    }
  }
  // The request that has just ended is freed by the next one, out of its own turn.
  m_timer.After({}, [this] { SendNext(); });
  m_settings.onChange();
}

void AlertmanagerSender::DropLate() {
  const std::int64_t late = std::time(nullptr) - m_pace.lateEnd.count();
  const std::size_t dropped = std::erase_if(m_alarms, [&](const auto& entry) {
    return !entry.second->IsActive() && entry.second->until < late;
  });
  std::erase_if(m_news, [&](std::int64_t id) { return !m_alarms.contains(id); });
  m_figures.dropped += dropped;
}

void AlertmanagerSender::AddOwed(std::map<std::int64_t, std::int64_t>& begins) const {
  for (const auto& [id, alarm] : m_alarms) {
    if (!alarm->IsActive()) {
      begins[id] = alarm->since;
    }
  }
}
