#include <csignal>

#include "client/CommandLine.h"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  return RunCommandLine(argc, argv);
}
