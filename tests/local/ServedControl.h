#pragma once

#include "local/control/ControlServer.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/TestClient.h"

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
    server.Close();
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
  std::vector<std::string> problems;
};
