#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <stdexcept>

#include "io/LoopTimer.h"
#include "local/loop/EventLoop.h"
#include "local/schedule/ScheduleBook.h"
#include "tests/faults/KilledChild.h"
#include "tests/local/FakeAgent.h"

namespace {

/// Runs the loop until a stop is asked for, or for ten seconds.
void RunLoop(EventLoop& loop) {
  LoopTimer limit(loop);
  limit.After(std::chrono::seconds(10), [] { EventLoop::RequestStop(); });
  FakeAgent agent;
  loop.Run(agent);
}

TEST(LoopMemoryTest, ATaskThatEndsForWantOfMemoryFailsThoseWhoWait) {
  EventLoop loop;
  int told = 0;
  int failed = 0;
  loop.OnNoMemory([&] { ++told; });
  LoopTask task;
  task.run = [](CMBNode&) { throw std::bad_alloc(); };
  task.fail = [&] {
    ++failed;
    EventLoop::RequestStop();
  };
  loop.Post(std::move(task));
  RunLoop(loop);
  EXPECT_EQ(told, 1);
  EXPECT_EQ(failed, 1);
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

TEST(LoopMemoryTest, AScheduleGoesOnAfterABatchWithoutMemory) {
  // The records are those of the child alone.
  EXPECT_TRUE(faults::RunInChild([] {
    PublishFakeRecords();
    EventLoop loop;
    BatchDesk desk;
    PoorSink sink;
    ScheduleBook book(loop, desk, sink);
    book.Load("./qmtagt.ini", {{"FAKE", "1", 1}}, [](const std::string&) {});
    book.Start();
    RunLoop(loop);
    if (sink.batches != 2 || sink.abandoned != 1 || sink.ended != 1) {
      throw std::runtime_error("no second batch, or the first one has not been abandoned");
    }
  }));
}

}  // namespace
