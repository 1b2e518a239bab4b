#include "local/loop/EventLoop.h"

#include <atomic>

#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"
#include "io/MemoryRest.h"
#include "local/control/RequestTurns.h"
#include "local/loop/DescriptorWatches.h"
#include "local/loop/EventTimers.h"
#include "support/Descriptor.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

class PingEvent : public CMBEvent {
 public:
  explicit PingEvent(int* destroyed = nullptr) : CMBEvent(nullptr), m_destroyed(destroyed) {}
  ~PingEvent() override {
    if (m_destroyed != nullptr) {
      ++*m_destroyed;
    }
  }
  [[nodiscard]] const char* IsA() const override { return "PingEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }

 private:
  int* m_destroyed;
};

class PingAgent : public FakeAgent, public CMBEventHandler<PingEvent> {
 public:
  using FakeAgent::NotifyEvent;
  int NotifyEvent(PingEvent* event) override {
    onPing(event);
    return kNotifyDone;
  }
  std::function<void(PingEvent*)> onPing;
};

class EventLoopTest : public ::testing::Test {
 protected:
  void Post(std::function<void()> run, bool isBatch = false) {
    loop.Post({[run = std::move(run)](CMBNode&) { run(); }, {}, isBatch});
  }
  void Stop() { EventLoop::RequestStop(); }

  EventLoop loop;
  PingAgent agent;
  std::vector<std::string> problems;
  DescriptorWatches watches{loop, [this](const std::string& text) { problems.push_back(text); }};
  EventTimers timers{loop};
};

struct Pipe {
  Pipe() {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
  }
  Descriptor reader;
  Descriptor writer;
};

TEST_F(EventLoopTest, ABatchThatYieldsLetsEventsInButNoSecondBatch) {
  std::string order;
  Post(
      [&] {
        order += "[";
        Post([&] { order += "b"; }, true);
        Post([&] {
          order += "e";
          // Depth is one: an event inside a yield gets no turn of its own.
          Post([&] { order += "n"; });
          loop.Yield(0);
          order += "E";
        });
        loop.Yield(0);
        order += "]";
      },
      true);
  Post([&] { order += "x"; });
  Post([&] { Post([&] { Post([&] { Stop(); }); }); }, true);
  loop.Run(agent);
  EXPECT_EQ(order, "[xeE]bn");
}

TEST_F(EventLoopTest, WhatIsCancelledOrReplacedIsNotCalledThoughTheLibraryHasItReady) {
  using namespace std::chrono_literals;
  std::string order;
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK), 0);
  const Descriptor reader(pipe[0]);
  { const Descriptor writer(pipe[1]); }
  auto borrowed = std::make_unique<LoopDescriptor>(loop);
  borrowed->Borrow(reader.Get());
  LoopTimer first(loop);
  LoopTimer cancelled(loop);
  LoopTimer replaced(loop);
  LoopTimer last(loop);
  first.After(0s, [&] {
    order += "f";
    cancelled.Cancel();
    replaced.After(0s, [&] { order += "n"; });
    borrowed.reset();
  });
  cancelled.After(0s, [&] { order += "c"; });
  replaced.After(0s, [&] { order += "r"; });
  borrowed->OnReadable([&] { order += "d"; });
  last.After(50ms, [&] { Post([&] { Stop(); }); });
  std::this_thread::sleep_for(1ms);
  loop.Run(agent);
  EXPECT_EQ(order.find_first_of("cr"), std::string::npos) << order;
  EXPECT_NE(order.find("n"), std::string::npos) << order;
  EXPECT_NE(::fcntl(reader.Get(), F_GETFD), -1) << "what is borrowed stays open";
}

TEST_F(EventLoopTest, ABatchThatIsHeldBackLetsAllElseInForItsTimeAndNoSecondOneIsHeld) {
  std::string order;
  EXPECT_FALSE(loop.Hold(60)) << "outside a task";
  const auto begin = std::chrono::steady_clock::now();
  LoopTimer later(loop);
  later.After(std::chrono::milliseconds(300), [&] { Post([&] { order += "l"; }); });
  Post(
      [&] {
        order += "[";
        Post([&] { order += loop.Hold(60) ? "held" : "b"; }, true);
        Post([&] { order += "e"; });
        order += loop.Hold(1) ? "]" : "?";
        Stop();
        order += loop.Hold(60) ? "?" : "s";
      },
      true);
  loop.Run(agent);
  EXPECT_EQ(order, "[bel]s");
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(passed.count(), 1);
  EXPECT_LT(passed.count(), 30);
}

TEST_F(EventLoopTest, AStopIsStickyKeepsErrnoAndDropsWhatWaits) {
  int ran = 0;
  int dropped = 0;
  loop.Post({[&](CMBNode&) { ++ran; }, [&] { ++dropped; }, false});
  errno = 4711;
  Stop();
  EXPECT_EQ(errno, 4711);
  loop.Run(agent);
  EXPECT_EQ(ran, 0);
  EXPECT_EQ(dropped, 1);

  // Used up by that Run: the next one goes on until it is stopped from elsewhere.
  Post([&] { ++ran; });
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Stop();
  });
  loop.Run(agent);
  stopper.join();
  EXPECT_EQ(ran, 1);
}

TEST_F(EventLoopTest, ADescriptorIsDeliveredAgainUntilItIsReadEmpty) {
  Pipe pipe;
  ASSERT_EQ(::write(pipe.writer.Get(), "abc", 3), 3);
  std::string got;
  agent.onSocket = [&](int descriptor) {
    EXPECT_EQ(descriptor, pipe.reader.Get());
    char byte = 0;
    ASSERT_EQ(::read(descriptor, &byte, 1), 1);
    got += byte;
    if (got.size() == 3) {
      EXPECT_EQ(watches.Unwatch(descriptor), 0);
      EXPECT_EQ(watches.Unwatch(descriptor), 1);
      // No event for this byte.
      ASSERT_EQ(::write(pipe.writer.Get(), "d", 1), 1);
      EXPECT_EQ(timers.Schedule(new PingEvent, 0, 0, 0), 0);
    }
  };
  agent.onPing = [&](PingEvent*) { Stop(); };
  ASSERT_EQ(watches.Watch(pipe.reader.Get()), 0);
  EXPECT_EQ(::fcntl(pipe.reader.Get(), F_GETFL) & O_NONBLOCK, 0);
  loop.Run(agent);
  EXPECT_EQ(got, "abc");
}

TEST_F(EventLoopTest, AnEventThatWaitsIsNotDeliveredAfterTheWatchHasEnded) {
  Pipe pipe;
  ASSERT_EQ(::write(pipe.writer.Get(), "a", 1), 1);
  ASSERT_EQ(watches.Watch(pipe.reader.Get()), 0);
  int delivered = 0;
  agent.onSocket = [&](int) { ++delivered; };
  // The readable descriptor's event stands in the queue behind this task when the watch ends; a new
  // watch of the same number must not revive it.
  Post([&] {
    loop.Pump(std::chrono::milliseconds(20), [] { return false; });
    watches.Unwatch(pipe.reader.Get());
    char byte = 0;
    ASSERT_EQ(::read(pipe.reader.Get(), &byte, 1), 1);
    ASSERT_EQ(watches.Watch(pipe.reader.Get()), 0);
    Post([&] { Stop(); });
  });
  loop.Run(agent);
  EXPECT_EQ(delivered, 0);
}

TEST_F(EventLoopTest, WhatCannotBeWatchedIsRefusedOrReported) {
  EXPECT_EQ(watches.Watch(-1), EBADF);
  const Descriptor file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (watches.Watch(file.Get()) == 0) {
    Post([&] { Post([&] { Stop(); }); });
    loop.Run(agent);
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_NE(problems[0].find(std::to_string(file.Get())), std::string::npos) << problems[0];
  }
}

TEST_F(EventLoopTest, ScheduledEventsComeAtOnceIfDueAndThenTheirCount) {
  int destroyed = 0;
  PingEvent other;
  EXPECT_EQ(timers.Schedule(nullptr, 1, -1, 0), EINVAL);
  EXPECT_EQ(timers.Schedule(&other, 0, -1, 0), EINVAL);
  EXPECT_EQ(timers.Cancel(&other, true), 1);

  auto* event = new PingEvent(&destroyed);
  std::vector<std::chrono::steady_clock::time_point> times;
  agent.onPing = [&](PingEvent* got) {
    EXPECT_EQ(got, event);
    times.push_back(std::chrono::steady_clock::now());
  };
  const auto scheduled = std::chrono::steady_clock::now();
  ASSERT_EQ(timers.Schedule(event, 1, 1, std::time(nullptr) - 100), 0);
  EXPECT_EQ(timers.Schedule(event, 1, 1, 0), EINVAL);
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(2300));
    Stop();
  });
  loop.Run(agent);
  stopper.join();
  ASSERT_EQ(times.size(), 2U);
  // Not between the two: the first may come late, the second keeps its time.
  EXPECT_GE(times[1] - scheduled, std::chrono::milliseconds(990));
  // Done, but the loop's own until it is cancelled.
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(timers.Cancel(event, true), 0);
  EXPECT_EQ(destroyed, 1);
}

TEST_F(EventLoopTest, AnEventCancelledInItsOwnHandlerIsFreedAfterwards) {
  int destroyed = 0;
  auto* event = new PingEvent(&destroyed);
  agent.onPing = [&](PingEvent* got) {
    EXPECT_EQ(timers.Cancel(got, true), 0);
    EXPECT_EQ(destroyed, 0);
    EXPECT_STREQ(got->IsA(), "PingEvent");
    Post([&] {
      EXPECT_EQ(destroyed, 1);
      Stop();
    });
  };
  ASSERT_EQ(timers.Schedule(event, 1, -1, 0), 0);
  loop.Run(agent);
  EXPECT_EQ(destroyed, 1);

  auto kept = std::make_unique<PingEvent>(&destroyed);
  ASSERT_EQ(timers.Schedule(kept.get(), 1, -1, std::time(nullptr) + 1000), 0);
  EXPECT_EQ(timers.Cancel(kept.get(), false), 0);
  EXPECT_EQ(destroyed, 1);
}

/// Bytes of the process that a field of /proc/self/status tells in kB.
std::size_t StatusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (std::size_t kilobytes = 0; word == name && status >> kilobytes) {
      return kilobytes << 10U;
    }
  }
  return 0;
}

TEST_F(EventLoopTest, MemoryIsGivenBackSomeTimeAfterARush) {
  constexpr std::size_t kMegabyte = std::size_t{1} << 20U;
  // Long beside what a busy machine takes for a turn.
  MemoryRest memory(loop, std::chrono::milliseconds(10));
  LoopTimer end(loop);
  const auto rest = [&] {
    end.After(std::chrono::milliseconds(200), [this] { Stop(); });
    loop.Run(agent);
  };
  memory.NoteRareWork();
  rest();
  [[maybe_unused]] const std::size_t quiet = StatusBytes("RssAnon:");
  {
    std::vector<std::unique_ptr<std::string>> rush(100000);
    for (auto& one : rush) {
      one = std::make_unique<std::string>(700, 'x');
    }
  }
  const std::size_t most = StatusBytes("RssFile:");
  memory.NoteBytes(MemoryRest::kRush);
  rest();
  EXPECT_GT(StatusBytes("RssFile:") + kMegabyte / 4, most) << "given back without a rush";
  memory.NoteBytes(1);
  memory.NoteBytes(MemoryRest::kRush / 4 + 1);
  rest();
  EXPECT_LT(StatusBytes("RssFile:") + kMegabyte / 4, most);
#if !defined(QMT_ADDRESS_SANITIZER)
  EXPECT_LT(StatusBytes("RssAnon:"), quiet + 8 * kMegabyte);
#endif
  for (const bool isGivenBack : {false, true}) {
    const std::size_t used = StatusBytes("RssFile:");
    memory.NoteWork();
    if (isGivenBack) {
      rest();
    } else {
      // Comes too soon for a rest.
      Post([this] { Stop(); });
      loop.Run(agent);
    }
    EXPECT_EQ(StatusBytes("RssFile:") + kMegabyte / 4 < used, isGivenBack);
  }
}

TEST_F(EventLoopTest, ARequestHasSomeTurnsInARow) {
  RequestTurns turns(loop);
  const auto peer = std::make_shared<FakePeer>(Rights::kRead);
  std::string order;
  // How many turns each takes; the last of the one named '!' finds no memory.
  const std::pair<char, int> requests[] = {{'a', 7}, {'!', 2}, {'b', 6}, {'c', 1}};
  for (const auto& [name, count] : requests) {
    const auto request = std::make_shared<ControlRequest>(Json{{"op", "x"}}, peer);
    turns.Add(request, [&order, name = name, left = count]() mutable {
      order += name;
      if (name == '!' && left == 1) {
        throw std::bad_alloc();
      }
      return --left > 0;
    });
  }
  const auto stop = [&](auto& self) -> void {
    order.size() < 16 ? Post([&] { self(self); }) : Stop();
  };
  Post([&] { stop(stop); });
  loop.Run(agent);
  EXPECT_EQ(order, "aaaaa!!bbbbbcaab");
  EXPECT_EQ(peer->answers.size(), 1U);
}

}  // namespace
