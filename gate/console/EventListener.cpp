#include "gate/console/EventListener.h"

#include <algorithm>
#include <utility>

#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"

namespace {

constexpr std::int64_t kPageRows = 500;
/// The past is read back in at most so many stretches of at least so many seconds.
constexpr std::int64_t kMostStretches = 12;
constexpr std::int64_t kLeastStretch = 60;
/// So often, after such a pause, it is looked whether the reader has taken what waits.
constexpr std::chrono::milliseconds kReaderPause{100};
constexpr int kReaderPatience = 300;

std::int64_t TimeOf(const Json& row) {
  const Json* time = row.Find("Record Time");
  return time != nullptr && time->IsWhole() ? time->Whole() : 0;
}

std::string TextOf(const Json& object, const char* name) {
  const Json* member = object.Find(name);
  return member != nullptr && member->IsString() ? member->Text() : "";
}

}  // namespace

EventListener::EventListener(DaemonDesk& desk, EventReader reader, EventQuery query,
                             std::shared_ptr<HttpStream> stream, bool showsArguments)
    : m_desk(desk),
      m_reader(std::move(reader)),
      m_query(std::move(query)),
      m_stream(std::move(stream)),
      m_showsArguments(showsArguments),
      m_pause(desk.Loop()) {}

void EventListener::Start(std::int64_t now) {
  // A proxy, and the reader's own library, may wait for the first bytes.
  m_stream->Put(std::make_shared<const std::string>(": events\nretry: 1000\n\n"));
  if (m_query.since < 0) {
    return;
  }
  m_isLive = false;
  m_query.since = std::min(m_query.since, now);
  if (m_query.since < now - kMostSecondsBack) {
    Lose("no more than an hour is read back; ask history for the rest");
    m_query.since = now - kMostSecondsBack;
  }
  m_pastEnd = now;
  m_stretchSeconds = std::max(kLeastStretch, (now - m_query.since) / kMostStretches + 1);
  if (m_query.records.empty()) {
    AskSchedules();
  } else {
    m_records = m_query.records;
    BeginStretch();
  }
}

template <class Step>
void EventListener::OrEnd(Step step) {
  OrIfNoMemory(step, [this] { End(); });
}

void EventListener::BeginStretch() {
  // All come back at once when the daemon does, and each may hold the rows of one time.
  if (!m_isReading && s_reading >= kMostReading) {
    m_pause.After(kReaderPause, [this] { OrEnd([this] { BeginStretch(); }); });
    return;
  }
  s_reading += std::exchange(m_isReading, true) ? 0 : 1;
  m_stretchEnd = m_query.since + m_stretchSeconds;
  m_toRead = m_records;
  ReadBackNext(nullptr);
}

void EventListener::EndStretch() {
  if (m_stretchEnd > m_pastEnd) {
    GoLive();
    return;
  }
  m_query.since = m_stretchEnd;
  m_stream->Put(FrameOfLine(JsonText(Json{{"event", "batch"}, {"time", m_stretchEnd}})).text);
  m_pause.After({}, [this] { OrEnd([this] { BeginStretch(); }); });
}

EventListener::~EventListener() { StopReading(); }

void EventListener::StopReading() { s_reading -= std::exchange(m_isReading, false) ? 1 : 0; }

void EventListener::AskSchedules() {
  m_question =
      m_desk.AskJson(Json{{"op", "status"}}, [weak = weak_from_this()](const Json& answer) {
        const auto self = weak.lock();
        if (self != nullptr && !self->IsGone()) {
          self->OrEnd([&] { self->TakeSchedules(answer); });
        }
      });
}

void EventListener::TakeSchedules(const Json& answer) {
  const Json* status = answer.Find("status");
  const Json* schedules = status == nullptr ? nullptr : status->Find("schedules");
  if (schedules == nullptr || !schedules->IsArray()) {
    Lose("the daemon can't be asked");
    GoLive();
    return;
  }
  for (const Json& schedule : schedules->Elements()) {
    m_records.push_back(TextOf(schedule, "record"));
  }
  BeginStretch();
}

void EventListener::ReadBackNext(const Json& after) {
  if (!IsServed()) {
    StopReading();
    return;
  }
  if (m_toRead.empty()) {
    EndStretch();
    return;
  }
  Json request{{"op", "history"},
               {"record", m_toRead.back()},
               {"since", m_query.since},
               {"limit", kPageRows}};
  if (m_stretchEnd <= m_pastEnd) {
    request["until"] = m_stretchEnd - 1;
  }
  if (!after.IsNull()) {
    request["after"] = after;
  }
  if (!m_showsArguments) {
    request["arguments"] = false;
  }
  m_question = m_desk.AskJson(request, [weak = weak_from_this()](const Json& answer) {
    if (const auto self = weak.lock(); self != nullptr && !self->IsGone()) {
      self->OrEnd([&] { self->TakePage(answer); });
    }
  });
}

void EventListener::TakePage(const Json& answer) {
  const Json* history = answer.Find("history");
  if (history == nullptr || !history->IsObject()) {
    const Json* error = answer.Find("error");
    Lose(error == nullptr ? "the daemon can't be asked" : TextOf(*error, "message"));
    GoLive();
    return;
  }
  const Json* next = history->Find("next");
  const bool isLast = next == nullptr || next->IsNull();
  PutRows(*history, isLast);
  const Json after = isLast ? Json(nullptr) : *next;
  if (isLast) {
    m_toRead.pop_back();
  }
  WaitForReader(after, kReaderPatience);
}

void EventListener::WaitForReader(const Json& after, int patience) {
  if (m_stream->Waiting() <= kMostWaiting / 2) {
    ReadBackNext(after);
  } else if (patience == 0) {
    End();
  } else {
    m_pause.After(kReaderPause,
                  [this, after, patience] { OrEnd([&] { WaitForReader(after, patience - 1); }); });
  }
}

void EventListener::PutRows(const Json& history, bool isLast) {
  const std::string record = TextOf(history, "record");
  const std::string category = TextOf(history, "category");
  const auto flush = [&] {
    if (!m_rows.empty()) {
      m_stream->Put(FrameOfRows(record, category, m_rowsTime, m_rows).text);
      m_rows.clear();
    }
  };
  const Json* rows = history.Find("rows");
  if (rows != nullptr && rows->IsArray()) {
    for (const Json& row : rows->Elements()) {
      const std::int64_t time = TimeOf(row);
      if (time != m_rowsTime) {
        flush();
        m_rowsTime = time;
      }
      m_rows += m_rows.empty() ? "" : ",";
      m_rows += JsonText(row);
    }
  }
  if (isLast) {
    flush();
    m_rowsTime = 0;
  }
}

void EventListener::Lose(const std::string& reason) {
  m_stream->Put(
      FrameOf("lost", JsonText(Json{{"since", m_query.since}, {"message", reason}})).text);
}

void EventListener::GoLive() {
  m_isLive = true;
  StopReading();
  m_toRead.clear();
  m_question.reset();
  m_waitingBytes = 0;
  for (const EventFrame& frame : std::exchange(m_waiting, {})) {
    Put(frame);
  }
}

bool EventListener::IsServed() {
  if (!IsGone() && !m_reader.isLetIn()) {
    StopReading();
    m_stream->Cut();
  }
  return !IsGone();
}

bool EventListener::Wants(const EventFrame& frame) const {
  return frame.record.empty() || m_query.records.empty() ||
         std::ranges::find(m_query.records, frame.record) != m_query.records.end();
}

void EventListener::Give(const EventFrame& frame) {
  if (!IsServed() || !Wants(frame)) {
    return;
  }
  if (m_isLive) {
    Put(frame);
    return;
  }
  // One that is larger than that by itself is taken all the same.
  if (m_waitingBytes > kMostWaiting) {
    End();
    return;
  }
  m_waitingBytes += frame.text->size();
  m_waiting.push_back(frame);
}

void EventListener::Put(const EventFrame& frame) {
  if (m_stream->Waiting() > kMostWaiting) {
    End();
    return;
  }
  m_stream->Put(frame.text);
}
