#pragma once

#include <memory>
#include <string>
#include <vector>

#include "local/CaptureRun.h"
#include "local/GateRun.h"
#include "local/HttpSettings.h"
#include "local/NodeSettings.h"
#include "local/PushTargets.h"
#include "local/alarm/AlarmBook.h"
#include "local/control/ControlOperations.h"
#include "local/control/ControlServer.h"
#include "local/history/HistoryStore.h"
#include "local/ini/LocalIniFile.h"
#include "local/log/MessageLog.h"
#include "local/loop/DescriptorWatches.h"
#include "local/loop/EventLoop.h"
#include "local/loop/EventTimers.h"
#include "local/loop/ServiceManager.h"
#include "local/loop/ServiceStatus.h"
#include "local/schedule/BatchDesk.h"
#include "local/schedule/RecordSink.h"
#include "local/schedule/ScheduleBook.h"
#include "node/NodeLayer.h"

/// The node layer of the daemon: message log, ini file, service status, event loop, schedules and
/// control socket, all below the working directory. Its parts are made at their first use and freed
/// by DebugTerm, the last call of the contract. For one thread, RequestStop apart.
class LocalNode : public NodeLayer {
 public:
  // Constant, so that a node at namespace scope takes a signal before any constructor has run.
  constexpr LocalNode() = default;
  ~LocalNode() override = default;
  LocalNode(const LocalNode&) = delete;
  LocalNode& operator=(const LocalNode&) = delete;

  /// Opens the message log with the thresholds of section "Node" in qmtagt.ini.
  int DebugInit(const ServiceRegistration& registration) override;
  int MsgLogLevel(int* level) override;
  int MsgDataLevel(int* level) override;
  void DebugTerm() override;
  void PrintMsg(const MessageLine& line) override;
  short PrintDat(const char* data, int length, int level, int kind, int* written) override;
  void AssertLog(const char* expression, const char* file, int line) override;

  short StatInitialize(char first, char second, char third) override;
  int StatSetStatus(short status, const char* file, int line, short& out) override;
  void StatTerminate() override;
  int HostName(char* out, int size) override;

  /// Opens the control socket; -1, with the reason in the message log, if that can't be.
  int Connect(CMBAgent& agent, const AgentIdentity& identity) override;
  /// Broken lines are reported to the message log as "path:line: ...".
  std::unique_ptr<CMBIniFile> OpenIniFile(const char* directory, const char* name) override;
  /// Sections "Node", "Http", "Push", "Alarms" and "Schedule" are checked here and are not among
  /// the settings.
  IniListing ListIniFile(const char* path) override;
  IniListing ListAlarmFile(const char* path) override;
  /// The product's letter and the instance, as in "U/some-host"; empty until Connect.
  char* LocalNodeId() override { return m_nodeId.data(); }
  /// There is no network and so no bus.
  BusService* Bus() override { return nullptr; }
  void EventText(const char* text) override;
  void DebugText(const char* file, int line, const char* text) override;

  /// Reads section "Schedule" of the ini file, then serves schedules and clients until a stop is
  /// asked for; the control socket is closed then. Returns 0.
  int Run(CMBRunnableNode& node) override;
  int Yield(long seconds) override;
  int Hold(long seconds) override;
  int WatchDescriptor(int descriptor) override;
  int UnwatchDescriptor(int descriptor) override;
  int ScheduleEvent(CMBEvent* event, long period, int repeat, long firstTime) override;
  int CancelEvent(CMBEvent* event, bool destroy) override;
  void RequestStop(int signal) noexcept override;
  std::string BeginCapture(const CaptureOrder& order) override;
  std::string EndCapture() override;

 private:
  struct LoopParts;
  /// The steps of the stop, each also where one before it has lacked memory.
  static void Leave(LoopParts& parts);

  /// All that hangs on the event loop.
  struct LoopParts {
    explicit LoopParts(const ProblemReport& report);

    EventLoop loop;
    BatchDesk desk;
    LastRows lastRows;
    HistoryStore history;
    RecordSinks sinks;
    ScheduleBook schedule;
    AlarmBook alarms;
    ControlOperations operations;
    ControlServer server;
    GateRun gate;
    DescriptorWatches watches;
    EventTimers timers;
    ServiceManager manager;
  };

  /// A capture in the making.
  struct Capture {
    CaptureOrder order;
    CaptureRoom room;
    CaptureFacts facts;
    std::string problem = "the capture was broken off";
  };

  [[nodiscard]] LoopParts& Parts();
  /// Takes a capture for the host if the host's root is one. False, told to the operator, for one
  /// that is no good.
  [[nodiscard]] bool PlayCapture();
  void MakeCapture(CMBRunnableNode& node);
  void Report(const std::string& problem);
  void LoadSettings();
  void ConfigureMetrics(const HttpSettings& settings);
  /// The targets of pushes, whose totals are kept from now on.
  [[nodiscard]] std::vector<PushTarget> PreparePushes(const LocalIniFile& ini);
  /// Begins to look for alarms, when the schedules are known.
  void StartAlarms(const LocalIniFile& ini);
  void TellAlarm(const Json& alarm);
  void TellNumbered(int number, const std::vector<std::string>& arguments);
  void StartGate(const HttpSettings& settings, const LocalIniFile& ini);

  std::unique_ptr<MessageLog> m_log;
  std::unique_ptr<ServiceStatus> m_status;
  std::unique_ptr<LoopParts> m_parts;
  std::unique_ptr<Capture> m_capture;  ///< null but in a capture
  std::string m_iniDirectory;
  std::string m_iniName;
  std::string m_nodeId;
};
