#include "collect/Collector.h"

#include <gtest/gtest.h>

#include <set>

#include "collect/CPUSourceLINUX.h"
#include "collect/Categories.h"
#include "collect/CategoryFlags.h"
#include "collect/ProcessSourceLINUX.h"
#include "node/FigureRegistry.h"
#include "tests/collect/CollectFixture.h"

namespace {

double FigureOf(const std::string& name) {
  for (const Figure& figure : FigureRegistry::Instance().Figures()) {
    if (figure.name == name) {
      return figure.read();
    }
  }
  ADD_FAILURE() << "no figure " << name;
  return -1.0;
}

class CollectorTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    Os().get_nprocs = [] { return 4; };
    Os().get_nprocs_conf = [] { return 4; };
    host.CopyFrom(FixturePath("6.1"));
  }
  process_tree::HostTree host;
  Collector collector;
};

TEST_F(CollectorTest, TheTableHoldsAllCategoriesInTheirOrder) {
  std::string names;
  std::uint32_t flags = 0;
  for (const Category& category : Categories()) {
    names += std::string(category.name == nullptr ? "-" : category.name) + ",";
    EXPECT_EQ(flags & category.flag, 0U) << category.figure;
    flags |= category.flag;
  }
  EXPECT_EQ(names,
            "CPU,Process,Protocol,Messages,Device,Semaphore,Shared Memory,IPC,Message Queues,"
            "System,File System,Interface,Quota,Storage,-,NFS Server,NFS Client,UPI,UPIB,UPD,"
            "UPDB,");
  EXPECT_EQ(flags, 0x77E8FAD3U);
}

TEST_F(CollectorTest, BitsThatStartNoCategoryReadNothing) {
  for (const std::uint32_t flags : {0U, COLLECT_ACCT, COLLECT_UFSS, COLLECT_CONTINUE_ON_ERROR}) {
    EXPECT_EQ(collector.collect(flags, 0), nullptr);
  }
  EXPECT_EQ(Lines("Processing"), 0U);
  EXPECT_EQ(Lines("Starting the collect routine"), 4U);
  EXPECT_EQ(Lines("Completed the collect routine"), 4U);
  EXPECT_EQ(Lines("Started the function (Collector::collect). (arg1=0x8000000,"), 1U);
}

TEST_F(CollectorTest, ReplacesWhatIsAskedForAndKeepsTheRest) {
  ASSERT_EQ(collector.collect(COLLECT_CPU | COLLECT_PROCESS, 0), nullptr);
  EXPECT_EQ(collector.GetCPU()->size(), 4U);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  const auto lines = ScriptedNode::Instance().LinesWith("Processing");
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0].text, "Start Processing CPU Category.");
  EXPECT_EQ(lines[3].text, "Completed Processing Process Category.");

  host.Remove("/proc/92");
  ASSERT_EQ(collector.collect(COLLECT_CPU, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  ASSERT_EQ(collector.collect(COLLECT_PROCESS, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 3U);
  EXPECT_EQ(FigureOf("collect_process_entities"), 3.0);
  EXPECT_GT(FigureOf("collect_process_seconds"), 0.0);
  EXPECT_EQ(FigureOf("collect_process_errors"), 0.0);
}

TEST_F(CollectorTest, TheFirstErrorEndsARunUnlessToldOtherwise) {
  host.Remove("/proc/cpuinfo");
  constexpr std::uint32_t kBoth = COLLECT_CPU | COLLECT_PROCESS;
  {
    const UtlErrorPtr error(collector.collect(kBoth, 0));
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->GetMessage(), "Error in calculating CPU types");
  }
  EXPECT_TRUE(collector.GetProcess()->empty());
  EXPECT_EQ(Lines("Completed"), 0U);

  EXPECT_EQ(collector.collect(kBoth | COLLECT_CONTINUE_ON_ERROR, 0), nullptr);
  EXPECT_EQ(collector.GetProcess()->size(), 4U);
  EXPECT_EQ(Lines("Error occured in CPU category collection - Error in calculating CPU types"), 1U);
  EXPECT_EQ(Lines("Completed Processing CPU Category."), 1U);
  EXPECT_EQ(FigureOf("collect_cpu_errors"), 2.0);
}

TEST_F(CollectorTest, ItsFiguresMayBeReadAfterItHasGone) {
  {
    Collector shortLived;
    ASSERT_EQ(shortLived.collect(COLLECT_CPU, 0), nullptr);
  }
  EXPECT_EQ(FigureOf("collect_cpu_entities"), 4.0);
}

}  // namespace
