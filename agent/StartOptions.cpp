#include "agent/StartOptions.h"

#include <getopt.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "collect/HostFile.h"
#include "support/HostPaths.h"
#include "support/Switches.h"

namespace {

constexpr const char* kUsage =
    "Usage: qmtdmon [-n NAME] [-d DIRECTORY]\n"
    "Runs the agent in the working directory, whose qmtagt.ini it reads.\n"
    "  -n NAME       the instance's name; default: the host's\n"
    "  -d DIRECTORY  where Workgroup File and the event file stand, unless their paths are "
    "absolute,\n"
    "                and log/version.log is written; default: the working directory\n"
    "  --capture DIR [--every S] [--count N] [--profile P]\n"
    "                keeps what is read of the host in the new folder DIR, and starts no daemon\n"
    "  --check FILE [--kind KIND]\n"
    "                names the faults of a definition, alarms, application or ini file\n"
    "  --help        shows this text\n"
    "  --version     shows the version\n"
    "--capture and --check stand first. Other options are accepted and ignored.\n";

}  // namespace

StartOptions ReadStartOptions(int argc, char** argv) {
  StartOptions options;
  opterr = 0;
  optind = 0;  // Has getopt begin anew.
  for (int letter = 0; (letter = ::getopt(argc, argv, "n:d:fhv?")) != -1;) {
    if (letter == 'n') {
      options.instanceName = std::string(optarg).substr(0, StartOptions::kMaxText);
    } else if (letter == 'd') {
      options.dataDirectory = std::string(optarg).substr(0, StartOptions::kMaxText);
    }
  }
  return options;
}

std::string AnswerToWords(int argc, char** argv) {
  for (int place = 1; place < argc; ++place) {
    const std::string_view word = argv[place];
    if (word == "--") {
      break;
    }
    if (word == "-n" || word == "-d") {
      ++place;
    } else if (word == "--help") {
      return kUsage;
    } else if (word == "--version") {
      return "qmtdmon " QMT_VERSION "\n";
    }
  }
  return "";
}

void ReadEnvironment() {
  g_hasUnixPmap = std::getenv("SAUNIXPMAP") == nullptr ? 0 : 1;
  const char* collectorLog = std::getenv("APP_COLLECTOR_LOG");
  g_collectorLogOn = collectorLog == nullptr
                         ? 0
                         : static_cast<std::int32_t>(std::strtol(collectorLog, nullptr, 10));
}

std::string HostRelease(const std::string& own) {
  if (IsRunningHost()) {
    return own;
  }
  std::array<char, 256> line{};
  const TextFilePtr file = OpenHostFile("/proc/sys/kernel/osrelease");
  return file != nullptr && std::fgets(line.data(), line.size(), file.get()) != nullptr
             ? line.data()
             : own;
}

int KernelVariantOf(const std::string& release) {
  if (release.find("2.4.9") != std::string::npos) {
    return 1;
  }
  return release.find("2.4.21") != std::string::npos ? 2 : 3;
}
