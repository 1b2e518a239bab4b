#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "agent/FilePaths.h"
#include "agent/Signals.h"
#include "agent/UFSSEvent.h"
#include "collect/Collector.h"
#include "node/Node.h"
#include "process/ApplicationMonitor.h"
#include "records/RecordBuilder.h"
#include "utility/HostNameRequestManager.h"
#include "utility/SASocket.h"

/// The program's node: the one object through which every event enters. Handlers return the
/// framework's status: 0 done, 63 could not be served, 68 not valid for this node.
class UnixAgent : public CMBAgent,
                  public CMBEventHandler<CMBMultipleRecordRequestEvent>,
                  public CMBEventHandler<CMBSocketEvent>,
                  public CMBEventHandler<UFSSEvent> {
 public:
  /// `hostUtilPrefix` is the path prefix of the pipes to the host name helper. No text is kept by
  /// its address. Installs the handler of SIGUSR2.
  UnixAgent(const std::string& hostUtilPrefix, const std::string& instanceName);
  ~UnixAgent() override;

  /// Opens the pipes, connects the node and prepares the records. `version` and `release` are the
  /// operating system's. 0, or a negative value that ends the start.
  [[nodiscard]] int Init(char* instanceName, char* version, char* release);
  /// Makes and opens the pipes to the host name helper: 1 if they are up, -1 if not.
  [[nodiscard]] int InitConnection();

  /// The pipes to the host name helper; owned by the agent, never null.
  [[nodiscard]] SASocket* GetSocket() const { return m_pSocket.get(); }
  /// The full path of a file that the configuration names, relative ones below the data directory.
  [[nodiscard]] std::string GetFilePath(const std::string& path) const {
    return ::GetFilePath(m_dataDirectory, path);
  }

  [[nodiscard]] const std::string& GetWorkgroupFilePath() const { return m_workgroupFilePath; }
  /// Empty until InitEventFile has found one.
  [[nodiscard]] const std::string& GetEventFilePath() const { return m_eventFilePath; }
  [[nodiscard]] ApplicationMonitor& GetApplications() { return m_applications; }

  /// Reads a text of section "Agent" of the ini file into `value`, at most size - 1 characters. A
  /// missing or empty one, and a time that isValidTime refuses, becomes the default and is written
  /// back. 0, or -61 without a buffer or an ini file and after a failed write.
  [[nodiscard]] int InitConfigOption(char* value, std::size_t size, const char* label,
                                     const char* defaultValue, bool isTime);
  /// The same for a number, which must be at least 1. `*value` is set even if the write fails.
  [[nodiscard]] int InitConfigOption(long* value, const char* label, long defaultValue);

  /// Tries to switch the system's accounting to `file`: 1 if that failed, which means that it is on
  /// (or not ours to switch), else 0, and it is off again.
  [[nodiscard]] int IsSystemAcctOn(const char* file);
  /// Whether the end of the agent is the end of accounting: IsSystemAcctOn found it off, and the
  /// configuration has it used.
  [[nodiscard]] bool ShouldStopAccounting() const;
  /// Takes the options of the user records from the ini file into ProductOptions. 0, or -1 without
  /// an ini file.
  [[nodiscard]] int ExtractUserRecordOptions();
  /// Empties a file of user records, which goes by its name in their directory, under the guard
  /// that its writers share; `id` is the number that the guard's key is made with. Does not wait.
  /// 0, -1 with a trace, -2 if there is no such file.
  [[nodiscard]] int truncateUserFile(int id, const char* fileName);
  /// Reads the event definition file that the ini file names into the options Messages/EventFile1,
  /// EventFile2 and so on, each "path*id*filter". An entry whose log file can't be opened is told
  /// and left out. 0, also where no file is named or it can't be read; -1 without an ini file.
  [[nodiscard]] int InitEventFile();
  /// Adds a text item that shows an option: from ProductOptions, else from the ini file, else the
  /// default, else "<attribute not set>". `defaultValue` may be null. The item's identifier is
  /// id + 101, or -id for a negative one.
  void addConfigLine(int id, const char* label, const char* section, const char* defaultValue,
                     const char* name, const char* help, CMBNodeConfigBase& folder);

  using CMBAgent::NotifyEvent;
  /// Requests come in batches; a single one is refused.
  int NotifyEvent(CMBRecordRequestEvent* event) override;
  int NotifyEvent(CMBMultipleRecordRequestEvent* event) override;
  int NotifyEvent(UFSSEvent* event) override;
  /// Builds the configuration tree below the request.
  int NotifyEvent(CMBNodeConfigRequest* event) override;
  /// Changes one setting: 0 done, 1 the ini file could not be written, -36 refused, -1 without an
  /// event or an ini file.
  int NotifyEvent(CMBNodeConfigUpdate* event) override;
  /// The helper's pipe has something to read or has lost its writer, or SIGUSR2 has come. -1 if
  /// the helper is lost.
  int NotifyEvent(CMBSocketEvent* event) override;

 private:
  class ConfigUpdates;

  /// The first part of Init: pipes and node. 0, or -1.
  [[nodiscard]] int Connect(char* instanceName, char* version, char* release);
  [[nodiscard]] int ConnectNode(char* instanceName, char* version, char* release);
  [[nodiscard]] int InitRecords();
  [[nodiscard]] int InitConfiguration();
  /// The rest of Init once the node is connected.
  [[nodiscard]] int Prepare();
  [[nodiscard]] int ReadConfiguration();
  [[nodiscard]] int ReadOption(char* value, std::size_t size, const char* label,
                               const char* defaultValue, bool isTime);
  [[nodiscard]] bool WriteOption(const char* label, const std::string& value);
  void PublishConfiguration() const;
  void PublishMountTimeout();
  void PublishGroupDepth();
  void PublishProcessSource();
  void PublishGuardMode();
  /// Whether the record of the daily scan of the file systems is switched on.
  [[nodiscard]] bool HasUFSS() const {
    return !m_recordBuilder.HasNoOptionalRecords() && m_recordBuilder.IsUFSSEnabled() != 0;
  }
  /// Puts the daily scan at `m_ufssTime`, and starts one at once if the last is missing. "Never"
  /// ends the scans and removes their results.
  void ScheduleUFSS();
  /// Starts a scan by fork(2) and execl(2); ended children are taken by a handler of SIGCHLD from
  /// then on. The child takes the lock, so that it gives way to a scan that still runs. 0, or -1 if
  /// no child could be made.
  [[nodiscard]] int RunUFSS(int firstRun);
  void ReadApplications();
  /// False, reported, if the list could not be written.
  bool SaveApplications();
  [[nodiscard]] int ReadHelper(int descriptor);
  [[nodiscard]] int RestoreHelper(int descriptor);
  void TraceToggles();

  Collector m_collector;
  RecordBuilder m_recordBuilder;
  std::unique_ptr<SASocket> m_pSocket;
  HostNameRequestManager m_hostNames;
  void* m_collectorArg = nullptr;
  UFSSEvent* m_pUFSSEvent = nullptr;  ///< owned by the loop; null if none is scheduled
  pid_t m_ufssPid = -1;               ///< the last scan's
  /// Below the product root.
  std::string m_ufssLockPath = "/opt/qmtrx/mond/qmt_ufss_.lock";
  ApplicationMonitor m_applications;
  bool m_areApplicationsRead = false;
  bool m_wasAccountingOn = false;
  std::string m_ufssTime;
  std::string m_dataDirectory;
  std::string m_eventFilePath;
  std::string m_workgroupFilePath;
  std::string m_messagesFile;
  std::string m_accountingFile;
  /// Yes or no letters.
  std::string m_useAccounting;
  std::string m_microstate;
  std::string m_logDied;
  std::string m_truncateAccounting;
  std::string m_deviceNameCache;
  std::string m_dataMaxCount;  ///< decimal digits
  /// Made last in the constructor, so that the handler stands when all else does.
  std::optional<ToggleSignal> m_toggleSignal;
};
