#include "gate/alarm/WebhookSender.h"

#include <utility>

#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"

namespace {

constexpr std::chrono::seconds kWebhookTimeout{10};
constexpr std::chrono::seconds kLongestPause{60};
/// Before what lacked memory is tried again.
constexpr Backoff::Pause kMemoryPause{1000};

}  // namespace

WebhookSender::WebhookSender(IoLoop& loop, HttpSender& sender, const std::string& url,
                             AlarmReceiverSettings settings, Backoff::Pause pause)
    : m_sender(sender),
      m_settings(std::move(settings)),
      m_figures{.url = url},
      m_note(url, m_settings.report),
      m_backoff(pause, kLongestPause),
      m_pause(loop) {}

void WebhookSender::Take(const AlarmPtr& alarm, bool isNews) {
  if (!isNews) {
    return;
  }
  m_waiting.push_back(alarm);
  if (m_waiting.size() > kMostWaiting) {
    // The first is being sent.
    m_waiting.erase(m_waiting.begin() + 1);
    ++m_figures.dropped;
  }
  if (!m_isAtWork) {
    Plan(Backoff::Pause(0));
    m_isAtWork = true;
  }
}

void WebhookSender::Plan(Backoff::Pause pause) {
  m_pause.After(pause, [this] { OrIfNoMemory([&] { SendNext(); }, [&] { Plan(kMemoryPause); }); });
}

void WebhookSender::SendNext() {
  m_isAtWork = !m_waiting.empty();
  if (!m_isAtWork) {
    m_sending.reset();
    return;
  }
  const Alarm& alarm = *m_waiting.front();
  m_sending =
      m_sender.Send({.url = m_figures.url,
                     .headers = {"Content-Type: application/json"},
                     .body = JsonText(Json{{"host", m_settings.host}, {"alarm", alarm.told}}),
                     .identity = m_settings.identity,
                     .timeout = kWebhookTimeout},
                    [this](const SendResult& result) { OnResult(result); });
}

void WebhookSender::OnResult(const SendResult& result) {
  const bool isTaken = IsTaken(result);
  m_figures.sent += isTaken ? 1 : 0;
  m_figures.failures += isTaken ? 0 : 1;
  const bool isOver = ++m_tries == kMostTries || isTaken;
  if (isOver) {
    m_figures.dropped += isTaken ? 0 : 1;
    m_waiting.pop_front();
    m_tries = 0;
  }
  if (isTaken) {
    m_backoff.Reset();
  }
  // First, since the words on it may lack memory.
  Plan(isTaken ? Backoff::Pause(0) : m_backoff.Next(result.retryAfter));
  if (isTaken) {
    m_note.Work();
  } else {
    m_note.Fail(result);
  }
  m_settings.onChange();
}

void WebhookSender::AddOwed(std::set<AlarmKey>& keys) const {
  for (const AlarmPtr& alarm : m_waiting) {
    keys.insert(alarm->Key());
  }
}
