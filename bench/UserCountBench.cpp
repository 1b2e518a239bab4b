#include <benchmark/benchmark.h>

#include "collect/system/SystemSourceLINUX.h"
#include "tests/scripted/ProcessTree.h"

namespace {

/// Counts the users of all processes as one collection does.
void Count(benchmark::State& state) {
  unsigned int users = 0;
  for (auto _ : state) {
    SystemSourceUser source;
    if (source.CountUser(&users) != 0) {
      state.SkipWithError("a process has ended meanwhile");
      return;
    }
  }
  state.counters["users"] = benchmark::Counter(users);
}

void CountUsersLiveProc(benchmark::State& state) {
  SetHostRoot("");
  Count(state);
}
BENCHMARK(CountUsersLiveProc)->Unit(benchmark::kMillisecond)->UseRealTime();

void CountUsersThousandProcesses(benchmark::State& state) {
  const process_tree::HostTree host;
  if (host.AddProcesses(QMT_FIXTURES "/manifests/thousand-processes.txt") != 1000) {
    state.SkipWithError("the manifest does not make 1,000 processes");
    return;
  }
  Count(state);
}
BENCHMARK(CountUsersThousandProcesses)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
