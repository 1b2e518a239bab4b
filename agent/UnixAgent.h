#pragma once

#include <memory>
#include <optional>
#include <string>

#include "agent/FilePaths.h"
#include "agent/Signals.h"
#include "agent/UFSSEvent.h"
#include "collect/Collector.h"
#include "node/Node.h"
#include "records/RecordBuilder.h"
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

  using CMBAgent::NotifyEvent;
  /// Requests come in batches; a single one is refused.
  int NotifyEvent(CMBRecordRequestEvent* event) override;
  int NotifyEvent(CMBMultipleRecordRequestEvent* event) override;
  int NotifyEvent(UFSSEvent* event) override;
  /// The helper's pipe has something to read or has lost its writer, or SIGUSR2 has come. -1 if
  /// the helper is lost.
  int NotifyEvent(CMBSocketEvent* event) override;

 private:
  [[nodiscard]] int ConnectNode(char* instanceName, char* version, char* release);
  [[nodiscard]] int InitRecords();
  [[nodiscard]] int ReadHelper(int descriptor);
  [[nodiscard]] int RestoreHelper(int descriptor);
  void TraceToggles();

  Collector m_collector;
  RecordBuilder m_recordBuilder;
  std::unique_ptr<SASocket> m_pSocket;
  void* m_collectorArg = nullptr;
  std::string m_dataDirectory;
  /// Made last in the constructor, so that the handler stands when all else does.
  std::optional<ToggleSignal> m_toggleSignal;
};
