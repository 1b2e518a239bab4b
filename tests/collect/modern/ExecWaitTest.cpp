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

TEST_F(ExecWaitTest, AProcessThatWaitsWithoutProgramIsNotAskedForMore) {
  m_host.Write("/proc/stat", "btime 1700000000\n");
  struct Case {
    const char* statm;
    char state;
    bool isRow;
  };
  const Case cases[] = {
      {"40 1 0 0 0 40 0\n", 'S', false},  // a stack alone
      {"40 1 0 0 0 40 0\n", 'D', false}, {"40 1 0 0 0 40 0\n", 'R', true},
      {"40 1 0 1 0 40 0\n", 'S', true},  {"40 1 0 0 0 39 0\n", 'S', true},
      {"40 1 0 0 0 0 0\n", 'S', true},   {"0 0 0 0 0 0 0\n", 'S', true},
  };
  process_tree::ProcessFigures process;
  process.name = "one";
  process.pid = 20;
  for (const Case& test : cases) {
    SCOPED_TRACE(std::string(test.statm) + test.state);
    ++process.pid;
    m_host.AddProcess(process);
    const std::string folder = "/proc/" + std::to_string(process.pid);
    m_host.Write(folder + "/statm", test.statm);
    m_host.Write(folder + "/status", std::string("Name:\tone\nState:\t") + test.state + " (x)\n");
    std::vector<ProcessDetail> details;
    ReadProcessDetails(details);
    EXPECT_EQ(details.size(), test.isRow ? 1U : 0U);
    if (!test.isRow) {
      m_host.Remove(folder + "/stat");
    }
    EXPECT_EQ(ReadProcesses<ModernProcessSource>().size(), test.isRow ? 1U : 0U);
    EXPECT_EQ(ModernProcessSource::Skipped(), test.isRow ? 0U : 1U);
    EXPECT_TRUE(
        ScriptedNode::Instance()
            .LinesWith("The file of a process can't be read. (en=2, arg1=" + folder + "/stat)")
            .empty())
        << "it was looked for";
    m_host.Remove(folder);
  }
}

TEST_F(ExecWaitTest, WaitsOnceAndNotForLong) {
  const auto began = std::chrono::steady_clock::now();
  ExecWait wait;
  int asked = 0;
  EXPECT_TRUE(wait.HasLeft(1, [&] { return ++asked < 3; }));
  EXPECT_EQ(asked, 3);
  const auto isStillIn = [&] {
    ++asked;
    return true;
  };
  EXPECT_FALSE(wait.HasLeft(2, isStillIn));
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
