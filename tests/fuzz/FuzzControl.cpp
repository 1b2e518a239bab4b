// What clients send to the control socket: a stream of bytes that comes in pieces, cut into lines,
// each of which is a request.
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "json/JsonText.h"
#include "local/control/ControlOperations.h"
#include "local/control/LineBuffer.h"
#include "tests/fuzz/FuzzHelp.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"

namespace {

/// The daemon's side, with some rows that can be asked for.
class Daemon {
 public:
  Daemon() {
    PublishFakeRecords();
    m_history.Configure({});
    m_operations.SetFacts({"node", "host"});
    const auto now = static_cast<std::int32_t>(std::time(nullptr));
    for (std::int32_t batch = 3; batch > 0; --batch) {
      const FakeRecord first(1, now - batch);
      const FakeRecord second(4000000000U, now - batch);
      const std::vector<const CMBRecord*> rows{&first, &second};
      m_sinks.Take({"FAKE", '4', now - batch, rows});
      m_sinks.EndBatch();
    }
  }
  /// Returns once the request is answered.
  void Handle(const std::string& line, const std::shared_ptr<FakePeer>& peer) {
    m_operations.Handle(line, peer);
    StopOnceAnswered(*peer, 0);
    m_loop.Run(m_agent);
  }

 private:
  static constexpr int kMostTurns = 10000;

  void StopOnceAnswered(const FakePeer& peer, int turn) {
    if (!peer.answers.empty() || peer.endless || turn == kMostTurns) {
      EventLoop::RequestStop();
      return;
    }
    m_loop.Post({[this, &peer, turn](CMBNode&) { StopOnceAnswered(peer, turn + 1); }, {}, false});
  }

  EventLoop m_loop;
  BatchDesk m_desk;
  LastRows m_lastRows;
  HistoryStore m_history{[](const std::string&) {}};
  RecordSinks m_sinks{{&m_lastRows, &m_history}};
  ScheduleBook m_schedule{m_loop, m_desk, m_sinks};
  FakeAgent m_agent;
  ControlOperations m_operations{m_loop, m_desk, m_schedule, m_lastRows, m_history};
};

/// Each request is answered once, by a line that is an object and says how it went.
void RequireAnswer(FakePeer& peer) {
  if (peer.endless) {
    std::string piece;
    for (int count = 0; count < 4 && peer.endless(piece); ++count) {
      piece.clear();
    }
    return;
  }
  Require(peer.answers.size() == 1);
  const std::string& answer = peer.answers.front();
  const ParsedJson parsed = ParseJson(std::string_view(answer).substr(0, answer.find('\n')));
  Require(parsed.fault == JsonFault::kNone && parsed.value.IsObject());
  const Json* isOk = parsed.value.Find("ok");
  Require(isOk != nullptr && isOk->IsBool());
  Require(isOk->Bool() || parsed.value.Find("error") != nullptr);
}

}  // namespace

/// The first byte tells the rights of the client, the second how long the pieces are that come.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchDirectory folder;
  static Daemon daemon;
  Input input(data, size);
  const Rights rights = input.Byte() % 2 == 0 ? Rights::kRead : Rights::kChange;
  const std::size_t piece = input.Byte() + std::size_t{1};
  constexpr std::size_t kLimit = 512;
  LineBuffer buffer(kLimit);
  while (!input.IsEmpty()) {
    buffer.Append(input.Bytes(piece));
    std::string line;
    for (LineBuffer::Found found{}; (found = buffer.Next(line)) != LineBuffer::Found::kNothing;) {
      if (found == LineBuffer::Found::kLine) {
        Require(line.size() < kLimit && line.find('\n') == line.npos);
        const auto peer = std::make_shared<FakePeer>(rights);
        daemon.Handle(line, peer);
        RequireAnswer(*peer);
      }
    }
  }
  return 0;
}
