#include "agent/Service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "agent/OpenFilesLimit.h"
#include "agent/ProductLock.h"
#include "agent/Signals.h"
#include "agent/StartOptions.h"
#include "agent/UnixAgent.h"
#include "agent/VersionLog.h"
#include "support/OsCalls.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr int kFailure = 1;
constexpr const char* kHostUtilPrefix = "/opt/qmtrx/mond/qmt_hostutil_";
constexpr std::size_t kMessageNameSize = 256;

/// What a started service needs to know of its surroundings.
struct Surroundings {
  StartOptions options;
  utsname system{};
};

/// The way out of a start that fails at `line` before the framework knows the service.
void AbandonTracing(int line) {
  ReportStartFailure(line, kFailure);
  MBDebugTerm();
}

bool BringUpTracing() {
  if (const int rc = MBDebugInit(0, "qmtdmon", "QMT-Hostsets", 24, 'U', 'A', 'D'); rc != 0) {
    Message(10101, "MBDebugInit", rc, "", "", "");
    ReportStartFailure(__LINE__, kFailure);
    return false;
  }
  if (const int rc = MBDebugGetMsgLogLevel(&g_msgLogLevel); rc != 0) {
    Message(10101, "MBDebugGetMsgLogLevel", rc, g_msgLogLevel, "", "");
    AbandonTracing(__LINE__);
    return false;
  }
  if (const int rc = MBDebugGetMsgDataLevel(&g_msgDataLevel); rc != 0) {
    Message(10101, "MBDebugGetMsgDataLevel", rc, g_msgDataLevel, "", "");
    AbandonTracing(__LINE__);
    return false;
  }
  return true;
}

void TraceCommandLine(int argc, char** argv) {
  if (!IsTraced(20)) {
    return;
  }
  std::string commandLine;
  for (int i = 0; i < argc; ++i) {
    commandLine += i == 0 ? "" : " ";
    commandLine += argv[i];
  }
  Trace(20, kInformation, "Started the function (%1).", commandLine);
}

bool RegisterService() {
  constexpr short kRunsAlready = -85;
  const short rc = MBStatInitialize('U', 'A', 'D', nullptr);
  if (rc == 0) {
    return true;
  }
  if (rc == kRunsAlready) {
    Trace(20, kError, "%1", "Exiting the service, to prevent double start.");
  } else {
    Trace(20, kError, "%1  (%2)", "MBStatInitialize : Error =", rc);
  }
  Message(10101, "MBStatInitialize", rc, "U", "A", "D");
  AbandonTracing(__LINE__);
  return false;
}

/// Tells the framework that the service leaves; `line` is where.
void ReportLeaving(int line) {
  constexpr short kLeaving = 82;
  std::array file = std::to_array("Service.cpp");
  short out = 0;
  if (const int rc = __MBStatSetStatus(kLeaving, file.data(), line, out); rc != 0) {
    Trace(20, kWarning, "%1  (%2)", "MBStatSetStatus : Warning =", rc);
  }
}

/// Tells the framework and the operator that the start has failed at `line`.
void ReportFailedStart(int line) {
  ReportLeaving(line);
  ReportStartFailure(line, kFailure);
}

int Terminate(int exitValue) {
  MBStatTerminate();
  MBDebugTerm();
  return exitValue;
}

/// Whether no other daemon holds the product root.
bool TakeProductRoot(ProductLock& lock) {
  if (lock.Take()) {
    return true;
  }
  Trace(10, kError, "%1", lock.Reason());
  Trace(20, kError, "%1", "Exiting the service, to prevent double start.");
  ReportFailedStart(__LINE__);
  return false;
}

/// The working directory; "." where it has no name.
std::string WorkingDirectory() {
  std::error_code error;
  const std::string directory = std::filesystem::current_path(error).string();
  return error ? "." : directory.substr(0, StartOptions::kMaxText);
}

void FillDefaults(Surroundings& around) {
  if (around.options.instanceName.empty()) {
    around.options.instanceName = around.system.nodename;
  }
  if (around.options.dataDirectory.empty()) {
    around.options.dataDirectory = WorkingDirectory();
  }
}

void Prepare(Surroundings& around) {
  FillDefaults(around);
  const StartOptions& options = around.options;
  ProductOptions::Instance().Set("Agent", "DataDirectory", options.dataDirectory.c_str());
  RaiseOpenFilesLimit();
  ReadEnvironment();
  g_kernelVariant = KernelVariantOf(HostRelease(around.system.release));
  WriteVersionLog(options.dataDirectory, "linux2.4.21",
                  {around.system.sysname, around.system.release});
  std::string& instanceName = around.options.instanceName;
  std::replace(instanceName.begin(), instanceName.end(), ' ', '_');
}

void DeleteAgent() {
  delete g_pAgent;
  g_pAgent = nullptr;
}

int FailStart() {
  if (g_caughtSignal != 0) {
    Message(10102, g_caughtSignal.load());
  }
  ReportFailedStart(__LINE__);
  DeleteAgent();
  return Terminate(kFailure);
}

struct MessageNames {
  MessageNames() {
    GetHostNameForMessage(host.data(), host.size());
    GetServiceNameForMessage(service.data(), service.size());
  }
  std::array<char, kMessageNameSize> host;
  std::array<char, kMessageNameSize> service;
};

/// What the signal that ended the run makes of the run's result.
int JudgeSignal(int rc) {
  const int signal = g_caughtSignal;
  if (signal == SIGTERM) {
    Message(10503, signal);
    return rc;
  }
  if (signal == SIGINT || signal == SIGPWR) {
    Message(10102, signal);
    return kFailure;
  }
  return rc;
}

int Stop(int runResult) {
  const int rc = JudgeSignal(runResult);
  ReportLeaving(__LINE__);
  if (rc == 0) {
    const MessageNames names;
    Message(10001, names.host.data(), names.service.data());
  } else {
    Message(10004);
  }
  Trace(20, kInformation, "Exited the function (func=UnixAgent::main, rc=%1).", rc);
  DeleteAgent();
  return Terminate(rc);
}

int RunAgent(Surroundings& around) {
  // Not owned by a scope: an exception leaves the agent as it is.
  g_pAgent = new UnixAgent(kHostUtilPrefix, around.options.instanceName);
  InstallServiceSignals();
  const int rc = g_pAgent->Init(around.options.instanceName.data(), around.system.version,
                                around.system.release);
  if (rc != 0 || g_caughtSignal != 0) {
    return FailStart();
  }
  g_localNodeId = CMBNode::GetLocalNodeID();
  {
    const MessageNames names;
    Message(10003, names.host.data(), names.service.data());
  }
  return Stop(g_pAgent->Run());
}

/// The whole service but for what it throws. The lock is the caller's, so that it outlives that.
int Serve(int argc, char** argv, ProductLock& productLock) {
  if (!BringUpTracing()) {
    return kFailure;
  }
  TraceCommandLine(argc, argv);
  if (!RegisterService()) {
    return kFailure;
  }
  if (!TakeProductRoot(productLock)) {
    return Terminate(kFailure);
  }
  Surroundings around{ReadStartOptions(argc, argv), {}};
  if (Os().uname(&around.system) != 0) {
    Message(10100, "uname", errno, "", "", "");
    ReportFailedStart(__LINE__);
    return Terminate(kFailure);
  }
  Prepare(around);
  return RunAgent(around);
}

/// The parent of the process sees the low 8 bits only: none of them set must not read as success.
int VisibleExitValue(int rc) { return rc != 0 && (rc & 0xff) == 0 ? kFailure : rc; }

}  // namespace

void ReportStartFailure(int line, int rc) {
  CatalogNumber failed = 10002;
  failed.m_line = line;
  Message(failed);
  Trace(20, kInformation,
        TraceFormat("Exited the function (func=UnixAgent::main, rc=%1)).", __FILE__, line), rc);
}

void GetHostNameForMessage(char* buffer, std::size_t size) {
  if (size == 0) {
    return;
  }
  std::memset(buffer, 0, size);
  if (UtGetHostName(buffer, static_cast<int>(size)) != 0) {
    std::strncpy(buffer, "<unknown>", size - 1);
  }
}

void GetServiceNameForMessage(char* buffer, std::size_t size) {
  if (size == 0) {
    return;
  }
  std::memset(buffer, 0, size);
  std::strncpy(buffer, g_localNodeId == nullptr ? "<unknown>" : g_localNodeId, size - 1);
}

int RunService(int argc, char** argv) {
  // The last words are said before another daemon may begin.
  ProductLock productLock;
  try {
    return VisibleExitValue(Serve(argc, argv, productLock));
  } catch (const std::exception& exception) {
    Message(10103, exception.what());
    Message(10004);
    return kFailure;
  }
}
