#include "client/looks/ProcessLooks.h"

#include <cmath>

#include "client/ask/Errors.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::chrono_literals;

Json Process(int pid, int start, double cpu, int memory, double kbytes, int faults) {
  return {{"Record Time", 1000},
          {"PID", pid},
          {"Program", "p" + std::to_string(pid)},
          {"User", "root"},
          {"Start Time", start},
          {"User CPU", cpu / 2},
          {"System CPU", cpu / 2},
          {"Major Faults", faults},
          {"Real Mem Kbytes", memory},
          {"Virtual Mem Kbytes", 2 * memory},
          {"State", "RUN"},
          {"Total I/O Ops", 0},
          {"Total I/O Kbytes", kbytes},
          {"Argument List", ""}};
}

TEST(ProcessLooks, DifferencesRankTheProcesses) {
  ProcessLooks looks;
  const ProcessLooks::TimePoint start{};
  std::vector<ProcessLine> lines = looks.Add(
      {Process(1, 900, 50, 10, 5, 1), Process(2, 980, 5, 30, 9, 1), Process(3, 1000, 1, 20, 0, 0)},
      start);
  EXPECT_DOUBLE_EQ(lines.at(0).cpuPercent, 50);
  EXPECT_DOUBLE_EQ(lines.at(1).cpuPercent, 25);
  EXPECT_DOUBLE_EQ(lines.at(2).cpuPercent, 0) << "no age to divide by";

  // 1 goes on, 2 has a new start, 3 is gone, 4 is new, 5 was missed before.
  lines = looks.Add({Process(1, 900, 51, 10, 5, 4), Process(2, 999, 1.5, 30, 9, 0),
                     Process(4, 1000, 0.5, 40, 0, 7), Process(5, 900, 10, 1, 0, 0)},
                    start + 2s);
  const double percents[] = {50, 75, 25, 10};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_DOUBLE_EQ(lines[i].cpuPercent, percents[i]) << i;
  }
  const struct {
    TopOrder order;
    std::vector<int> pids;
  } cases[] = {{TopOrder::kCpu, {2, 1, 4, 5}},
               {TopOrder::kMemory, {4, 2, 1, 5}},
               {TopOrder::kIo, {2, 4, 1, 5}}};
  for (const auto& entry : cases) {
    Rank(lines, entry.order);
    std::vector<int> pids;
    for (const ProcessLine& line : lines) {
      pids.push_back(static_cast<int>(line.pid));
    }
    EXPECT_EQ(pids, entry.pids);
  }
  // Totals that went backwards, and what the host does not tell, tell nothing.
  Json row = Process(1, 900, 40, 10, 1, 0);
  row["Total I/O Ops"] = nullptr;
  lines = looks.Add(Json::Array({row}), start + 3s);
  EXPECT_DOUBLE_EQ(lines.at(0).cpuPercent, 0);
  for (const double figure :
       {lines.at(0).newIoKbytes, lines.at(0).newIoOps, lines.at(0).newMajorFaults}) {
    EXPECT_TRUE(std::isnan(figure)) << figure;
  }
  lines.resize(2);
  lines[1].newIoOps = 1;
  Rank(lines, TopOrder::kIo);
  EXPECT_EQ(lines[0].newIoOps, 1) << "what is not told is the least";
}

TEST(ProcessLooks, SharesAreFiniteWhateverTheTotals) {
  ProcessLooks looks;
  Json row = Process(1, 900, 2e307, 1, 1, 1);
  for (const double cpu : {1e308, 1e308, 1e306}) {
    const ProcessLooks::TimePoint at{};
    row["User CPU"] = row["System CPU"] = cpu;
    EXPECT_TRUE(std::isfinite(looks.Add(Json::Array({row}), at + 1s).at(0).cpuPercent)) << cpu;
    EXPECT_TRUE(std::isfinite(looks.Add(Json::Array({row}), at + 2s).at(0).cpuPercent)) << cpu;
  }
}

TEST(ProcessLooks, ABrokenRowIsNamed) {
  for (const char* label : {"PID", "User CPU", "Program"}) {
    Json row = Process(1, 900, 1, 1, 1, 1);
    row[label] = nullptr;
    EXPECT_THROW((void)ProcessLooks().Add(Json::Array({row}), {}), ClientError) << label;
    row.Erase(label);
    EXPECT_THROW((void)ProcessLooks().Add(Json::Array({row}), {}), ClientError) << label;
  }
  EXPECT_THROW((void)ProcessLooks().Add(Json::Array({Process(-1, 900, 1, 1, 1, 1)}), {}),
               ClientError);
}

}  // namespace
