#include "client/commands/Replay.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/capture/Archive.h"
#include "client/capture/CaptureFolder.h"
#include "client/capture/OwnChild.h"
#include "client/capture/PlayPlan.h"
#include "client/files/Programs.h"

namespace {

using ReplayClock = std::chrono::steady_clock;

constexpr std::chrono::seconds kStartLimit{60};
constexpr std::chrono::milliseconds kStartLook{50};
constexpr std::string_view kHomeBelowRoot = "/opt/qmtrx/mond/agent";
constexpr double kSlowest = 0.001;
constexpr double kFastest = 1e6;

/// The folder of a capture: the one that is named, or that an archive is unpacked to.
std::string FindCapture(const std::string& source, const std::string& work, int stop) {
  std::error_code error;
  std::string folder;
  if (std::filesystem::is_directory(source, error)) {
    folder = std::filesystem::canonical(source, error).string();
  } else {
    folder = work + "/capture";
    std::filesystem::create_directory(folder, error);
    if (error) {
      throw ClientError(folder + ": " + error.message());
    }
    UnpackArchive(source, folder, {}, stop);
  }
  return folder;
}

/// What keeps the daemon from playing it, in its own words.
[[noreturn]] void FailStart(const std::string& source, const std::string& log) {
  constexpr std::string_view kReason = "can't be played: ";
  const std::string text = ReadWhole(log);
  const std::size_t place = text.find(kReason);
  if (place != text.npos) {
    const std::size_t begin = place + kReason.size();
    throw ClientError(source + " " + std::string(kReason) +
                      text.substr(begin, text.find('\n', begin) - begin));
  }
  const std::size_t end = std::min(text.find('\n'), text.size());
  throw ClientError(source + ": the daemon did not start: " + text.substr(0, end));
}

/// A daemon of its own on a capture.
class ReplayDaemon {
 public:
  ReplayDaemon(const std::string& folder, const std::string& work, const ReplayOptions& options)
      : m_source(options.source), m_log(work + "/log"), m_child(Prepare(folder, work, options)) {}

  /// Waits until it answers. Throws ClientError, Interrupted.
  void AwaitStart(const std::string& socket, int stop) {
    const auto end = ReplayClock::now() + kStartLimit;
    while (!Answers(socket, stop)) {
      const bool hasEnded = m_child.WaitUntil(ReplayClock::now() + kStartLook, stop);
      ::pollfd ready{stop, POLLIN, 0};
      if (::poll(&ready, 1, 0) > 0) {
        throw Interrupted();
      }
      if (hasEnded) {
        FailStart(m_source, m_log);
      }
      if (ReplayClock::now() > end) {
        throw ClientError(m_source + ": the daemon has not answered for " +
                          std::to_string(kStartLimit.count()) + " s");
      }
    }
  }

  /// Waits for a signal. Throws ClientError if the daemon ends before.
  void Stay(int stop) {
    try {
      m_child.Wait(stop);
    } catch (const Interrupted&) {
      return;
    }
    throw ClientError(m_source + ": the daemon has ended");
  }

 private:
  static bool Answers(const std::string& socket, int stop) {
    try {
      Connection connection(socket, stop);
      return true;
    } catch (const ClientError&) {
      return false;
    }
  }

  static ChildOrder Prepare(const std::string& folder, const std::string& work,
                            const ReplayOptions& options) {
    const std::string schedule = PlaySchedule(options.source, folder, options.speed);
    const std::string root = work + "/root";
    const std::string home = root + std::string(kHomeBelowRoot);
    std::error_code error;
    std::filesystem::create_directories(home + "/log", error);
    if (error) {
      throw ClientError(home + ": " + error.message());
    }
    // With records to show, the first look is to see the first sample.
    WriteWhole(home + "/qmtagt.ini",
               "[Node]\nHistory File = records.db\n[Http]\nListen =\nGate = none\n"
               "[Host]\nProfile = modern\n[Schedule]\n" +
                   (options.what.records.empty() ? schedule : ""));
    std::array<char, 64> speed{};
    std::snprintf(speed.data(), speed.size(), "%.9g", options.speed);
    return {.words = {FindProgram("qmtdmon", "agent")},
            .variables = {{"QMT_PRODUCT_ROOT", root},
                          {"QMT_HOST_ROOT", folder},
                          {"QMT_HOST_SPEED", speed.data()},
                          {"QMT_HOST_PROFILE", ""},
                          {"NOTIFY_SOCKET", ""},
                          {"WATCHDOG_USEC", ""}},
            .folder = home,
            .log = work + "/log"};
  }

  std::string m_source;
  std::string m_log;
  OwnChild m_child;
};

int ShowView(const std::string& socket, int stop) {
  std::error_code error;
  const std::string self = std::filesystem::read_symlink("/proc/self/exe", error).string();
  OwnChild view({.words = {self, "--socket", socket, "view"},
                 .variables = {{kPlayedVariable, "1"}},
                 .folder = {},
                 .log = {}});
  view.Wait(stop);
  return view.ExitValue();
}

int Replay(const CommonOptions& common, const ReplayOptions& options, const StopSignals& signals) {
  const int stop = signals.Get();
  const bool isView = options.what.records.empty() && WritesToTerminal();
  if (isView && !options.hasView) {
    throw UsageError("this version has no view: name records to show");
  }
  const TemporaryFolder work;
  const std::string folder = FindCapture(options.source, work.Path(), stop);
  const std::string socket =
      work.Path() + "/root" + std::string(kHomeBelowRoot) + "/run/control.sock";
  ReplayDaemon daemon(folder, work.Path(), options);
  daemon.AwaitStart(socket, stop);
  if (!options.what.records.empty()) {
    RecordOptions what = options.what;
    what.isPlayed = true;
    return RunGet({.socket = socket, .color = common.color}, what, options.overSeconds, &signals);
  }
  if (isView) {
    return ShowView(socket, stop);
  }
  WriteOutput(socket + '\n', stop);
  daemon.Stay(stop);
  return kExitDone;
}

}  // namespace

int RunReplay(const CommonOptions& common, const ReplayOptions& options) {
  if (!(options.speed >= kSlowest && options.speed <= kFastest)) {
    throw UsageError("--speed takes a factor from 0.001 to 1000000");
  }
  const StopSignals stop;
  EndAtHangUp();
  try {
    return Replay(common, options, stop);
  } catch (const Interrupted&) {
    return kExitDone;
  }
}
