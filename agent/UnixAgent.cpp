#include "agent/UnixAgent.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <new>

#include "agent/ConfigNames.h"
#include "node/FigureRegistry.h"
#include "records/RecordLayouts.h"
#include "support/HostPaths.h"
#include "support/NarrowUmask.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

void PublishKernelVariant() {
  FigureRegistry::Instance().Add(
      {"kernel_variant",
       "The kernel generation that the agent reads: 1 is 2.4.9, 2 is 2.4.21, 3 is "
       "2.6.9 and all later ones.",
       FigureKind::kGauge, [] { return static_cast<double>(g_kernelVariant); }});
}

/// How many answers of the host name helper are remembered, and where its program is.
constexpr int kRememberedHosts = 500;
constexpr const char* kHostUtil = "./qmt_hostutil";

}  // namespace

UnixAgent::UnixAgent(const std::string& hostUtilPrefix, const std::string& instanceName)
    : CMBAgent(".", kIniName),
      m_recordBuilder(this, &m_collector, hostUtilPrefix.c_str()),
      m_hostNames(this, kRememberedHosts, kHostUtil, hostUtilPrefix.c_str()) {
  TraceEntry("UnixAgent::UnixAgent", hostUtilPrefix, instanceName);
  TouchFieldTables();
  PublishLayouts();
  PublishKernelVariant();
  m_pSocket = std::make_unique<SASocket>(this, hostUtilPrefix + ".pipe");
  m_recordBuilder.SetApplications(&m_applications);
  m_recordBuilder.SetHostNames(&m_hostNames);
  m_collector.SetOpaque(m_collectorArg);
  m_toggleSignal.emplace();
  TraceExit("UnixAgent::UnixAgent");
}

UnixAgent::~UnixAgent() {
  TraceEntry("UnixAgent::~UnixAgent");
  m_pSocket.reset();
  // A list that was never read must not replace the file.
  if (m_areApplicationsRead) {
    try {
      SaveApplications();
    } catch (const std::bad_alloc&) {
      Trace(20, kError, "Out of memory: the applications have not been saved.");
    }
  }
  TraceToggles();
  if (m_toggleSignal->Descriptor() >= 0) {
    CancelEvent(m_toggleSignal->Descriptor());
  }
  TraceExit("UnixAgent::~UnixAgent");
}

int UnixAgent::Init(char* instanceName, char* version, char* release) {
  TraceEntry("UnixAgent::Init", instanceName, version, release);
  if (const int rc = Connect(instanceName, version, release); rc != 0) {
    ReadApplications();
    TraceExit("UnixAgent::Init", rc);
    return rc;
  }
  const int rc = Prepare();
  ReadApplications();
  Trace(20, kInformation, "Exited the function (func=UnixAgent::Init, rc=%1)).", rc);
  return rc;
}

int UnixAgent::Connect(char* instanceName, char* version, char* release) {
  if (InitConnection() < 0 || m_hostNames.connection_init(m_pSocket.get()) < 0) {
    Message(10200);
    return -1;
  }
  if (m_toggleSignal->Descriptor() >= 0) {
    CMBRunnableNode::ScheduleEvent(m_toggleSignal->Descriptor());
  }
  const char* directory = ProductOptions::Instance().Get("Agent", "DataDirectory");
  m_dataDirectory = directory == nullptr ? "" : directory;
  if (ConnectNode(instanceName, version, release) < 0) {
    Message(10201);
    return -1;
  }
  return 0;
}

int UnixAgent::InitConnection() {
  TraceEntry("UnixAgent::InitConnection");
  constexpr int kSchedule = 1;
  // The helper is of the agent's own user. Who else could read would take answers away that a batch
  // waits for.
  constexpr mode_t kOwnersAlone = 0600;
  const NarrowUmask narrow(kOwnersAlone);
  const bool isConnected = m_pSocket->Connect(kSchedule) == 0;
  if (UtlError* error = isConnected ? nullptr : m_pSocket->GetLastError()) {
    Trace(10, kError, "The pipes to the helper (%1) can't be made: %2.",
          ProductPath(m_pSocket->GetName()), error->GetMessage());
  }
  TraceExit("UnixAgent::InitConnection");
  return isConnected ? 1 : -1;
}

int UnixAgent::ConnectNode(char* instanceName, char* version, char* release) {
  std::array agentType = std::to_array("QEXA/Unix/Agent");
  std::array agentVersion = std::to_array("7.0");
  std::array subVersion = std::to_array("0");
  std::array buildDate = std::to_array(__DATE__);
  std::array buildTime = std::to_array(__TIME__);
  return CMBAgent::Init('U', instanceName, agentType.data(), agentVersion.data(), subVersion.data(),
                        version, release, 0, 0, CMBNode::kNodeAgent, CMBAgent::kAgentCollector,
                        buildDate.data(), buildTime.data());
}

int UnixAgent::Prepare() {
  if (const int rc = InitConfiguration(); rc != 0) {
    return rc;
  }
  if (const int rc = InitRecords(); rc != 0) {
    return rc;
  }
  if (HasUFSS()) {
    ScheduleUFSS();
  }
  return 0;
}

int UnixAgent::InitConfiguration() {
  const int rc = ReadConfiguration();
  if (rc != 0) {
    Message(10201);
    Trace(20, kError, "Failed to initialize the Agent Configuration. (rc=%1)", rc);
  }
  return rc;
}

int UnixAgent::InitRecords() {
  m_recordBuilder.SetWorkgroupFile(m_workgroupFilePath);
  const UtlErrorPtr error(m_recordBuilder.Init());
  if (error == nullptr) {
    return 0;
  }
  Trace(20, kError, "RecordBuilder initialization failed. (%1)", error->GetMessage());
  error->LogError(__FILE__, __LINE__);
  Message(10202);
  Trace(20, kError, "Agent RecordBuilder Initialization Failed: %1", error->GetMessage());
  return -1;
}

int UnixAgent::NotifyEvent(CMBRecordRequestEvent*) {
  TraceEntry("UnixAgent::NotifyEvent");
  Trace(20, kWarning, "Illegal event received.");
  TraceExit("UnixAgent::NotifyEvent");
  return kNotifyNotValid;
}

int UnixAgent::NotifyEvent(CMBMultipleRecordRequestEvent* event) {
  TraceEntry("UnixAgent::NotifyEvent", AddressOf(event));
  const UtlErrorPtr error(m_recordBuilder.Build(event));
  if (error == nullptr) {
    TraceExit("UnixAgent::NotifyEvent");
    return kNotifyDone;
  }
  Trace(20, kWarning, "Unable to build records to satisfy event.");
  TraceExit("UnixAgent::NotifyEvent");
  return kNotifyNotServed;
}

void UnixAgent::ReadApplications() {
  m_areApplicationsRead = true;
  if (m_applications.read(kApplicationFile) == 0) {
    Trace(20, kError, "qmtapp read error. (FILE=%1).", kApplicationFile);
  }
  for (const FileFault& fault : m_applications.Faults()) {
    Trace(20, kWarning, "%1:%2: %3.", kApplicationFile, fault.line, fault.text);
  }
}

bool UnixAgent::SaveApplications() {
  errno = 0;
  if (m_applications.write(kApplicationFile) != 0) {
    return true;
  }
  const int code = errno;
  if (m_applications.GetCount() == 0 && code == ENOENT) {
    return true;  // an agent without applications has no file
  }
  Trace(20, kError, "qmtapp write error. (FILE=%1).", kApplicationFile);
  Message(10100, "write", code, kApplicationFile,
          code == 0 ? "it was not read" : std::strerror(code), "");
  return false;
}
