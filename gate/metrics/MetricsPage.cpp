#include "gate/metrics/MetricsPage.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "gate/daemon/AnswerErrors.h"
#include "gate/daemon/FinishGuarded.h"
#include "gate/http/BodyText.h"
#include "gate/metrics/MetricFormat.h"
#include "json/JsonText.h"

namespace {

constexpr std::size_t kMostRecords = 64;
constexpr std::string_view kChosen = "collect[]";
constexpr std::size_t kMaxHead = 65536;

HttpAnswer PlainAnswer(unsigned status, const std::string& text) {
  return {status, HttpAnswer{}.contentType, text + '\n'};
}

/// Takes the daemon's answer: a line that tells the size of the text, and the text.
class MetricsAnswer {
 public:
  explicit MetricsAnswer(std::shared_ptr<HttpExchange> exchange)
      : m_exchange(std::move(exchange)), m_body(m_exchange->takesGzip) {}

  /// False at its end.
  bool Take(std::string_view bytes) {
    if (!m_isText) {
      const std::size_t end = bytes.find('\n');
      m_head += bytes.substr(0, end);
      if (end == std::string_view::npos) {
        return m_head.size() < kMaxHead;
      }
      if (!ReadHead()) {
        return false;
      }
      m_isText = true;
      bytes.remove_prefix(end + 1);
    }
    const std::string_view text = bytes.substr(0, static_cast<std::size_t>(m_left));
    m_left -= text.size();
    m_hasRoom = m_hasRoom && m_body.Add(text);
    return m_left != 0 && m_hasRoom;
  }

  void Finish(DaemonDesk::End end) {
    if (end != DaemonDesk::End::kDone) {
      m_exchange->Answer(PlainAnswer(503, "the daemon can't be asked"));
    } else if (!m_isText) {
      m_exchange->Answer(std::move(m_answer));
    } else if (!m_hasRoom || !m_body.Finish(m_answer)) {
      m_exchange->Answer(PlainAnswer(503, "too many answers wait for their readers"));
    } else {
      m_exchange->Answer(std::move(m_answer));
    }
  }

 private:
  /// False if no text follows; the answer tells why.
  bool ReadHead() {
    const Json line = ParseJson(m_head).value;
    const Json* metrics = line.Find("metrics");
    const Json* size = metrics == nullptr ? nullptr : metrics->Find("bytes");
    const Json* type = metrics == nullptr ? nullptr : metrics->Find("content_type");
    if (size != nullptr && size->IsUnsigned() && type != nullptr && type->IsString()) {
      m_answer = {200, type->Text(), ""};
      m_left = size->Unsigned();
      return true;
    }
    const Json* error = line.Find("error");
    const Json* message = error == nullptr ? nullptr : error->Find("message");
    const Json* code = error == nullptr ? nullptr : error->Find("code");
    const bool isTold =
        message != nullptr && message->IsString() && code != nullptr && code->IsString();
    const Json* field = error == nullptr ? nullptr : error->Find("field");
    // Names that there are none of are a page that is not there.
    const bool isNoPage = field != nullptr && *field == "names";
    m_answer = isTold ? PlainAnswer(isNoPage ? 404 : StatusOfCode(code->Text()), message->Text())
                      : PlainAnswer(503, "the daemon's answer can't be read");
    return false;
  }

  std::shared_ptr<HttpExchange> m_exchange;
  std::string m_head;
  bool m_isText = false;
  bool m_hasRoom = true;
  std::uint64_t m_left = 0;
  HttpAnswer m_answer = PlainAnswer(503, "the daemon's answer can't be read");
  BodyText m_body;
};

}  // namespace

void MetricsPage::Serve(const std::shared_ptr<HttpExchange>& exchange) {
  Json records = Json::Array();
  for (const auto& [name, value] : exchange->arguments) {
    if (name == kChosen) {
      records.PushBack(value);
    }
  }
  if (records.Size() > kMostRecords) {
    exchange->Answer(PlainAnswer(400, "too many records"));
    return;
  }
  Json request{{"op", "metrics"}, {"format", PreferredFormat(exchange->accept)}};
  if (records.Size() != 0) {
    request["records"] = std::move(records);
  }
  Ask(exchange, request);
}

void MetricsPage::ServeNode(const std::shared_ptr<HttpExchange>& exchange) {
  const bool isChosen = std::ranges::any_of(
      exchange->arguments, [](const auto& argument) { return argument.first == kChosen; });
  if (isChosen) {
    exchange->Answer(PlainAnswer(400, "this page has all figures and takes no collect[]"));
    return;
  }
  Ask(exchange,
      Json{{"op", "metrics"}, {"names", "node"}, {"format", PreferredFormat(exchange->accept)}});
}

void MetricsPage::Ask(const std::shared_ptr<HttpExchange>& exchange, const Json& request) {
  const auto answer = std::make_shared<MetricsAnswer>(exchange);
  const auto question = m_desk.Ask(
      request, [answer](std::string_view bytes) { return answer->Take(bytes); },
      [answer](DaemonDesk::End end) { FinishGuarded(*answer, end); });
  exchange->Hold(question);
}
