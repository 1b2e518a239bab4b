#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "collect/ProcLib.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/UtlError.h"
#include "tests/scripted/ProcessTree.h"

namespace {

/// Walks all processes as one collection does; the counters say what one process costs.
void Walk(benchmark::State& state) {
  ProcLib::ResetCaches();
  std::vector<Process> rows;
  double processes = 0.0;
  for (auto _ : state) {
    ProcessSourceUser source;
    if (const UtlErrorPtr error(source.readAll(nullptr, rows)); error != nullptr) {
      state.SkipWithError(error->GetMessage());
      return;
    }
    processes += static_cast<double>(rows.size());
  }
  state.counters["processes"] = benchmark::Counter(processes, benchmark::Counter::kAvgIterations);
  state.counters["seconds_per_process"] =
      benchmark::Counter(processes, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void WalkLiveProc(benchmark::State& state) {
  SetHostRoot("");
  Walk(state);
}
BENCHMARK(WalkLiveProc)->Unit(benchmark::kMillisecond)->UseRealTime();

void WalkThousandProcesses(benchmark::State& state) {
  const process_tree::HostTree host;
  host.Write("/proc/stat", "btime 1714521600\n");
  if (host.AddProcesses(QMT_FIXTURES "/manifests/thousand-processes.txt") != 1000) {
    state.SkipWithError("the manifest does not make 1,000 processes");
    return;
  }
  Walk(state);
}
BENCHMARK(WalkThousandProcesses)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
