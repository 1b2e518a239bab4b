#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "node/NodeLayer.h"

/// A message or trace line as it reached the node, with the arguments put in.
struct LoggedLine {
  int number;
  int level;
  int kind;
  std::string text;
  std::string sourceFile;
};

struct SentAck {
  std::uint8_t priority;
  std::uint16_t sequence;
  int length;
  void* data;
  std::uint8_t flag;
};

struct ScheduledEvent {
  CMBEvent* event;
  long period;
  int repeat;
  long firstTime;
};

class ScriptedBus : public BusService {
 public:
  void SendAckMsg(const _tagMBMessageHeader* header, const char* fromNode, const char* toNode,
                  std::uint8_t priority, std::uint16_t sequence, int length, int status, void* data,
                  std::uint8_t flag) override;
  std::vector<SentAck> sent;
};

/// The keys of an ini file, shared by all that open it. Key of the map: section, sub-section, key.
using IniValues = std::map<std::vector<std::string>, std::string>;

/// The node layer of the tests. Instance() is what the code under test is linked with; Reset()
/// gives a fresh one.
class ScriptedNode : public NodeLayer {
 public:
  static ScriptedNode& Instance();
  /// Everything back to its start, trace thresholds included.
  static void Reset();
  ScriptedNode() = default;
  /// Destroys the events that are still scheduled: the loop owns them.
  ~ScriptedNode() override;
  ScriptedNode(const ScriptedNode&) = delete;
  ScriptedNode& operator=(const ScriptedNode&) = delete;

  /// The lines whose text holds `part`, in order.
  [[nodiscard]] std::vector<LoggedLine> LinesWith(const std::string& part) const;
  [[nodiscard]] int CountMessages(int number) const;

  std::vector<LoggedLine> lines;
  std::string dataTrace;
  std::vector<std::string> eventTexts;
  std::vector<std::string> debugTexts;
  std::vector<short> statuses;
  std::vector<int> watched;
  std::vector<ScheduledEvent> scheduled;
  std::vector<std::string> calls;  ///< the order of the calls that start and stop the service
  std::string registration;  ///< what DebugInit, StatInitialize and Connect were given, by blanks
  ScriptedBus bus;
  IniValues ini;
  /// Key and value of each write into the ini file, in order.
  std::vector<std::pair<std::string, std::string>> iniWritten;

  // What the calls answer.
  int debugInitResult = 0;
  int logLevel = 0;
  int dataLevel = 0;
  int levelResult = 0;
  short statResult = 0;
  int setStatusResult = 0;
  int connectResult = 0;
  int runResult = 0;
  int hostNameResult = 0;
  bool iniOpens = true;
  bool iniWrites = true;
  std::string iniRefusedKey;  ///< a write of this key fails
  int stopSignal = -1;        ///< -1 until a stop is asked for
  /// What MBDebugPrintDat takes of a block; negative is an error.
  std::function<int(int length)> acceptData;
  /// Called by Run, in place of an event loop, and by each yield.
  std::function<void(CMBRunnableNode&)> onRun;
  std::function<void()> onYield;
  std::function<void()> onHold;
  int holds = 0;  ///< seconds for which batches have been held back

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
  int Connect(CMBAgent& agent, const AgentIdentity& identity) override;
  std::unique_ptr<CMBIniFile> OpenIniFile(const char* directory, const char* name) override;
  /// Each key of `ini` at line 7.
  IniListing ListIniFile(const char* path) override;
  char* LocalNodeId() override;
  BusService* Bus() override { return &bus; }
  void EventText(const char* text) override;
  void DebugText(const char* file, int line, const char* text) override;
  int Run(CMBRunnableNode& node) override;
  int Yield(long seconds) override;
  int Hold(long seconds) override;
  int WatchDescriptor(int descriptor) override;
  int UnwatchDescriptor(int descriptor) override;
  int ScheduleEvent(CMBEvent* event, long period, int repeat, long firstTime) override;
  int CancelEvent(CMBEvent* event, bool destroy) override;
  void RequestStop(int signal) noexcept override;

 private:
  std::string m_nodeId = "scripted-node";
};

/// How many lines have the part.
inline std::size_t Lines(const std::string& part) {
  return ScriptedNode::Instance().LinesWith(part).size();
}
