#include "agent/CaptureMode.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "agent/OpenFilesLimit.h"
#include "agent/Service.h"
#include "agent/Signals.h"
#include "agent/StartOptions.h"
#include "agent/UnixAgent.h"
#include "node/NodeLayer.h"
#include "support/HostProfile.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/Switches.h"

namespace {

constexpr int kWrongWords = 2;
constexpr long kMostSamples = 100'000;
constexpr long kLongestPause = 86'400;
constexpr const char* kNoHelper = "/opt/qmtrx/mond/qmt_hostutil_";

int FailCapture(int exitValue, const std::string& text) {
  std::fprintf(stderr, "qmtdmon: %s\n", text.c_str());
  return exitValue;
}

/// A whole number of a value's text within 1 and `most`; 0 for another.
long ReadCount(std::string_view text, long most) {
  long number = 0;
  const auto [stop, status] = std::from_chars(text.data(), text.data() + text.size(), number);
  return status == std::errc{} && stop == text.data() + text.size() && number <= most && number > 0
             ? number
             : 0;
}

/// Gives what is wrong with the words behind --capture, or nothing.
std::string ReadOrder(int argc, char** argv, CaptureOrder& order) {
  if (argc < 3 || *argv[2] == '\0' || *argv[2] == '-') {
    return "--capture wants the folder of the capture";
  }
  order.folder = argv[2];
  for (int place = 3; place < argc; place += 2) {
    const std::string_view word = argv[place];
    if (word != "--every" && word != "--count" && word != "--profile") {
      return "--capture knows no " + std::string(word);
    }
    if (place + 1 == argc) {
      return std::string(word) + " wants a value";
    }
    const std::string value = argv[place + 1];
    if (word == "--profile") {
      order.profile = value;
      if (!HostProfileOf(value)) {
        return "--profile is classic or modern, not " + value;
      }
      continue;
    }
    const bool isCount = word == "--count";
    const long most = isCount ? kMostSamples : kLongestPause;
    const long number = ReadCount(value, most);
    if (number == 0) {
      return std::string(word) + " is a number of 1 to " + std::to_string(most) + ", not " + value;
    }
    (isCount ? order.count : order.everySeconds) = number;
  }
  return "";
}

int RunAgentForCapture() {
  struct ::utsname system {};
  if (Os().uname(&system) != 0) {
    return FailCapture(1, std::string("uname: ") + std::strerror(errno));
  }
  std::string instance = system.nodename;
  ProductOptions::Instance().Set("Agent", "DataDirectory", ".");
  RaiseOpenFilesLimit();
  ReadEnvironment();
  g_kernelVariant = KernelVariantOf(HostRelease(system.release));
  g_pAgent = new UnixAgent(kNoHelper, instance);
  InstallServiceSignals();
  int rc = g_pAgent->Init(instance.data(), system.version, system.release);
  if (rc == 0 && g_caughtSignal == 0) {
    g_localNodeId = CMBNode::GetLocalNodeID();
    rc = g_pAgent->Run();
  }
  delete g_pAgent;
  g_pAgent = nullptr;
  return rc;
}

}  // namespace

int RunCapture(int argc, char** argv) {
  CaptureOrder order;
  if (const std::string problem = ReadOrder(argc, argv, order); !problem.empty()) {
    return FailCapture(kWrongWords, problem);
  }
  if (const std::string problem = ActiveNodeLayer().BeginCapture(order); !problem.empty()) {
    return FailCapture(1, problem);
  }
  int rc = 1;
  std::string thrown;
  try {
    if (MBDebugInit(0, "qmtdmon", "QMT-Hostsets", 24, 'U', 'A', 'D') == 0 &&
        MBDebugGetMsgLogLevel(&g_msgLogLevel) == 0 &&
        MBDebugGetMsgDataLevel(&g_msgDataLevel) == 0) {
      rc = RunAgentForCapture();
    }
  } catch (const std::exception& exception) {
    thrown = exception.what();
  }
  const std::string problem = ActiveNodeLayer().EndCapture();
  MBDebugTerm();
  if (!thrown.empty() || !problem.empty()) {
    return FailCapture(1, thrown.empty() ? problem : thrown);
  }
  return rc == 0 ? 0 : 1;
}
