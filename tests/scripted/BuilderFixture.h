#pragma once

#include "collect/Collector.h"
#include "collect/process/NameCache.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

/// A collector that a test fills, a record builder on it, and a clock that stands still. What a
/// test changes of the switches and of the calls of the system is as before after it.
class BuilderFixture : public ::testing::Test {
 protected:
  BuilderFixture() {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    s_now = 1'700'000'000;
    Os().time = [](std::time_t*) { return s_now; };
    Os().clock_gettime = [](clockid_t, timespec*) { return -1; };  // that of the day stands in
    ClearUserNames();
    ClearGroupNames();
  }
  ~BuilderFixture() override {
    Os() = m_realCalls;
    g_msgLogLevel = m_realLevel;
    ClearUserNames();
    ClearGroupNames();
    g_hostProfile = HostProfile::kClassic;
    g_kernelVariant = kNewestKernel;
  }
  /// The rows of an answer, which becomes the previous one of the asker's next.
  template <class Row>
  std::vector<Row> BuildBy(RecordBuilderFunction builder, Asker& asker) {
    const UtlErrorPtr error((m_builder.*builder)(&asker.event, asker.event.m_requests.front()));
    EXPECT_EQ(error, nullptr);
    std::vector<Row> rows = asker.Rows<Row>();
    asker.NextAnswer();
    return rows;
  }

  inline static std::time_t s_now = 0;
  const OsCalls m_realCalls = Os();
  const int m_realLevel = g_msgLogLevel;
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
};
