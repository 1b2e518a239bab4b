#include "gate/console/EventDesk.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>
#include <vector>

#include "gate/daemon/AnswerErrors.h"
#include "io/OrIfNoMemory.h"
#include "json/JsonText.h"

namespace {

constexpr std::chrono::seconds kPauseBeforeAgain{1};
constexpr std::chrono::seconds kKeepAlivePause{15};

/// The first wanted record that the daemon's answer to `records` does not name; empty if there is
/// none, or no answer.
std::string UnknownRecord(const Json& answer, const EventQuery& query) {
  const Json* list = answer.Find("records");
  if (list == nullptr || !list->IsArray()) {
    return "";
  }
  std::set<std::string> known;
  for (const Json& row : list->Elements()) {
    if (const Json* name = row.Find("record"); name != nullptr && name->IsString()) {
      known.insert(name->Text());
    }
  }
  const auto found = std::ranges::find_if(
      query.records, [&](const std::string& record) { return !known.contains(record); });
  return found == query.records.end() ? "" : *found;
}

}  // namespace

EventDesk::EventDesk(DaemonDesk& desk)
    : m_desk(desk), m_again(desk.Loop()), m_keepAlive(desk.Loop()) {}

EventDesk::~EventDesk() = default;

void EventDesk::Serve(const std::shared_ptr<HttpExchange>& exchange, const EventReader& reader) {
  auto read = ReadEventQuery(exchange->arguments, exchange->lastEventId);
  if (const auto* fault = std::get_if<QueryFault>(&read)) {
    exchange->Answer(ErrorAnswer(fault->status, "bad-field", fault->message, fault->field));
    return;
  }
  const EventQuery& query = std::get<EventQuery>(read);
  if (query.records.empty()) {
    Begin(exchange, reader, query);
    return;
  }
  exchange->Hold(
      m_desk.AskJson(Json{{"op", "records"}}, [this, exchange, reader, query](const Json& answer) {
        if (const std::string unknown = UnknownRecord(answer, query); !unknown.empty()) {
          exchange->Answer(
              ErrorAnswer(404, "unknown-record", "no record \"" + unknown + '"', "records"));
          return;
        }
        Begin(exchange, reader, query);
      }));
}

std::string EventDesk::WhyFull(const EventReader& reader) const {
  if (m_listeners.size() >= kMostListeners) {
    return std::to_string(kMostListeners) + " readers of events are served";
  }
  const auto own = std::ranges::count_if(
      m_listeners, [&](const auto& one) { return one->Reader().login == reader.login; });
  return own < static_cast<std::ptrdiff_t>(kMostOfOneLogin)
             ? ""
             : std::to_string(kMostOfOneLogin) + " readers of events of this login are served";
}

void EventDesk::Begin(const std::shared_ptr<HttpExchange>& exchange, const EventReader& reader,
                      EventQuery query) {
  if (exchange->IsAnswered()) {
    return;
  }
  RemoveGone();
  if (!WhyFull(reader).empty()) {
    EndLeft();
  }
  if (const std::string reason = WhyFull(reader); !reason.empty()) {
    exchange->Answer(ErrorAnswer(503, "busy", reason));
    return;
  }
  const auto stream = std::make_shared<HttpStream>();
  const auto listener =
      std::make_shared<EventListener>(m_desk, reader, std::move(query), stream, m_showsArguments);
  m_listeners.push_back(listener);
  OrIfNoMemory([&] { Admit(exchange, listener, stream); },
               [&] {
                 // Its reader comes again.
                 listener->End();
                 m_listeners.remove(listener);
               });
}

void EventDesk::Admit(const std::shared_ptr<HttpExchange>& exchange,
                      const std::shared_ptr<EventListener>& listener,
                      const std::shared_ptr<HttpStream>& stream) {
  // Who leaves is forgotten in the loop's own turn, as this is called within the server's.
  stream->OnGone([this] { m_keepAlive.After({}, [this] { KeepAlive(); }); });
  exchange->AnswerStream({200, "text/event-stream", "", false, {{"Cache-Control", "no-store"}}},
                         stream);
  listener->Start(std::time(nullptr));
  if (m_isDaemonGone) {
    listener->Give(FrameOf("daemon", R"({"state":"gone"})"));
  }
  if (m_follow == nullptr) {
    Follow();
  }
  // Others wait for theirs already, which nobody who comes puts off.
  if (m_listeners.size() == 1) {
    m_keepAlive.After(kKeepAlivePause, [this] { KeepAlive(); });
  }
}

void EventDesk::Follow() {
  m_isGivenUp = false;
  Json request{{"op", "follow"}};
  if (!m_showsArguments) {
    request["arguments"] = false;
  }
  m_follow = std::make_unique<DaemonFollow>(
      m_desk, request,
      DaemonFollow::Hooks{[this](bool isGood, std::string_view) { OnAnswer(isGood); },
                          [this](std::string_view line) { GiveAll(FrameOfLine(line)); },
                          [this] { OnDaemonGone(); }});
}

void EventDesk::OnAnswer(bool isGood) {
  if (m_isGivenUp) {
    return;
  }
  if (!isGood) {
    OnDaemonGone();
    return;
  }
  FollowAlarms();
  if (std::exchange(m_isDaemonGone, false)) {
    GiveAll(FrameOf("daemon", R"({"state":"back"})"));
    // They come again at once, and get from history what was made meanwhile.
    for (const auto& listener : m_listeners) {
      listener->End();
    }
  }
}

void EventDesk::FollowAlarms() {
  m_alarms = std::make_unique<DaemonFollow>(
      m_desk, Json{{"op", "alarm_follow"}},
      DaemonFollow::Hooks{[](bool, std::string_view) {},
                          [this](std::string_view line) {
                            if (const EventFrame frame = FrameOfAlarm(line); frame.text) {
                              GiveAll(frame);
                            }
                          },
                          // Readers have to come again, as one may have been missed.
                          [this] { OnDaemonGone(); }});
}

void EventDesk::OnDaemonGone() {
  if (std::exchange(m_isGivenUp, true)) {
    return;
  }
  // One of them may be the caller, which must be freed in its own turn.
  m_again.After(kPauseBeforeAgain, [this] {
    RemoveGone();
    m_follow.reset();
    m_alarms.reset();
    if (!m_listeners.empty()) {
      OrIfNoMemory([&] { Follow(); }, [&] { OnDaemonGone(); });
    }
  });
  if (!std::exchange(m_isDaemonGone, true)) {
    GiveAll(FrameOf("daemon", R"({"state":"gone"})"));
  }
}

void EventDesk::GiveAll(const EventFrame& frame) {
  for (const auto& listener : m_listeners) {
    listener->Give(frame);
  }
}

void EventDesk::RemoveGone() {
  m_listeners.remove_if([](const auto& listener) { return listener->IsGone(); });
}

void EventDesk::EndLeft() {
  for (const auto& listener : m_listeners) {
    listener->EndIfLeft();
  }
  RemoveGone();
}

void EventDesk::KeepAlive() {
  RemoveGone();
  if (m_listeners.empty()) {
    m_follow.reset();
    m_alarms.reset();
    m_isDaemonGone = false;
    m_again.Cancel();
    return;
  }
  static const auto comment = std::make_shared<const std::string>(": alive\n\n");
  m_keepAlive.After(kKeepAlivePause, [this] { KeepAlive(); });
  GiveAll({comment, ""});
}
