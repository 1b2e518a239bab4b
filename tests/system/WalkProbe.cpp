// walk_probe HOST-ROOT PROFILE TIMES
//
// Walks the processes of a host root as collections do, one after another, for a test that counts
// what this costs.

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "collect/modern/process/ProcessSource.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"
#include "support/Switches.h"
#include "support/UtlError.h"

namespace {

template <class Source>
int Walk(int times) {
  std::vector<Process> rows;
  for (; times > 0; --times) {
    Source source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    if (error != nullptr) {
      std::fprintf(stderr, "walk_probe: %s\n", error->GetMessage());
      return 1;
    }
  }
  std::printf("%zu\n", rows.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::optional<HostProfile> profile = argc == 4 ? HostProfileOf(argv[2]) : std::nullopt;
  if (!profile) {
    std::fputs("usage: walk_probe HOST-ROOT classic|modern TIMES\n", stderr);
    return 2;
  }
  SetHostRoot(argv[1]);
  g_msgLogLevel = 10;
  const int times = std::atoi(argv[3]);
  return profile == HostProfile::kModern ? Walk<ModernProcessSource>(times)
                                         : Walk<ProcessSourceUser>(times);
}
