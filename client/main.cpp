#include <csignal>
#include <exception>
#include <iostream>

#include "client/CommandLine.h"
#include "client/Errors.h"

namespace {

int RunGuarded(const CommandLine& line) {
  try {
    return line.run();
  } catch (const OutputClosed&) {
    return kExitDone;
  } catch (const UsageError& error) {
    Complain(error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    Complain(error.what());
    return kExitFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  CommandLine line;
  CLI::App app("Talks to the monitoring daemon qmtdmon", "qmtctl");
  BuildCommands(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      Complain(error.what());
      std::cerr << "Run with --help for more information.\n";
      return kExitUsage;
    }
    static_cast<void>(app.exit(error));
    if (!std::cout.flush()) {
      Complain("cannot write the output");
      return kExitFailed;
    }
    return kExitDone;
  }
  return RunGuarded(line);
}
