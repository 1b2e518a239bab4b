// walk_probe HOST-ROOT TIMES
//
// Walks the processes of a host root as collections do, one after another, for a test that counts
// what this costs.

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "collect/process/ProcessSourceLINUX.h"
#include "support/HostPaths.h"
#include "support/Switches.h"
#include "support/UtlError.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: walk_probe HOST-ROOT TIMES\n", stderr);
    return 2;
  }
  SetHostRoot(argv[1]);
  g_msgLogLevel = 10;
  std::vector<Process> rows;
  for (int times = std::atoi(argv[2]); times > 0; --times) {
    ProcessSourceUser source;
    const UtlErrorPtr error(source.readAll(nullptr, rows));
    if (error != nullptr) {
      std::fprintf(stderr, "walk_probe: %s\n", error->GetMessage());
      return 1;
    }
  }
  std::printf("%zu\n", rows.size());
  return 0;
}
