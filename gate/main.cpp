#include <getopt.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "gate/Gate.h"
#include "gate/GateLog.h"
#include "gate/GateRights.h"
#include "support/HostPaths.h"

namespace {

constexpr int kUsageExit = 2;
constexpr const char* kUsage =
    "usage: qmt_gate [--control SOCKET] [--user NAME] [--child]\n"
    "Serves metrics, the interface and the console of the daemon qmtdmon by HTTP.\n"
    "  --control SOCKET  the daemon's control socket\n"
    "  --user NAME       whom to become where it is started by root\n"
    "  --child           the daemon has started it, and it ends with the daemon\n";

struct Options {
  std::string control = ProductPath("/opt/qmtrx/mond/agent/run/control.sock");
  std::string user;
  bool isChild = false;
};

/// The exit value where there is nothing more to do, else -1.
int ReadOptions(int count, char** words, Options& options) {
  static const std::array kOptions{::option{"control", required_argument, nullptr, 'c'},
                                   ::option{"user", required_argument, nullptr, 'u'},
                                   ::option{"child", no_argument, nullptr, 'C'},
                                   ::option{"help", no_argument, nullptr, 'h'},
                                   ::option{"version", no_argument, nullptr, 'v'},
                                   ::option{nullptr, 0, nullptr, 0}};
  for (int found = 0; (found = ::getopt_long(count, words, "", kOptions.data(), nullptr)) != -1;) {
    switch (found) {
      case 'c':
        options.control = ::optarg;
        break;
      case 'u':
        options.user = ::optarg;
        break;
      case 'C':
        options.isChild = true;
        break;
      case 'h':
        std::fputs(kUsage, stdout);
        return 0;
      case 'v':
        std::puts("qmt_gate " QMT_VERSION);
        return 0;
      default:
        std::fputs(kUsage, stderr);
        return kUsageExit;
    }
  }
  if (::optind != count) {
    std::fputs(kUsage, stderr);
    return kUsageExit;
  }
  return -1;
}

}  // namespace

int main(int count, char** words) {
  Options options;
  if (const int value = ReadOptions(count, words, options); value >= 0) {
    return value;
  }
  try {
    std::signal(SIGPIPE, SIG_IGN);
    std::string error;
    if (!GiveUpRights(options.user, error)) {
      GateLog(error);
      return 1;
    }
    // A change of the identity takes the wish back, so it is told now.
    if (options.isChild && !EndWithParent()) {
      return 0;
    }
    return Gate(options.control, options.isChild).Run();
  } catch (const std::exception& error) {
    GateLog(error.what());
    return 1;
  }
}
