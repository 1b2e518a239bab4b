#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <new>
#include <stdexcept>
#include <string>

#include "io/LoopTimer.h"
#include "local/loop/DescriptorWatches.h"
#include "local/loop/EventLoop.h"
#include "local/loop/EventTimers.h"
#include "local/schedule/ScheduleBook.h"
#include "support/Descriptor.h"
#include "tests/faults/Allocator.h"
#include "tests/faults/KilledChild.h"
#include "tests/local/FakeAgent.h"

namespace {

/// Runs the loop until a stop is asked for, or for ten seconds.
void RunLoop(EventLoop& loop, FakeAgent& agent) {
  LoopTimer limit(loop);
  limit.After(std::chrono::seconds(10), [] { EventLoop::RequestStop(); });
  loop.Run(agent);
}

void RunLoop(EventLoop& loop) {
  FakeAgent agent;
  RunLoop(loop, agent);
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

TEST(LoopMemoryTest, WhatIsDoneForWantOfMemoryMayWantSomeItself) {
  EventLoop loop;
  std::string order;
  loop.OnNoMemory([&] {
    order += "t";
    throw std::bad_alloc();
  });
  LoopTask poor;
  poor.run = [](CMBNode&) { throw std::bad_alloc(); };
  poor.fail = [&] {
    order += "f";
    throw std::bad_alloc();
  };
  loop.Post(std::move(poor));
  LoopTask last;
  last.run = [](CMBNode&) { EventLoop::RequestStop(); };
  loop.Post(std::move(last));
  EXPECT_NO_THROW(RunLoop(loop));
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
  LoopTask arm;
  arm.run = [](CMBNode&) { faults::CountAllocations(1); };
  loop.Post(std::move(arm));
  RunLoop(loop, agent);
  faults::StopCountingAllocations();
  EXPECT_EQ(told, 1);
  EXPECT_EQ(delivered, 1);
}

TEST(LoopMemoryTest, ADescriptorIsWatchedOnAfterAHandlerWithoutMemory) {
  EventLoop loop;
  DescriptorWatches watches(loop, [](const std::string& text) { ADD_FAILURE() << text; });
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  ASSERT_EQ(::write(writer.Get(), "a", 1), 1);
  ASSERT_EQ(watches.Watch(reader.Get()), 0);
  FakeAgent agent;
  int delivered = 0;
  agent.onSocket = [&](int) {
    if (++delivered == 1) {
      throw std::bad_alloc();
    }
    EventLoop::RequestStop();
  };
  RunLoop(loop, agent);
  EXPECT_EQ(delivered, 2);
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
