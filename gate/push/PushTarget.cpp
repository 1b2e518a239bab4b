#include "gate/push/PushTarget.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <exception>
#include <utility>

namespace {

constexpr std::int64_t kSecondsOfDay = 86400;
constexpr std::chrono::hours kRefusalTold{1};
constexpr std::chrono::minutes kErrorTold{10};
/// Samples that are asked for however long they take to send.
constexpr std::size_t kLeastAsked = 100;

/// Whether the server refuses samples for their age: it has newer ones of their series, or keeps
/// none that are so old. The protocol has no other word for it.
bool IsAboutAge(std::string words) {
  std::ranges::transform(words, words.begin(), [](char c) {
    return c == '-' || c == '_' ? ' ' : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  });
  constexpr std::array kWords{"out of order", "out of bounds", "too old", "too far in the past"};
  return std::ranges::any_of(
      kWords, [&](const char* word) { return words.find(word) != std::string::npos; });
}

}  // namespace

PushTarget::PushTarget(DaemonDesk& desk, HttpSender& sender, TargetSettings settings,
                       const std::string& state, PushHooks hooks, const PushPace& pace)
    : m_desk(desk),
      m_sender(sender),
      m_settings(std::move(settings)),
      m_hooks(std::move(hooks)),
      m_pace(pace),
      m_cursor(desk.Loop(), state, m_settings.name, m_settings.url),
      m_backoff(pace.firstPause, pace.longestPause),
      m_timer(desk.Loop()),
      m_asked(m_settings.batch) {}

template <class Action>
void PushTarget::Guarded(Action action) {
  try {
    action();
  } catch (const std::exception&) {
    // Nothing else would go on. What the server has taken without the cursor's knowing of it is
    // sent again, as the same samples.
    m_question.reset();
    m_sending.reset();
    m_batch.reset();
    AskAfter(m_pace.look);
    throw;
  }
}

void PushTarget::Start() {
  std::string error;
  if (!m_cursor.Load(std::time(nullptr) - m_settings.days * kSecondsOfDay, error)) {
    Report(error + "; all that the history has is sent, some of it again");
  }
  // Where a new target begins is to stand even if nothing can be sent for long.
  m_cursor.Save([this](const std::string& failure) {
    Guarded([&] {
      OnSaved(failure);
      Ask();
    });
  });
}

void PushTarget::AskAfter(Clock::duration pause) {
  m_timer.After(pause, [this] { Guarded([this] { Ask(); }); });
}

void PushTarget::AskForNew() {
  // What is collected at that time takes a while until it is kept.
  constexpr std::chrono::seconds kUntilKept{1};
  const std::chrono::seconds wait = m_answer.Wait();
  AskAfter(wait.count() == 0
               ? m_pace.look
               : std::clamp<Clock::duration>(wait + kUntilKept, m_pace.look, m_pace.longestLook));
}

void PushTarget::Ask() {
  Json after = Json::Object();
  for (const std::string& record : m_settings.records) {
    if (const Json* place = m_cursor.After().Find(record)) {
      after[record] = *place;
    }
  }
  const Json request{{"op", "samples"},
                     {"records", m_settings.records},
                     {"names", m_settings.hasNodeNames ? "node" : "agent"},
                     {"after", std::move(after)},
                     {"since", m_cursor.Since()},
                     {"samples", m_asked}};
  m_answer = {};
  m_question = m_desk.Ask(
      request, [this](std::string_view bytes) { return m_answer.Take(bytes); },
      [this](DaemonDesk::End end) { Guarded([=, this] { OnAsked(end); }); });
}

void PushTarget::OnAsked(DaemonDesk::End end) {
  m_question.reset();
  if (end != DaemonDesk::End::kDone || !m_answer.IsWhole()) {
    m_isDaemonAway = true;
    SetError(m_answer.Error().empty() ? "the daemon can't be asked" : m_answer.Error());
    AskAfter(m_pace.look);
    return;
  }
  if (std::exchange(m_isDaemonAway, false)) {
    SetError("");
  }
  m_oldest = m_answer.Oldest();
  m_batch.emplace(m_answer.TakeText());
  m_batchSent = 0;
  if (m_batch->Broken() != 0) {
    m_counts.refusedSamples += m_batch->Broken();
    TellRefused("the daemon's lines can't be read", m_batch->Broken());
  }
  SendNext();
}

void PushTarget::SendNext() {
  if (m_batch->Next().empty()) {
    OnBatchDone();
    return;
  }
  const Clock::time_point now = Clock::now();
  m_timer.At(std::max(now, m_freeAt), [this] { Guarded([this] { Send(); }); });
}

void PushTarget::Send() {
  WriteBody body = MakeWriteBody(m_batch->Text(), m_batch->Next(), m_settings.labels);
  SendRequest request;
  request.url = m_settings.url;
  request.headers = WriteHeaders();
  request.body = std::move(body.bytes);
  request.identity = m_settings.sending;
  request.timeout = m_pace.timeout;
  m_sendingSince = Clock::now();
  ++m_counts.requests;
  m_counts.bytes += request.body.size();
  if (m_settings.bytesPerSecond != 0) {
    const std::chrono::duration<double> cost(static_cast<double>(request.body.size()) /
                                             static_cast<double>(m_settings.bytesPerSecond));
    m_freeAt = m_sendingSince + std::chrono::duration_cast<Clock::duration>(cost);
  }
  body.bytes.clear();
  m_sending = m_sender.Send(std::move(request), [this, body](const SendResult& result) {
    m_sending.reset();
    Guarded([&] { OnSent(result, body); });
  });
}

void PushTarget::OnSent(const SendResult& result, const WriteBody& body) {
  const Clock::duration taken = Clock::now() - m_sendingSince;
  m_counts.seconds += std::chrono::duration<double>(taken).count();
  if (IsTaken(result)) {
    m_counts.sentSamples += body.samples;
    m_batchSent += body.samples;
    if (body.leftOut != 0) {
      m_counts.refusedSamples += body.leftOut;
      TellRefused("the daemon's series can't be read", body.leftOut);
    }
    AskForMore(taken, body.samples);
    m_halvesLeft = kHalvesOfOneTime;
    m_backoff.Reset();
    m_refusal.clear();
    SetError("");
    m_batch->Drop();
    SendNext();
  } else if (++m_counts.failures; IsRefused(result) || IsTurnedAway(result)) {
    OnRefusal(result);
  } else {
    OnFailure(result);
  }
  m_hooks.onChange();
}

void PushTarget::AskForMore(Clock::duration taken, std::size_t sent) {
  // What was much smaller tells nothing of the line.
  if (2 * sent < m_asked) {
    return;
  }
  // Twice as much would else take longer than the timeout.
  const std::size_t more = 2 * taken < m_pace.timeout ? m_asked : kLeastAsked;
  m_asked = std::min(m_asked + more, m_settings.batch);
}

void PushTarget::AskForLess() {
  // The rows of one time are answered together, however few are asked for.
  const bool isLeast = m_asked <= kLeastAsked;
  if (!isLeast) {
    m_asked = std::max(m_asked / 2, kLeastAsked);
  }
  if ((isLeast || !m_batch->IsUntouched()) && m_batch->Next().size() > kLeastAsked) {
    static_cast<void>(m_batch->HalveByTime() || m_batch->Halve());
  }
}

void PushTarget::OnFailure(const SendResult& result) {
  SetError(WordsOf(result));
  constexpr int kServerTimeout = 408;
  if (result.isTimeout || result.status == kServerTimeout) {
    AskForLess();
  }
  const Backoff::Pause pause = m_backoff.Next(result.retryAfter);
  if (m_batch->IsUntouched()) {
    // History keeps it better than this process does.
    m_batch.reset();
    AskAfter(pause);
  } else {
    m_freeAt = std::max(m_freeAt, Clock::now() + pause);
    SendNext();
  }
}

void PushTarget::OnRefusal(const SendResult& result) {
  if (IsTurnedAway(result)) {
    // What history still keeps is not to be used up while somebody puts a setting right.
    m_freeAt = std::max(m_freeAt, Clock::now() + m_backoff.Next(result.retryAfter));
    SetError(WordsOf(result));
    PassOver(result);
    SendNext();
    return;
  }
  // It is there, and has looked at what it was sent.
  m_backoff.Reset();
  SetError("");
  if (!m_batch->HalveByTime()) {
    if (m_halvesLeft != 0 && m_batch->Halve()) {
      --m_halvesLeft;
    } else {
      PassOver(result);
    }
  }
  SendNext();
}

void PushTarget::PassOver(const SendResult& result) {
  const std::size_t samples = m_batch->Next().size();
  const std::string words = WordsOf(result);
  m_refusal = "refused: " + words;
  (IsAboutAge(words) ? m_counts.skippedSamples : m_counts.refusedSamples) += samples;
  TellRefused(words, samples);
  m_batch->Drop();
}

std::uint64_t PushTarget::SentRows() const {
  const std::uint64_t rows = m_answer.Rows();
  const std::size_t lines = m_batch->Lines();
  return m_batchSent == lines ? rows
                              : static_cast<std::uint64_t>(static_cast<double>(rows) *
                                                           static_cast<double>(m_batchSent) /
                                                           static_cast<double>(lines));
}

void PushTarget::OnBatchDone() {
  m_counts.sentRows += SentRows();
  m_batch.reset();
  m_desk.Memory().NoteWork();
  if (!m_cursor.Advance(m_answer.Next())) {
    m_oldest = 0;
    m_hooks.onChange();
    AskForNew();
    return;
  }
  m_cursor.Save([this](const std::string& error) {
    Guarded([&] {
      OnSaved(error);
      if (m_answer.HasMore()) {
        Ask();
      } else {
        m_oldest = 0;
        AskForNew();
      }
      m_hooks.onChange();
    });
  });
}

void PushTarget::OnSaved(const std::string& error) {
  if (!error.empty() && error != m_stateError) {
    Report(error);
  }
  m_stateError = error;
}

void PushTarget::Report(const std::string& line) const {
  m_hooks.report("push " + m_settings.name + ": " + ShownUrl(m_settings.url) + ": " + line);
}

void PushTarget::SetError(std::string error) {
  if (error.empty()) {
    if (std::exchange(m_isErrorTold, false)) {
      Report("it works again");
    }
  } else if (!m_isErrorTold && Clock::now() >= m_nextErrorTold) {
    m_isErrorTold = true;
    m_nextErrorTold = Clock::now() + kErrorTold;
    Report(error + "; it is tried again");
  }
  if (error != m_error) {
    m_error = std::move(error);
    m_hooks.onChange();
  }
}

void PushTarget::TellRefused(const std::string& words, std::size_t samples) {
  m_refusedUntold += samples;
  if (Clock::now() >= m_nextRefusalTold) {
    m_nextRefusalTold = Clock::now() + kRefusalTold;
    Report(std::to_string(std::exchange(m_refusedUntold, 0)) +
           " samples were refused and passed over: " + words);
  }
}

Json PushTarget::Figures() const {
  return Json{{"name", m_settings.name},
              {"url", ShownUrl(m_settings.url)},
              {"error", !m_error.empty()        ? m_error
                        : !m_stateError.empty() ? m_stateError
                                                : m_refusal},
              {"oldest", m_oldest},
              {"sent_rows", m_counts.sentRows},
              {"sent_samples", m_counts.sentSamples},
              {"refused_samples", m_counts.refusedSamples},
              {"skipped_samples", m_counts.skippedSamples},
              {"requests", m_counts.requests},
              {"failures", m_counts.failures},
              {"bytes", m_counts.bytes},
              {"seconds", m_counts.seconds}};
}
