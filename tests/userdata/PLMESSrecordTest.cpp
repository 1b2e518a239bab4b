#include <cstdio>
#include <numeric>

#include "collect/log/MessagesSource.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "support/OsCalls.h"
#include "support/Switches.h"
#include "tests/scripted/Batch.h"
#include "tests/scripted/DumpedLines.h"
#include "tests/scripted/ScriptedNode.h"
#include "tests/support/Testing.h"

namespace {

constexpr tagPQLAUI kScheduled{};
constexpr tagPQLAUI kRates{.realtime = 1, .calcRates = 1};

class PLMESSrecordTest : public ::testing::Test {
 protected:
  PLMESSrecordTest() {
    ScriptedNode::Reset();
    g_msgLogLevel = 30;
    Os().time = [](std::time_t*) -> std::time_t { return 1'700'000'000; };
  }
  ~PLMESSrecordTest() override { Os() = m_realCalls; }

  /// The list of a collection: messages with these serial numbers, 0 for a line without one.
  void Collected(const std::vector<std::uint32_t>& serials) {
    std::vector<Messages>& list = *m_collector.GetMessages();
    list.assign(serials.size(), {});
    for (std::size_t i = 0; i < serials.size(); ++i) {
      list[i].id = serials[i];
      std::snprintf(list[i].text.data(), list[i].text.size(), "%u", serials[i]);
    }
  }
  /// The serial numbers that an asker gets.
  std::vector<std::uint32_t> Ask(Asker& asker) {
    asker.NextAnswer();
    EXPECT_EQ(m_builder.BuildPL_MESS(&asker.event, &asker.request), nullptr);
    std::vector<std::uint32_t> serials;
    for (const CMBRecord* record : asker.event.m_records) {
      const auto& row = *static_cast<const recordPL_MESS*>(record->GetRecStart());
      EXPECT_STREQ(row.recordType.c_str(), "MESS");
      EXPECT_EQ(row.recordTime, 1'700'000'000);
      EXPECT_EQ(row.interval, 0);
      serials.push_back(static_cast<std::uint32_t>(std::stoul(row.messageText.c_str())));
    }
    return serials;
  }
  static std::vector<std::uint32_t> Range(std::uint32_t first, std::uint32_t last) {
    std::vector<std::uint32_t> range(last + 1 - first);
    std::iota(range.begin(), range.end(), first);
    return range;
  }

  OsCalls m_realCalls = Os();
  Collector m_collector;
  RecordBuilder m_builder{nullptr, &m_collector, "pipe"};
};

TEST_F(PLMESSrecordTest, EachRequestGetsEachMessageOnce) {
  Asker early("MESS", '7', kScheduled);
  Asker late("MESS", '7', kScheduled);
  Asker look("MESS", '7', kRates);
  Collected(Range(1, 60));
  {
    const DumpedLines dumped;
    EXPECT_EQ(Ask(early), Range(1, 60));
    EXPECT_EQ(dumped.Count(), 61U) << "labels and rows";
  }
  EXPECT_EQ(Ask(early), Range(1, 0));
  EXPECT_EQ(Ask(late), Range(11, 60));
  // A line that no filter took comes first, and does not hold the others up.
  Collected({0, 63, 0, 64});
  EXPECT_EQ(Ask(late), Range(63, 64));
  EXPECT_EQ(ScriptedNode::Instance().LinesWith("PLMESS: NULL Message encountered, ignored.").size(),
            2U);
  EXPECT_EQ(ScriptedNode::Instance().eventTexts.size(), 2U);
  EXPECT_EQ(Ask(early), Range(63, 64));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Ask(look).size(), 50U);
  }
}

}  // namespace
