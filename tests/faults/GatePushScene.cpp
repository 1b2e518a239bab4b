#include "tests/faults/GateSurroundings.h"
#include "tests/gate/FakeServer.h"
#include "tests/gate/GateHarness.h"
#include "tests/gate/push/PushHistory.h"
#include "tests/gate/push/WriteText.h"
#include "tests/support/Testing.h"

namespace {

constexpr const char* kMetrics = "# TYPE a gauge\na 1\n# EOF\n";

constexpr std::chrono::seconds kPatienceOfLast{2};

class PushScene : public GateSurroundings {
 public:
  explicit PushScene(pid_t gate)
      : GateSurroundings(gate),
        m_server([this](const auto& request) { return Store(request); }),
        m_daemon("control.sock", [this](const Json& request) { return AnswerGate(request); }) {
    m_history.SetEnd(kPushedRows);
  }

  void Walk() override {
    const bool isServed = HasListener();
    if (isServed) {
      Scrape();
    }
    WaitFor([this] { return HasAll(kPushedRows); });
    if (isServed) {
      Scrape();
    }
    m_history.SetEnd(kPushedRows + 1);
    WaitFor([this] { return HasAll(kPushedRows + 1); });
    const auto allSent = std::chrono::steady_clock::now();
    // The last place is written no second time.
    WaitFor([allSent] {
      return IsCursorAtEnd() ||
             (FileText("stderr.txt").find("push-far.json") != std::string::npos &&
              std::chrono::steady_clock::now() - allSent > kPatienceOfLast);
    });
  }

 private:
  bool HasAll(int rows) { return CountSent() == PushHistory::Samples(1, rows).size(); }
  static bool IsCursorAtEnd() {
    const std::string end = std::to_string(kPushedRows + 1);
    return FileText("state/push-far.json").find("[" + end + "," + end + "]") != std::string::npos;
  }
  bool Store(const FakeServer::Request& request) {
    for (const std::string& sample : WriteText(request.body)) {
      NoteSent(sample);
    }
    return request.Answer("204 No Content");
  }
  std::string AnswerGate(const Json& request) {
    const std::string& op = request["op"].Text();
    if (op == "samples") {
      return m_history.Answer(request);
    }
    if (op == "metrics") {
      return AnswerMetrics(kMetrics);
    }
    if (op != "gate") {
      return "{\"ok\":false,\"error\":{\"code\":\"bad-field\",\"message\":\"no\"}}\n";
    }
    const Json target{{"name", "far"},
                      {"url", m_server.Url("/write")},
                      {"records", Json::Array({"PI", "FSL"})},
                      {"batch", 10},
                      {"days", 36500}};
    return AnswerSettings(request, Json{{"push", Json::Array({target})}});
  }
  void Scrape() {
    ReadUntilRight("/metrics", [this] {
      if (!ConnectLoopback(Address()).IsOpen()) {
        return std::string();
      }
      HttpClient client(Address());
      client.Ask("/metrics");
      const std::string answer = client.Receive();
      return answer.starts_with("HTTP/1.1 200") &&
                     answer.ends_with(std::string("\r\n\r\n") + kMetrics)
                 ? "right"
                 : "-" + answer.substr(0, answer.find("\r\n"));
    });
  }

  PushHistory m_history;
  FakeServer m_server;
  FakeDaemon m_daemon;
};

}  // namespace

std::unique_ptr<GateSurroundings> MakePushScene(pid_t gate) {
  return std::make_unique<PushScene>(gate);
}
