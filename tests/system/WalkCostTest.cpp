#include <cstdio>

#include "tests/scripted/ProcessTree.h"
#include "tests/support/TempFolder.h"

// What a process costs the walk: what a second walk adds to the first one, shared by the processes.
// Neither figure depends on the machine's speed or load.

namespace {

constexpr int kProcesses = 500;

/// What a process may cost the walk of a profile.
struct WalkCost {
  const char* profile;
  std::map<std::string, int> calls;
  double instructions;
};
void PrintTo(const WalkCost& cost, std::ostream* out) { *out << cost.profile; }

class WalkCostTest : public ::testing::TestWithParam<WalkCost> {
 protected:
  void SetUp() override {
    m_host.Write("/proc/stat", "btime 1700000000\n");
    process_tree::ProcessFigures process;
    process.name = "postgres";
    process.commandLine = "/usr/lib/postgresql/bin/postgres -D /var/lib/postgresql/main";
    process.uid = 114;
    process.userTicks = 123'456;
    process.startTicks = 1'234'567;
    process.sizePages = 54'321;
    process.residentPages = 6'543;
    for (process.pid = 10'000; process.pid < 10'000 + kProcesses; ++process.pid) {
      m_host.AddProcess(process);
      m_host.Write("/proc/" + std::to_string(process.pid) + "/io",
                   "rchar: 123456789\nwchar: 23456789\nsyscr: 345678\nsyscw: 45678\n"
                   "read_bytes: 56789\nwrite_bytes: 67890\ncancelled_write_bytes: 0\n");
    }
  }

  /// Walks `times` times below a tool whose report goes into a file, and gives that file's text.
  [[nodiscard]] std::string ReportOf(const std::string& tool, int times) const {
    const std::string report = m_reports.Path() / "report";
    const std::string rows = m_reports.Path() / "rows";
    const std::string command = tool + report + " " WALK_PROBE " " + m_host.Path("/").string() +
                                ' ' + GetParam().profile + ' ' + std::to_string(times) + " >" +
                                rows;
    EXPECT_EQ(std::system(command.c_str()), 0) << command << "\nis the tool installed?";
    EXPECT_EQ(m_reports.Read("rows"), std::to_string(kProcesses) + '\n');
    return m_reports.Read("report");
  }

  process_tree::HostTree m_host;
  TempFolder m_reports;
};

using Calls = std::map<std::string, int>;

TEST_P(WalkCostTest, AProcessCostsTheCallsOfItsFiles) {
  const auto count = [&](int times) {
    Calls calls;
    std::istringstream report(ReportOf("strace -o ", times));
    for (std::string line; std::getline(report, line);) {
      ++calls[line.substr(0, line.find('('))];
    }
    return calls;
  };
  Calls once = count(1);
  Calls each;
  for (const auto& [name, calls] : count(2)) {
    // What a walk needs but once vanishes in the whole quotient.
    if (const int added = (calls - once[name]) / kProcesses; added != 0) {
      each[name] = added;
    }
  }
  EXPECT_EQ(each, GetParam().calls);
}

TEST_P(WalkCostTest, AProcessCostsFewInstructions) {
  const auto count = [&](int times) {
    const std::string report =
        ReportOf("valgrind --tool=callgrind --callgrind-out-file=/dev/null --log-file=", times);
    const std::size_t place = report.find("Collected : ");
    return place == std::string::npos ? 0.0 : std::stod(report.substr(place + 12));
  };
  const double each = (count(2) - count(1)) / kProcesses;
  EXPECT_LE(each, GetParam().instructions);
  // Fewer than the texts have bytes cannot be: the walk was not counted.
  EXPECT_GE(each, 1'000);
  RecordProperty("instructions", std::to_string(each));
}

INSTANTIATE_TEST_SUITE_P(
    Profiles, WalkCostTest,
    ::testing::Values(
        WalkCost{"classic",
                 {{"close", 4}, {"newfstatat", 2}, {"openat", 4}, {"read", 4}, {"readlinkat", 2}},
                 10'000},
        WalkCost{"modern", {{"close", 5}, {"openat", 5}, {"read", 5}}, 12'000}),
    [](const auto& test) { return std::string(test.param.profile); });

}  // namespace
