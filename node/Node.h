#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "node/BusService.h"
#include "node/Event.h"
#include "node/IniFile.h"
#include "node/NodeConfig.h"
#include "node/RecordRequest.h"
#include "node/UnsolicitedEvent.h"

/// A participant of the network: receives events, one at a time, on one thread. The virtual
/// operations stand in the framework's order.
class CMBNode : public CMBEventHandler<CMBUnsolicitedEvent<CMBShutdown>>,
                public CMBEventHandler<CMBNodeConfigRequest>,
                public CMBEventHandler<CMBNodeConfigUpdate> {
 public:
  enum TYieldDuration : long { kYieldShort = 0, kYieldLong = 1 };
  enum TNodeType : unsigned char { kNodeAgent = 'D' };

  CMBNode() = default;
  ~CMBNode() override = default;

  /// Takes one message; returns 0.
  virtual int Receive(_tagMBMessageHeader* header, void* data, int* length);
  /// yield(long, ...) with three zero arguments.
  virtual int yield(TYieldDuration duration);
  /// Handles what is waiting, for at most `duration` seconds, and returns.
  virtual int yield(long duration, int* descriptors, int count, int* ready);
  /// A look at an event before its handlers get it; non-zero withholds it.
  virtual int PreProcessEvent(CMBEvent* event, int status);
  /// Delivers `event` first at `firstTime` (seconds since 1970), then every `period` seconds; a
  /// `repeat` of -1 is without end. The loop owns the event until it is cancelled. 0 = scheduled.
  virtual int ScheduleEvent(CMBEvent* event, long period, int repeat, long reserved,
                            long firstTime) = 0;
  virtual int initNodeConfig(CMBNodeConfigRequest& request);
  virtual int updateNodeConfig(CMBNodeConfigUpdate& update);
  int NotifyEvent(CMBUnsolicitedEvent<CMBShutdown>* event) override = 0;
  int NotifyEvent(CMBNodeConfigRequest* event) override;
  int NotifyEvent(CMBNodeConfigUpdate* event) override;
  virtual void GenerateAlerts(std::list<CMBRecord*>& current, std::list<CMBRecord*>& previous,
                              std::list<CMBRecord*>& alerts,
                              std::vector<CMBRecordRequest*>* requests);
  /// Whether a record goes into the history; non-zero = yes.
  virtual int ShouldLogRecord(CMBRecord* record);

  /// Hands the event to the first handler that wants it and returns its status; 68 if none does.
  int Dispatch(CMBEvent* event);

  /// The text that identifies the service; owned by the layer, never null.
  [[nodiscard]] static char* GetLocalNodeID();
  /// The network service; null if the node has none.
  [[nodiscard]] static BusService* GetMBPointer();
  /// One line into the node's event log; the text is complete, with a line end.
  static void EventPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
  /// One line into the node's debug output.
  static void DebugPrintf(const char* file, int line, const char* format, ...)
      __attribute__((format(printf, 3, 4)));
};

/// Adds the run loop.
class CMBRunnableNode : public virtual CMBNode {
 public:
  int yield(TYieldDuration duration) override { return yield(duration, nullptr, 0, nullptr); }
  int yield(long duration, int* descriptors, int count, int* ready) override;
  int ScheduleEvent(CMBEvent* event, long period, int repeat, long reserved,
                    long firstTime) override;
  using CMBNode::NotifyEvent;
  int NotifyEvent(CMBUnsolicitedEvent<CMBShutdown>* event) override;
  virtual void WriteShutdownMessage();
  /// Whether records go out at once; the general answer is 1.
  virtual int ShouldSendDirect() { return 1; }

  /// The event loop. 0 after a clean stop.
  [[nodiscard]] int Run();
  /// Watches a descriptor: when it becomes readable, a CMBSocketEvent is delivered. 0 = watched.
  int ScheduleEvent(int descriptor);
  /// Ends the watch; the descriptor itself stays open. Harmless if it was not watched.
  int CancelEvent(int descriptor);
  /// Cancels a scheduled event; 1 as second argument destroys it too. 0 = it was scheduled.
  int CancelEvent(CMBEvent* event, int destroy);
  /// Makes Run return, also a Run that has not begun yet. Async-signal-safe.
  static void setSignalStatus(int signal) noexcept;
};

/// A node that answers record requests.
class CMBAgent : public CMBRunnableNode,
                 public CMBEventHandler<CMBReconnectEvent>,
                 public CMBEventHandler<CMBRecordRequestEvent>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBPQLStatement>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBCancelPQL>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBIniInfo>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBLogifStatement>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBTableBinding>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBAlarm>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBDictionary>>,
                 public CMBEventHandler<CMBUnsolicitedEvent<CMBAction>>,
                 public CMBEventHandler<CMBAlarmRequestEvent> {
 public:
  enum TAgentType : int { kAgentPlain = 0, kAgentCollector = 1 };

  /// `directory` and `iniName` say where the ini file is that Init loads.
  CMBAgent(const char* directory, const char* iniName);
  ~CMBAgent() override;

  int ShouldSendDirect() override { return m_sendDirect; }
  int initNodeConfig(CMBNodeConfigRequest& request) override;
  int updateNodeConfig(CMBNodeConfigUpdate& update) override;
  using CMBRunnableNode::NotifyEvent;
  int NotifyEvent(CMBUnsolicitedEvent<CMBPQLStatement>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBCancelPQL>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBIniInfo>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBLogifStatement>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBTableBinding>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBAlarm>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBDictionary>* event) override;
  int NotifyEvent(CMBUnsolicitedEvent<CMBAction>* event) override;
  int NotifyEvent(CMBReconnectEvent* event) override;
  int NotifyEvent(CMBAlarmRequestEvent* event) override;
  int NotifyEvent(CMBRecordRequestEvent* event) override = 0;
  void GenerateAlerts(std::list<CMBRecord*>& current, std::list<CMBRecord*>& previous,
                      std::list<CMBRecord*>& alerts,
                      std::vector<CMBRecordRequest*>* requests) override;
  int PreProcessEvent(CMBEvent* event, int status) override;
  int ShouldLogRecord(CMBRecord* record) override;

  /// Connects the node and loads the ini file; negative = failure. No text is kept.
  [[nodiscard]] int Init(unsigned char productId, char* instance, char* agentType, char* version,
                         char* subVersion, char* osVersion, char* osRelease, unsigned short major,
                         unsigned short minor, CMBNode::TNodeType nodeType,
                         CMBAgent::TAgentType kind, char* buildDate, char* buildTime);
  /// Null until Init has succeeded; owned by the agent.
  [[nodiscard]] CMBIniFile* GetIniFile() { return m_iniFile.get(); }

 private:
  std::string m_directory;
  std::string m_iniName;
  int m_sendDirect = 1;
  std::unique_ptr<CMBIniFile> m_iniFile;
};
