#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include "process/WorkgroupMap.h"

namespace {

constexpr int kItems = 10;

/// Workgroups of ten items each, of all kinds, that take few processes: each is asked to the end.
WgMap MakeMap(int workgroups) {
  WgMap map;
  for (int i = 0; i < workgroups; ++i) {
    const std::string number = std::to_string(i);
    auto group = std::make_unique<WorkGroup>(("group" + number).c_str());
    group->AddUsers(("user" + number).c_str(), false);
    group->AddUsers(("team" + number + ".*").c_str(), true);
    group->AddGroups(("staff" + number).c_str(), false);
    group->AddGroups02(("staff " + number).c_str(), false);
    group->AddPrograms(("program" + number).c_str(), false);
    group->AddPrograms(("tool" + number).c_str(), false);
    group->AddPrograms(("^prog[a-z]*" + number + "$").c_str(), true);
    group->AddPrograms02(("^tool(s|box)" + number + "$/i").c_str(), true);
    group->AddArguments02(("/opt/tool " + number).c_str(), false);
    group->AddArguments02(("--instance=" + number + "( |$)").c_str(), true);
    map[group->Name()] = std::move(group);
  }
  map[kOtherWorkgroup] = std::make_unique<WorkGroup>(kOtherWorkgroup);
  return map;
}

std::vector<Process> MakeProcesses(int count) {
  std::vector<Process> processes(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    Process& process = processes[static_cast<std::size_t>(i)];
    process.pid = i + 1;
    process.startTime.seconds = 1'700'000'000;
    process.euid = process.egid = i % 40;
    const std::string number = std::to_string(i % 200);
    const std::string arguments = "/opt/program/bin/program --verbose --instance=" + number;
    ("program" + number).copy(process.x_proc::name.data(), 15);
    arguments.copy(process.cmdline.data(), process.cmdline.size());
  }
  return processes;
}

/// One pass over all processes, which were there before.
class Pass {
 public:
  Pass(int workgroups, int processes)
      : m_map(MakeMap(workgroups)), m_processes(MakeProcesses(processes)) {
    for (const Process& process : m_processes) {
      m_current.push_back(&process);
    }
  }
  void Run() { UpdateWgMap(m_current, m_processes, m_map, m_names, ProcessRulesOf(g_hostProfile)); }

  /// The least of five, in seconds of CPU time.
  double Time() {
    double least = 1e9;
    for (int i = 0; i < 5; ++i) {
      const std::clock_t begin = std::clock();
      Run();
      least = std::min(least, static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC);
    }
    return least;
  }

 private:
  WgMap m_map;
  std::vector<Process> m_processes;
  std::vector<const Process*> m_current;
  BatchNames m_names;
};

/// Workgroups, processes.
void AssignProcesses(benchmark::State& state) {
  const auto workgroups = static_cast<int>(state.range(0));
  const auto processes = static_cast<int>(state.range(1));
  Pass pass(workgroups, processes);
  for (auto _ : state) {
    pass.Run();
  }
  const auto perSecond = benchmark::Counter::kIsIterationInvariantRate;
  const auto seconds =
      static_cast<benchmark::Counter::Flags>(perSecond | benchmark::Counter::kInvert);
  state.counters["s/process"] = benchmark::Counter(processes, seconds);
  state.counters["s/item/process"] =
      benchmark::Counter(static_cast<double>(processes) * workgroups * kItems, seconds);
}
BENCHMARK(AssignProcesses)
    ->Args({64, 5000})
    ->Args({16, 5000})
    ->Args({64, 1250})
    ->Args({1, 5000})
    ->Unit(benchmark::kMillisecond);

/// Fails if four times the workgroups with four times the processes take much more than 16 times as
/// long.
void AssignProcessesGrowth(benchmark::State& state) {
  Pass small(16, 1250);
  Pass large(64, 5000);
  for (auto _ : state) {
    const double growth = large.Time() / small.Time() / 16;
    state.counters["growth"] = growth;
    if (growth > 1.5) {
      state.SkipWithError("the work grows faster than items times processes");
      return;
    }
  }
}
BENCHMARK(AssignProcessesGrowth)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
