#include <crypt.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "tests/faults/GateSurroundings.h"
#include "tests/gate/FakeServer.h"
#include "tests/gate/GateHarness.h"
#include "tests/gate/KeyPair.h"
#include "tests/gate/TlsClient.h"

namespace {

constexpr const char* kNoSuch =
    "{\"ok\":false,\"error\":{\"code\":\"bad-field\",\"message\":\"no\"}}\n";
constexpr const char* kPage = "a 1\n";

/// As an Alertmanager is told it.
std::string TimeText(std::time_t time) {
  std::tm parts{};
  char text[40];
  ::gmtime_r(&time, &parts);
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

/// Alarms of `before` and the seconds behind it, which is not so long ago that an end counts as
/// late.
Json AlarmOf(std::time_t before, int id, bool isActive) {
  return Json{{"id", id},
              {"alarm", "swap"},
              {"record", "PI"},
              {"state", isActive ? "active" : "ended"},
              {"since", before + id},
              {"until", isActive ? Json(nullptr) : Json(before + id + 1)}};
}

class ConsoleScene : public GateSurroundings {
 public:
  explicit ConsoleScene(pid_t gate)
      : GateSurroundings(gate),
        m_server([this](const auto& request) { return Take(request); }),
        m_daemon("control.sock", [this](const Json& request) { return AnswerGate(request); }) {
    MakeKeyPair("own", std::time(nullptr) + 100'000);
    char salt[CRYPT_GENSALT_OUTPUT_SIZE];
    ::crypt_data data{};
    const char* hash =
        ::crypt_r("open", ::crypt_gensalt_rn("$2b$", 4, nullptr, 0, salt, sizeof salt), &data);
    std::ofstream("users") << "a:" << hash << '\n';
    std::filesystem::permissions("users", std::filesystem::perms::owner_read);
  }

  void Walk() override {
    if (HasListener()) {
      Read("/", "<html");
      Read("/api/1/status", "\"asked\"");
      Read("/metrics", kPage);
    }
    // One that is there before the gate is, one that begins and ends, and one that begins.
    WaitFor([this] { return CountSent() >= 2; });
    WaitFor([this] { return m_daemon.Followers("alarm_follow") != 0; });
    Change(2, true);
    // One that has ended before it was told is told as ended alone.
    WaitFor([this] { return CountSent() >= 4; });
    Change(2, false);
    Change(3, true);
    WaitFor([this] { return CountSent() >= 8; });
    if (!Address().empty()) {
      std::atomic<bool> isOver = false;
      std::thread teller([&] {
        while (!isOver) {
          m_daemon.Tell(R"({"event":"batch","time":7})");
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
      });
      Read("/api/1/events", "event: batch");
      // What a reader lacks is read back from the history, in two stretches.
      Read("/api/1/events?records=PI&since=" + std::to_string(std::time(nullptr) - 70),
           "event: batch\ndata: {\"event\":\"batch\",\"time\":7}");
      isOver = true;
      teller.join();
      // Last, as who fails has to wait.
      Read("/api/1/gate", "unauthorized", "Basic YTpzaHV0");
      Read("/api/1/gate", "unauthorized", "Bearer none");
    }
  }

 private:
  void Read(const std::string& path, const std::string& mark,
            const char* login = "Basic YTpvcGVu") {
    ReadUntilRight(path, [&] {
      const std::string answer = TlsClient(Address()).Ask(path, login, mark);
      return answer.starts_with("-HTTP/1.1 ") && answer.find(mark) != std::string::npos
                 ? "right"
                 : answer.substr(0, answer.find("\r\n"));
    });
  }
  /// The daemon's alarm begins or ends: who follows is told, who asks later finds it.
  void Change(int id, bool isActive) {
    {
      const std::lock_guard lock(m_alarmsMutex);
      m_isActive[id] = isActive;
    }
    m_daemon.Tell(JsonText(Json{{"event", "alarm"}, {"alarm", AlarmOf(m_before, id, isActive)}}),
                  "alarm_follow");
  }
  Json Alarms(bool withEnded) {
    const std::lock_guard lock(m_alarmsMutex);
    Json list = Json::Array();
    for (const auto& [id, isActive] : m_isActive) {
      if (withEnded || isActive) {
        list.PushBack(AlarmOf(m_before, id, isActive));
      }
    }
    return list;
  }
  bool Take(const FakeServer::Request& request) {
    const Json told = ParseJson(request.body).value;
    if (told.IsArray()) {
      for (const Json& alert : told.Elements()) {
        for (const int id : {1, 2, 3}) {
          if (alert["startsAt"].Text() == TimeText(m_before + id)) {
            const bool isEnded = alert["endsAt"].Text() == TimeText(m_before + id + 1);
            NoteSent("alert " + std::to_string(id) + (isEnded ? " ended" : " active"));
          }
        }
      }
    } else {
      const Json& alarm = told["alarm"];
      NoteSent("webhook " + JsonText(alarm["id"]) + ' ' + alarm["state"].Text());
    }
    return request.Answer("200 OK");
  }
  std::string AnswerGate(const Json& request) {
    const std::string& op = request["op"].Text();
    if (op == "alarm_follow") {
      return JsonText(Json{{"ok", true}, {"alarms", Alarms(false)}}) + '\n';
    }
    if (op == "alarms") {
      return JsonText(Json{{"ok", true}, {"alarms", Json{{"list", Alarms(true)}}}}) + '\n';
    }
    if (op == "metrics") {
      return AnswerMetrics(kPage);
    }
    if (op == "history") {
      const Json row{{"Record Time", request["since"]}};
      return JsonText(Json{{"ok", true},
                           {"history", Json{{"record", "PI"},
                                            {"category", "4"},
                                            {"rows", Json::Array({row})},
                                            {"next", nullptr}}}}) +
             '\n';
    }
    if (op == "records") {
      return "{\"ok\":true,\"records\":[{\"record\":\"PI\"}]}\n";
    }
    if (op == "token_check") {
      return "{\"ok\":true,\"valid\":false,\"expires\":0}\n";
    }
    if (op == "status" || op == "follow") {
      return JsonText(Json{{"ok", true}, {"asked", op}}) + '\n';
    }
    if (op != "gate") {
      return kNoSuch;
    }
    const std::string here = std::filesystem::current_path().string();
    return AnswerSettings(request,
                          Json{{"certificate", here + "/own.crt"},
                               {"key", here + "/own.key"},
                               {"users", here + "/users"},
                               {"state", here + "/state"},
                               {"alarms", Json{{"alertmanager", Json::Array({m_server.Url()})},
                                               {"webhook", Json::Array({m_server.Url()})}}}});
  }

  const std::time_t m_before = std::time(nullptr) - 100;
  std::mutex m_alarmsMutex;
  std::map<int, bool> m_isActive{{1, true}};
  FakeServer m_server;
  FakeDaemon m_daemon;
};

}  // namespace

std::unique_ptr<GateSurroundings> MakeConsoleScene(pid_t gate) {
  return std::make_unique<ConsoleScene>(gate);
}
