#include <getopt.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>

#include "gate/Gate.h"
#include "gate/GateLog.h"
#include "gate/GateRights.h"
#include "gate/PushTrial.h"
#include "support/HostPaths.h"

#if defined(QMT_ADDRESS_SANITIZER)
/// The check for leaks traces its own process, which this one may not.
extern "C" const char* __lsan_default_options() { return "detect_leaks=0"; }
#endif

namespace {

constexpr int kUsageExit = 2;
constexpr const char* kUsage =
    "usage: qmt_gate [--control SOCKET] [--user NAME] [--state FOLDER] [--child PID]\n"
    "       qmt_gate --push-test [--push NAME] [--control SOCKET] [--user NAME]\n"
    "Serves metrics, the interface and the console of the daemon qmtdmon by HTTP, and pushes.\n"
    "  --control SOCKET  the daemon's control socket\n"
    "  --user NAME       whom to become where it is started by root\n"
    "  --state FOLDER    where it keeps how far pushes have got; it may write there alone\n"
    "  --push-test       sends an empty request to each target of pushes and prints what it says\n"
    "  --push NAME       to that target alone\n"
    "  --child PID       the daemon, which is that process, has started it; it ends with the "
    "daemon\n";

struct Options {
  std::string control = ProductPath("/opt/qmtrx/mond/agent/run/control.sock");
  std::string user;
  std::string state;
  std::string push;  ///< the target to test, empty for all
  bool isPushTest = false;
  pid_t parent = 0;  ///< the daemon's process where that has started it, else 0
};

bool ReadPid(std::string_view text, pid_t& pid) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  return error == std::errc{} && end == text.data() + text.size() && pid > 0;
}

/// Each address may have some hundred readers.
void RaiseOpenFiles() {
  ::rlimit files{};
  if (::getrlimit(RLIMIT_NOFILE, &files) == 0) {
    constexpr rlim_t kEnough = 8192;
    files.rlim_cur = std::min(files.rlim_max, kEnough);
    ::setrlimit(RLIMIT_NOFILE, &files);
  }
}

/// The exit value where there is nothing more to do, else -1.
int ReadOptions(int count, char** words, Options& options) {
  static const std::array kOptions{::option{"control", required_argument, nullptr, 'c'},
                                   ::option{"user", required_argument, nullptr, 'u'},
                                   ::option{"state", required_argument, nullptr, 's'},
                                   ::option{"push-test", no_argument, nullptr, 'T'},
                                   ::option{"push", required_argument, nullptr, 'p'},
                                   ::option{"child", required_argument, nullptr, 'C'},
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
      case 's':
        options.state = ::optarg;
        break;
      case 'T':
        options.isPushTest = true;
        break;
      case 'p':
        options.push = ::optarg;
        break;
      case 'C':
        if (!ReadPid(::optarg, options.parent)) {
          std::fputs(kUsage, stderr);
          return kUsageExit;
        }
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
  if (::optind != count || (!options.push.empty() && !options.isPushTest)) {
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
    RaiseOpenFiles();
    std::string error;
    if (::geteuid() == 0 && options.user.empty()) {
      GateLog("root is not to face the network: --user names whom to become");
      return 1;
    }
    if (!GiveUpRights(options.user, options.state, error)) {
      GateLog(error);
      return 1;
    }
    if (options.isPushTest) {
      return TestPushes(options.control, options.push);
    }
    // A change of the identity takes the wish back, so it is told now.
    if (options.parent != 0 && !EndWithParent(options.parent)) {
      GateLog("the daemon has ended");
      return 0;
    }
    return Gate(options.control, options.parent != 0, options.state).Run();
  } catch (const std::exception& error) {
    GateLog(error.what());
    return 1;
  }
}
