#include <cstddef>
#include <list>
#include <new>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/un.h>

#include "io/LoopTimer.h"
#include "local/GateChild.h"
#include "local/alarm/AlarmCapture.h"
#include "local/alarm/AlarmCommand.h"
#include "local/loop/DescriptorWatches.h"
#include "local/loop/EventLoop.h"
#include "local/loop/EventTimers.h"
#include "local/loop/ServiceManager.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/ScheduleBook.h"
#include "support/Descriptor.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/KilledChild.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/ServedControl.h"
#include "tests/support/Testing.h"

namespace {

int g_trims = 0;

}  // namespace

/// In the place of the library's.
extern "C" int malloc_trim(std::size_t) noexcept {
  ++g_trims;
  return 0;
}

namespace {

/// More allocations than a test makes.
constexpr std::size_t kForLong = 1'000'000;

/// Runs the loop until a stop is asked for, or for ten seconds.
void RunLoop(EventLoop& loop, FakeAgent& agent) {
  LoopTimer limit(loop);
  limit.After(std::chrono::seconds(10), [] { EventLoop::RequestStop(); });
  loop.Run(agent);
}

void Post(EventLoop& loop, std::function<void(CMBNode&)> run, std::function<void()> fail = {}) {
  LoopTask task;
  task.run = std::move(run);
  task.fail = std::move(fail);
  loop.Post(std::move(task));
}

/// A pipe whose reader is watched, and an agent that counts what it is told of.
struct WatchedPipe {
  explicit WatchedPipe(EventLoop& loop)
      : watches(loop, [](const std::string& text) { ADD_FAILURE() << text; }) {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
    EXPECT_EQ(watches.Watch(reader.Get()), 0);
    agent.onSocket = [this](int) {
      if (++delivered <= failures) {
        throw std::bad_alloc();
      }
      EventLoop::RequestStop();
    };
  }
  void Write() const { EXPECT_EQ(::write(writer.Get(), "a", 1), 1); }

  DescriptorWatches watches;
  Descriptor reader;
  Descriptor writer;
  FakeAgent agent;
  int failures = 0;  ///< for want of memory, before one that asks for a stop
  int delivered = 0;
};

TEST(LoopMemoryTest, ATaskThatEndsForWantOfMemoryFailsThoseWhoWait) {
  EventLoop loop;
  FakeAgent agent;
  int told = 0;
  int failed = 0;
  loop.OnNoMemory([&] { ++told; });
  const auto fail = [&] {
    ++failed;
    EventLoop::RequestStop();
  };
  Post(
      loop, [](CMBNode&) { throw std::bad_alloc(); }, fail);
  RunLoop(loop, agent);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(failed, 1);
}

TEST(LoopMemoryTest, WhatIsDoneForWantOfMemoryMayWantSomeItself) {
  EventLoop loop;
  FakeAgent agent;
  std::string order;
  const auto fail = [&order](const char* what) {
    order += what;
    throw std::bad_alloc();
  };
  loop.OnNoMemory([&] { fail("t"); });
  Post(
      loop, [](CMBNode&) { throw std::bad_alloc(); }, [&] { fail("f"); });
  Post(loop, [](CMBNode&) { EventLoop::RequestStop(); });
  EXPECT_NO_THROW(RunLoop(loop, agent));
  EXPECT_EQ(order, "ft");
}

TEST(LoopMemoryTest, ATimerGoesOnAfterADeliveryWithoutMemory) {
  EventLoop loop;
  int told = 0;
  loop.OnNoMemory([&] { ++told; });
  EventTimers timers(loop);
  FakeAgent agent;
  int delivered = 0;
  agent.onSocket = [&](int) {
    ++delivered;
    EventLoop::RequestStop();
  };
  auto* event = new CMBSocketEvent(7);
  ASSERT_EQ(timers.Schedule(event, 1, -1, std::time(nullptr) + 2), 0);
  Post(loop, [](CMBNode&) { faults::CountAllocations(1); });
  RunLoop(loop, agent);
  faults::StopCountingAllocations();
  EXPECT_EQ(told, 1);
  EXPECT_EQ(delivered, 1);
}

TEST(LoopMemoryTest, ADescriptorIsWatchedOnAfterAHandlerWithoutMemory) {
  EventLoop loop;
  WatchedPipe pipe(loop);
  pipe.failures = 1;
  pipe.Write();
  RunLoop(loop, pipe.agent);
  EXPECT_EQ(pipe.delivered, 2);
}

/// A sink whose memory ends at the first batch.
struct PoorSink : RecordSink {
  void Take(const ScheduledRows&) override {
    if (++batches == 1) {
      throw std::bad_alloc();
    }
    EventLoop::RequestStop();
  }
  void EndBatch() override { ++ended; }
  void AbandonBatch() override { ++abandoned; }
  int batches = 0;
  int ended = 0;
  int abandoned = 0;
};

struct RichSink : RecordSink {
  void Take(const ScheduledRows&) override {}
};

/// Has the loop's thread get no memory from now on, until the want has been told so often.
void StarveUntilTold(EventLoop& loop, int& told, int times) {
  loop.OnNoMemory([&told, times] {
    if (++told == times) {
      faults::StopCountingAllocations();
    }
  });
  faults::CountAllocations(1, kForLong);
}

TEST(LoopMemoryTest, ADescriptorIsWatchedOnThroughALongWantOfMemory) {
  EventLoop loop;
  WatchedPipe pipe(loop);
  int told = 0;
  Post(loop, [&](CMBNode&) {
    StarveUntilTold(loop, told, 5);
    pipe.Write();
  });
  RunLoop(loop, pipe.agent);
  faults::StopCountingAllocations();
  EXPECT_EQ(told, 5);
  EXPECT_EQ(pipe.delivered, 1);
}

TEST(LoopMemoryTest, ATimerThatIsArmedAnewInOneTurnNeedsNoMemory) {
  EventLoop loop;
  FakeAgent agent;
  LoopTimer timer(loop);
  bool isDue = false;
  timer.After(std::chrono::hours(1), [] {});
  Post(loop, [&](CMBNode&) {
    faults::CountAllocations(1, kForLong);
    timer.Cancel();
    timer.After({}, [&isDue] {
      isDue = true;
      EventLoop::RequestStop();
    });
    faults::StopCountingAllocations();
  });
  RunLoop(loop, agent);
  faults::StopCountingAllocations();
  EXPECT_TRUE(isDue);
}

TEST(LoopMemoryTest, AClientIsHeardWhateverAnEarlierOneHadNoMemoryFor) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    // Those of the client among them.
    constexpr std::size_t kOfAnAcceptance = 60;
    constexpr const char* kQuestion = R"({"op":"nothing"})";
    ServedControl control;
    control.settings.maxConnections = 4 * kOfAnAcceptance;
    control.Serve([&] {
      // The library keeps the memory of a connection that has ended, which one that stays takes.
      std::list<TestClient> lasting;
      for (std::size_t place = 1; place <= kOfAnAcceptance; ++place) {
        for (int i = 0; i < 3; ++i) {
          static_cast<void>(lasting.emplace_back().AskForText(kQuestion));
        }
        faults::CountAllocationsOfAll(place);
        try {
          TestClient unlucky;
          unlucky.Send(kQuestion);
          unlucky.EndRequests();
          static_cast<void>(unlucky.ReceiveText());
        } catch (const std::bad_alloc&) {
        }
        faults::StopCountingAllocationsOfAll();
        if (TestClient().AskForText(kQuestion).empty()) {
          throw std::runtime_error("no answer after allocation " + std::to_string(place));
        }
      }
    });
  }));
}

TEST(LoopMemoryTest, TimesComeThroughALongWantOfMemory) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    PublishFakeRecords();
    EventLoop loop;
    FakeAgent agent;
    int batches = 0;
    int delivered = 0;
    const auto stopOnceBothCame = [&] {
      if (batches > 0 && delivered > 0) {
        EventLoop::RequestStop();
      }
    };
    agent.onSocket = [&](int) {
      ++delivered;
      stopOnceBothCame();
    };
    agent.onBatch = [&](CMBMultipleRecordRequestEvent&) {
      ++batches;
      stopOnceBothCame();
      return kNotifyDone;
    };
    BatchDesk desk;
    RichSink sink;
    ScheduleBook book(loop, desk, sink);
    book.Load("./qmtagt.ini", {{"FAKE", "1", 1}}, [](const std::string&) {});
    EventTimers timers(loop);
    if (timers.Schedule(new CMBSocketEvent(7), 1, -1, std::time(nullptr) + 2) != 0) {
      throw std::runtime_error("no timer");
    }
    Post(loop, [&](CMBNode&) { book.Start(); });
    int told = 0;
    // The first batch stands in the queue then.
    LoopTimer later(loop);
    later.After(std::chrono::milliseconds(10), [&] {
      batches = 0;
      StarveUntilTold(loop, told, 4);
    });
    RunLoop(loop, agent);
    faults::StopCountingAllocations();
    if (told != 4 || batches == 0 || delivered == 0) {
      throw std::runtime_error("a time that was waited for has not come");
    }
  }));
}

TEST(LoopMemoryTest, TheGateIsStartedAgainWhateverThereWasNoMemoryFor) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    constexpr std::size_t kOfARun = 40;
    EventLoop loop;
    FakeAgent agent;
    using std::chrono::milliseconds;
    for (std::size_t place = 1; place <= kOfARun; ++place) {
      int ended = 0;
      // One for each place: a stop of the loop drops what is to start the next gate.
      GateChild gate(loop, {"/bin/true", {}, milliseconds(1), milliseconds(1), milliseconds(1)},
                     [&](const std::string& text) {
                       if (text.find("has ended") != std::string::npos && ++ended == 4) {
                         EventLoop::RequestStop();
                       }
                     });
      gate.Start();
      Post(loop, [place](CMBNode&) { faults::CountAllocations(place); });
      RunLoop(loop, agent);
      faults::StopCountingAllocations();
      if (ended != 4) {
        throw std::runtime_error("no gate after allocation " + std::to_string(place));
      }
    }
  }));
}

TEST(LoopMemoryTest, TheNextCommandIsStartedWhateverThereWasNoMemoryFor) {
  EXPECT_TRUE(faults::RunInChild([] {
    constexpr std::size_t kOfAnEnd = 15;
    EventLoop loop;
    FakeAgent agent;
    AlarmCommand command(loop, [](const std::string&) {});
    command.Configure({"/bin/true", std::chrono::seconds(10), 1});
    for (std::size_t place = 1; place <= kOfAnEnd; ++place) {
      Post(loop, [&command, place](CMBNode&) {
        command.Run({"A=first"});
        command.Run({"A=next"});
        faults::CountAllocations(place);
      });
      LoopTimer look(loop);
      std::function<void()> stopOnceBothRan = [&] {
        if (command.Runs() == 2 * place) {
          EventLoop::RequestStop();
        } else {
          look.After(std::chrono::milliseconds(5), [&] { stopOnceBothRan(); });
        }
      };
      stopOnceBothRan();
      RunLoop(loop, agent);
      faults::StopCountingAllocations();
      if (command.Runs() != 2 * place) {
        throw std::runtime_error("no command after allocation " + std::to_string(place));
      }
    }
  }));
}

TEST(LoopMemoryTest, SignsOfLifeGoOnAfterAWantOfMemory) {
  const ScratchDirectory directory;
  const Descriptor manager(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const std::string path = std::filesystem::absolute("signs");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(manager.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::setenv("NOTIFY_SOCKET", path.c_str(), 1);
  ::setenv("WATCHDOG_USEC", "4000", 1);
  EventLoop loop;
  FakeAgent agent;
  int told = 0;
  const auto isTold = [&manager] {
    char sign = 0;
    return ::recv(manager.Get(), &sign, 1, 0) > 0;
  };
  loop.OnNoMemory([&] {
    ++told;
    while (isTold()) {
    }
  });
  ServiceManager service(loop);
  LoopTimer timer(loop);
  bool goesOn = false;
  const std::function<void()> look = [&] {
    if (told != 0 && isTold()) {
      goesOn = true;
      EventLoop::RequestStop();
    }
    timer.After(std::chrono::milliseconds(5), [&look] { look(); });
  };
  look();
  Post(loop, [&](CMBNode&) {
    service.Ready();
    faults::CountAllocations(1);
  });
  RunLoop(loop, agent);
  faults::StopCountingAllocations();
  EXPECT_EQ(told, 1);
  EXPECT_TRUE(goesOn);
}

TEST(LoopMemoryTest, ACaptureIsAskedForAfterOneThatThereWasNoMemoryFor) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    PublishFakeRecords();
    EventLoop loop;
    FakeAgent agent;
    int asked = 0;
    agent.onBatch = [&](CMBMultipleRecordRequestEvent&) {
      ++asked;
      return kNotifyDone;
    };
    BatchDesk desk;
    LastRows rows;
    ScheduleBook book(loop, desk, rows);
    HistoryStore store([](const std::string&) {});
    AlarmHistory history(store, [](const std::string&) {});
    AlarmCapture capture(loop, desk, book, rows, history);
    // The queue of the loop takes memory for some tasks at a time.
    for (int turn = 1; turn <= 40; ++turn) {
      faults::CountAllocations(static_cast<std::size_t>(1 + turn % 5));
      try {
        static_cast<void>(capture.Take(1, {"FAKE"}, {}));
      } catch (const std::bad_alloc&) {
      }
      faults::StopCountingAllocations();
      static_cast<void>(capture.Take(2, {"FAKE"}, {}));
      RunATurn(loop, agent);
      if (asked != turn) {
        throw std::runtime_error("nothing is asked for in turn " + std::to_string(turn));
      }
    }
  }));
}

TEST(LoopMemoryTest, ALargeAnswerSoonAfterAnotherIsGivenBackWithoutAThird) {
  EXPECT_TRUE(faults::RunInChild([] {
    PublishFakeRecords();
    EventLoop loop;
    FakeAgent agent;
    agent.onBatch = [](CMBMultipleRecordRequestEvent& batch) {
      for (int row = 0; row < 2000; ++row) {
        batch.m_events.at(0)->m_records.push_back(new FakeRecord(1));
      }
      return kNotifyDone;
    };
    BatchDesk desk(loop, std::chrono::milliseconds(100));
    const std::vector askers{
        std::make_shared<RecordAsker>("FAKE", '4', RecordAsker::Look::kOnDemand, false)};
    for (int answer = 0; answer < 2; ++answer) {
      desk.Send(agent, askers, 0);
      desk.ReleaseMemory();
    }
    const int atOnce = g_trims;
    LoopTimer end(loop);
    end.After(std::chrono::milliseconds(300), [] { EventLoop::RequestStop(); });
    loop.Run(agent);
    if (atOnce != 1 || g_trims != 2) {
      throw std::runtime_error("the second answer is kept");
    }
  }));
}

TEST(LoopMemoryTest, AScheduleGoesOnAfterABatchWithoutMemory) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    PublishFakeRecords();
    EventLoop loop;
    FakeAgent agent;
    BatchDesk desk;
    PoorSink sink;
    ScheduleBook book(loop, desk, sink);
    book.Load("./qmtagt.ini", {{"FAKE", "1", 1}}, [](const std::string&) {});
    book.Start();
    RunLoop(loop, agent);
    if (sink.batches != 2 || sink.abandoned != 1 || sink.ended != 1) {
      throw std::runtime_error("no second batch, or the first one has not been abandoned");
    }
  }));
}

}  // namespace
