#include "collect/modern/process/ExecWait.h"

#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessSource.h"
#include "tests/collect/CollectFixture.h"
#include "tests/collect/ProcessRows.h"

namespace {

class ExecWaitTest : public CollectFixture {
 protected:
  process_tree::HostTree m_host;
};

TEST_F(ExecWaitTest, AProcessWithoutProgramIsNotAskedForMore) {
  m_host.Write("/proc/stat", "btime 1700000000\n");
  struct Case {
    const char* statm;
    bool isRow;
  };
  const Case cases[] = {
      {"40 1 0 0 0 40 0\n", false},  // a stack alone
      {"40 1 0 1 0 40 0\n", true},  {"40 1 0 0 0 39 0\n", true}, {"40 1 0 0 0 0 0\n", true},
      {"0 0 0 0 0 0 0\n", true},    {"40 1 0\n", true},          {"", true},
  };
  process_tree::ProcessFigures process;
  process.name = "one";
  process.pid = 20;
  for (const Case& test : cases) {
    SCOPED_TRACE(test.statm);
    ++process.pid;
    m_host.AddProcess(process);
    const std::string folder = "/proc/" + std::to_string(process.pid);
    m_host.Write(folder + "/statm", test.statm);
    EXPECT_EQ(ReadProcesses<ModernProcessSource>().size(), test.isRow ? 1U : 0U);
    EXPECT_EQ(ModernProcessSource::Skipped(), test.isRow ? 0U : 1U);
    std::vector<ProcessDetail> details;
    ReadProcessDetails(details);
    EXPECT_EQ(details.size(), test.isRow ? 1U : 0U);
    m_host.Remove(folder);
  }
}

TEST_F(ExecWaitTest, WaitsOnceAndNotForLong) {
  ExecWait wait;
  int asked = 0;
  EXPECT_TRUE(wait.HasLeft(1, [&] { return ++asked < 3; }));
  EXPECT_EQ(asked, 3);
  const auto isStillIn = [&] {
    ++asked;
    return true;
  };
  const auto began = std::chrono::steady_clock::now();
  EXPECT_FALSE(wait.HasLeft(2, isStillIn));
  EXPECT_EQ(asked, 3 + ExecWait::kLongest.count());
  EXPECT_FALSE(wait.HasLeft(2, isStillIn)) << "it was waited for";
  EXPECT_EQ(asked, 3 + ExecWait::kLongest.count());
  for (int pid = 3; pid < 20; ++pid) {
    EXPECT_FALSE(wait.HasLeft(pid, isStillIn));
  }
  // A machine that sleeps longer has other seconds.
  if (std::chrono::steady_clock::now() - began < std::chrono::seconds(1)) {
    EXPECT_EQ(asked, ExecWait::kLongestInAll.count());
  }
}

}  // namespace
