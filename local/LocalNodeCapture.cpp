#include <sys/stat.h>
#include <sys/utsname.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "local/LocalNode.h"
#include "local/capture/CapturedCalls.h"
#include "local/capture/HostReplay.h"
#include "support/AtomicFile.h"
#include "support/HostPaths.h"
#include "support/HostProfile.h"

namespace {

constexpr const char* kSpeedVariable = "QMT_HOST_SPEED";
constexpr const char* kProfileVariable = "QMT_HOST_PROFILE";

/// What stands before the host's paths; from now on an absolute path without "..", or empty.
std::string PrefixOfHost() {
  std::string root = HostPath("/");
  root.pop_back();
  if (!root.empty()) {
    std::error_code error;
    root = std::filesystem::absolute(root, error).lexically_normal().string();
    SetHostRoot(root);
    root = HostPath("/");
    root.pop_back();
  }
  return root;
}

/// Installed once and for the rest of the process: late destructors may still read.
void Install(std::unique_ptr<CapturedHost> host) {
  CapturedHost* const lasting = host.release();
  g_hostReads = lasting;
  CaptureOsCalls(*lasting);
}

/// 1 where nobody has written one; 0 for one that is no good.
double ReplaySpeed() {
  const char* value = std::getenv(kSpeedVariable);
  if (value == nullptr || *value == '\0') {
    return 1;
  }
  constexpr double kFastest = 1e6;
  double speed = 0;
  const char* const end = value + std::strlen(value);
  const auto [stop, status] = std::from_chars(value, end, speed);
  return status == std::errc{} && stop == end && speed > 0 && speed <= kFastest ? speed : 0;
}

HostRecorder* g_recorder = nullptr;

}  // namespace

bool LocalNode::PlayCapture() {
  const std::string root = PrefixOfHost();
  struct ::stat status {};
  if (m_capture != nullptr || root.empty() ||
      ::lstat((root + '/' + kCaptureFile).c_str(), &status) != 0) {
    return true;
  }
  const double speed = ReplaySpeed();
  if (speed == 0) {
    Report(std::string(kSpeedVariable) + ": this is no number above 0");
    return false;
  }
  std::string problem;
  std::unique_ptr<HostReplay> replay = HostReplay::Open(root, speed, problem);
  if (replay == nullptr) {
    Report("The capture can't be played: " + problem);
    return false;
  }
  // The records are those of that profile, whatever the settings here say.
  ::setenv(kProfileVariable, replay->Facts().profile.c_str(), 1);
  Install(std::move(replay));
  return true;
}

std::string LocalNode::BeginCapture(const CaptureOrder& order) {
  const std::string root = PrefixOfHost();
  struct ::stat status {};
  if (!root.empty() && ::lstat((root + '/' + kCaptureFile).c_str(), &status) == 0) {
    return root + ": a capture can't be made of a capture";
  }
  m_capture = std::make_unique<Capture>();
  m_capture->order = order;
  if (std::string problem = m_capture->room.Make(order); !problem.empty()) {
    m_capture.reset();
    return problem;
  }
  if (!order.profile.empty()) {
    ::setenv(kProfileVariable, order.profile.c_str(), 1);
  }
  auto recorder = std::make_unique<HostRecorder>(m_capture->room.Folder().Place(), root);
  g_recorder = recorder.get();
  if (!recorder->BeginSample(1)) {
    return m_capture->room.Folder().Named(recorder->Problem());
  }
  Install(std::move(recorder));
  return "";
}

void LocalNode::MakeCapture(CMBRunnableNode& node) {
  CaptureRun run(Parts().loop, Parts().operations, *g_recorder, m_capture->order,
                 m_capture->room.Folder().Place());
  run.Start();
  Parts().loop.Run(node);
  m_capture->facts = run.Facts();
  if (run.IsDone() || !run.Problem().empty()) {
    m_capture->problem = run.Problem();
  }
}

std::string LocalNode::EndCapture() {
  if (m_capture == nullptr) {
    return "";
  }
  DebugTerm();
  m_capture->room.Remove();
  const OwnFolder& folder = m_capture->room.Folder();
  if (!m_capture->problem.empty()) {
    return folder.Named(m_capture->problem);
  }
  CaptureFacts& facts = m_capture->facts;
  struct ::utsname names {};
  ::uname(&names);
  facts.version = QMT_VERSION;
  facts.host = names.nodename;
  facts.kernel = names.release;
  facts.machine = names.machine;
  facts.profile = HostProfileName(g_hostProfile);
  facts.isRunning = g_recorder->IsRunningHost();
  std::string problem;
  return ReplaceFile(folder.Place() + '/' + kCaptureFile, CaptureText(facts), problem)
             ? ""
             : folder.Named(problem);
}
