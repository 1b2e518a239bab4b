#include "gate/console/ApiPages.h"

#include <algorithm>
#include <array>
#include <utility>

#include "gate/console/ApiRequest.h"
#include "gate/daemon/AnswerErrors.h"
#include "gate/daemon/FinishGuarded.h"
#include "gate/http/BodyText.h"
#include "json/JsonText.h"

namespace {

/// The begin of an answer that tells how it went.
constexpr std::size_t kHeadBytes = 512;

/// The text behind `begin` up to the next quote; empty if it is not there.
std::string_view TextBehind(std::string_view text, std::string_view begin) {
  const std::size_t place = text.find(begin);
  if (place == std::string_view::npos) {
    return "";
  }
  text.remove_prefix(place + begin.size());
  return text.substr(0, text.find('"'));
}

/// The status that an answer of the control protocol has here. Of one with several results each
/// tells for itself.
unsigned StatusOf(std::string_view head, bool hasOneResult) {
  // The number of an alarm, which is the question's own too, comes back in front.
  head.remove_prefix(head.starts_with("{\"id\":") ? std::min(head.find(','), head.size()) : 0);
  head.remove_prefix(head.empty() ? 0 : 1);
  constexpr std::string_view kGood = "\"ok\":true";
  if (!head.starts_with(kGood)) {
    return StatusOfCode(TextBehind(head, "\"error\":{\"code\":\""));
  }
  const std::string_view result = head.substr(kGood.size());
  constexpr std::string_view kFailed = ",\"results\":[{\"record\":\"";
  if (!hasOneResult || !result.starts_with(kFailed)) {
    return 200;
  }
  const std::string_view name = TextBehind(result, kFailed);
  const std::string_view rest = result.substr(kFailed.size() + name.size());
  constexpr std::string_view kError = "\",\"error\":{\"code\":\"";
  return rest.starts_with(kError) ? StatusOfCode(TextBehind(rest, kError)) : 200;
}

/// Takes the daemon's line and makes it the body.
class LineAnswer {
 public:
  LineAnswer(std::shared_ptr<HttpExchange> exchange, bool hasOneResult)
      : m_exchange(std::move(exchange)),
        m_hasOneResult(hasOneResult),
        m_body(m_exchange->takesGzip) {}

  bool Take(std::string_view bytes) {
    const std::size_t end = bytes.find('\n');
    const std::string_view line = bytes.substr(0, end == bytes.npos ? end : end + 1);
    m_head += line.substr(0, kHeadBytes - std::min(kHeadBytes, m_head.size()));
    m_isWhole = end != std::string_view::npos;
    m_hasRoom = m_body.Add(line);
    return !m_isWhole && m_hasRoom;
  }

  void Finish(DaemonDesk::End end) {
    HttpAnswer answer{StatusOf(m_head, m_hasOneResult), "application/json", ""};
    if (end != DaemonDesk::End::kDone) {
      m_exchange->Answer(ErrorAnswer(end));
    } else if (!m_hasRoom || !m_body.Finish(answer)) {
      m_exchange->Answer(ErrorAnswer(503, "busy", "too many answers wait for their readers"));
    } else {
      answer.headers = {{"Cache-Control", "no-store"}};
      m_exchange->Answer(std::move(answer));
    }
  }

 private:
  std::shared_ptr<HttpExchange> m_exchange;
  bool m_hasOneResult;
  std::string m_head;
  bool m_isWhole = false;
  bool m_hasRoom = true;
  BodyText m_body;
};

}  // namespace

void ApiPages::Serve(std::string_view name, const std::shared_ptr<HttpExchange>& exchange) {
  auto read = ReadApiRequest(name, exchange->arguments);
  if (const auto* fault = std::get_if<QueryFault>(&read)) {
    exchange->Answer(ErrorAnswer(fault->status, fault->status == 404 ? "no-page" : "bad-field",
                                 fault->message, fault->field));
    return;
  }
  Json& request = std::get<Json>(read);
  const std::string operation = request["op"].Text();
  constexpr std::array kWithArguments{"get", "last", "history", "alarm"};
  if (!m_showsArguments && std::ranges::find(kWithArguments, operation) != kWithArguments.end()) {
    request["arguments"] = false;
  }
  const Json* records = request.Find("records");
  const auto answer = std::make_shared<LineAnswer>(
      exchange, records != nullptr && records->IsArray() && records->Size() == 1);
  exchange->Hold(m_desk.Ask(
      request, [answer](std::string_view bytes) { return answer->Take(bytes); },
      [answer](DaemonDesk::End end) { FinishGuarded(*answer, end); }));
}
