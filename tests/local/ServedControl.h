#pragma once

#include "local/control/ControlServer.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/TestClient.h"
#include "tests/local/control/FakePeer.h"

/// A control socket in a folder of its own, served while a script plays the clients.
class ServedControl {
 public:
  ServedControl() {
    PublishFakeRecords();
    operations.TheGate().OnProblem([this](const std::string& text) { problems.push_back(text); });
  }

  void Serve(const std::function<void()>& script) {
    ControlServer server(loop, operations, settings,
                         [this](const std::string& text) { problems.push_back(text); });
    std::string error;
    ASSERT_TRUE(server.Open(error)) << error;
    std::thread clients([&] {
      script();
      EventLoop::RequestStop();
    });
    loop.Run(agent);
    clients.join();
    beforeClose();
    server.Close();
  }

  /// The only answer to one line, served to its end without a socket.
  Json Ask(const std::string& line, const std::shared_ptr<FakePeer>& peer) {
    operations.Handle(line, peer);
    loop.Post({[](CMBNode&) { EventLoop::RequestStop(); }, {}, false});
    loop.Run(agent);
    EXPECT_EQ(peer->answers.size(), 1U) << line;
    return peer->answers.empty() ? Json() : JsonOf(std::exchange(peer->answers, {}).front());
  }

  const ScratchDirectory directory;
  EventLoop loop;
  BatchDesk desk;
  LastRows lastRows;
  RecordSinks sinks{{&lastRows}};
  ScheduleBook schedule{loop, desk, sinks};
  HistoryStore history{[](const std::string&) {}};
  ControlOperations operations{loop, desk, schedule, lastRows, history};
  FakeAgent agent;
  ControlSettings settings;
  std::function<void()> beforeClose = [] {};  ///< on the loop's thread
  std::vector<std::string> problems;
};
