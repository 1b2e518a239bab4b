#include "gate/PushTrial.h"

#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

#include "gate/GateLog.h"
#include "gate/GateLoop.h"
#include "gate/GateSettings.h"
#include "gate/daemon/DaemonDesk.h"
#include "gate/push/WriteRequest.h"
#include "gate/send/HttpSender.h"
#include "json/TerminalText.h"

namespace {

/// Sends to one target after the other, in the order of the settings.
class PushTrial {
 public:
  PushTrial(const std::string& controlPath, std::string push)
      : m_push(std::move(push)), m_desk(m_loop, controlPath), m_sender(m_loop) {}

  int Run() {
    m_loop.StopBySignals();
    m_question = m_desk.AskJson(Json{{"op", "gate"}}, [this](const Json& answer) {
      Take(answer);
      SendNext();
    });
    m_loop.Run();
    return m_isGood && m_isDone ? 0 : 1;
  }

 private:
  void Take(const Json& answer) {
    GateSettings settings;
    if (!ReadGateSettings(answer, settings)) {
      Fail(m_desk.Path() + ": the daemon can't be asked");
      return;
    }
    for (TargetSettings& target : settings.push) {
      if (m_push.empty() || m_push == target.name) {
        m_targets.push_back(std::move(target));
      }
    }
    if (m_targets.empty()) {
      Fail(m_push.empty() ? "the settings have no target of pushes"
                          : "the settings have no push \"" + m_push + '"');
    }
  }
  void Fail(const std::string& why) {
    GateLog(why);
    m_isGood = false;
  }
  void SendNext() {
    if (m_next == m_targets.size()) {
      m_isDone = true;
      m_loop.Stop();
      return;
    }
    const TargetSettings& target = m_targets[m_next++];
    SendRequest request;
    request.url = target.url;
    request.headers = WriteHeaders();
    request.body = MakeWriteBody("", {}, {}).bytes;
    request.identity = target.sending;
    m_sending = m_sender.Send(std::move(request), [this, &target](const SendResult& result) {
      Print(target.name + ' ' + ShownUrl(target.url) + ": " +
            (IsTaken(result) ? "it works, " : "") + WordsOf(result));
      m_isGood = m_isGood && IsTaken(result);
      SendNext();
    });
  }
  /// For a terminal too, whatever the server has said.
  static void Print(const std::string& text) {
    std::puts(WithoutSteering(text).c_str());
    std::fflush(stdout);
  }

  std::string m_push;
  GateLoop m_loop;
  DaemonDesk m_desk;
  HttpSender m_sender;
  DaemonDesk::QuestionPtr m_question;
  std::vector<TargetSettings> m_targets;
  std::size_t m_next = 0;
  HttpSender::SendingPtr m_sending;
  bool m_isGood = true;
  bool m_isDone = false;  ///< a signal may end it before
};

}  // namespace

int TestPushes(const std::string& controlPath, const std::string& push) {
  return PushTrial(controlPath, push).Run();
}
