#pragma once

#include <array>
#include <memory>
#include <string>

#include "node/IniListing.h"
#include "node/Node.h"

/// One message or trace line on its way to the message log. All texts live only for the call.
struct MessageLine {
  int number = 0;
  int level = 0;
  int kind = 0;
  const char* sourceFile = "";
  int sourceLine = 0;
  const char* format = "";
  int argCount = 0;
  const char* const* args = nullptr;
};

/// How an agent presents itself when it connects.
struct AgentIdentity {
  unsigned char productId = 0;
  const char* instance = "";
  const char* agentType = "";
  const char* version = "";
  const char* subVersion = "";
  const char* osVersion = "";
  const char* osRelease = "";
  const char* buildDate = "";
  const char* buildTime = "";
  unsigned short major = 0;
  unsigned short minor = 0;
  unsigned char nodeType = 0;
  int agentKind = 0;
};

/// What a service registers its tracing with.
struct ServiceRegistration {
  int reserved = 0;
  const char* programName = "";
  const char* productTag = "";
  int number = 0;
  std::array<char, 3> letters{};
};

/// What `qmtdmon --capture` is asked for.
struct CaptureOrder {
  std::string folder;
  long everySeconds = 10;
  long count = 1;
  std::string profile;  ///< empty for the usual one
};

/// What stands behind the contract: every operation of the contract that does something outside the
/// agent is one call here. The daemon links the local layer, tests link a scripted one.
class NodeLayer {
 public:
  virtual ~NodeLayer() = default;

  virtual int DebugInit(const ServiceRegistration& registration) = 0;
  virtual int MsgLogLevel(int* level) = 0;
  virtual int MsgDataLevel(int* level) = 0;
  virtual void DebugTerm() = 0;
  virtual void PrintMsg(const MessageLine& line) = 0;
  virtual short PrintDat(const char* data, int length, int level, int kind, int* written) = 0;
  virtual void AssertLog(const char* expression, const char* file, int line) = 0;

  virtual short StatInitialize(char first, char second, char third) = 0;
  virtual int StatSetStatus(short status, const char* file, int line, short& out) = 0;
  virtual void StatTerminate() = 0;
  virtual int HostName(char* out, int size) = 0;

  virtual int Connect(CMBAgent& agent, const AgentIdentity& identity) = 0;
  /// Null if the file can't be used.
  virtual std::unique_ptr<CMBIniFile> OpenIniFile(const char* directory, const char* name) = 0;
  /// Reads an ini file to check it, without a message; nothing is kept of it.
  virtual IniListing ListIniFile(const char* path) {
    return {std::string(path) + ": this node keeps no ini file on disk", {}, {}};
  }
  /// The same of a definition file of alarms.
  virtual IniListing ListAlarmFile(const char* path) {
    return {std::string(path) + ": this node has no alarms", {}, {}};
  }
  virtual char* LocalNodeId() = 0;
  virtual BusService* Bus() = 0;
  virtual void EventText(const char* text) = 0;
  virtual void DebugText(const char* file, int line, const char* text) = 0;

  virtual int Run(CMBRunnableNode& node) = 0;
  virtual int Yield(long seconds) = 0;
  /// What CMBMultipleRecordRequestEvent::hold asks for: 0 held, 1 not.
  virtual int Hold(long seconds) = 0;
  virtual int WatchDescriptor(int descriptor) = 0;
  virtual int UnwatchDescriptor(int descriptor) = 0;
  virtual int ScheduleEvent(CMBEvent* event, long period, int repeat, long firstTime) = 0;
  virtual int CancelEvent(CMBEvent* event, bool destroy) = 0;
  /// Has what follows, a start and Run(), be a capture instead of a service. To be called before
  /// all else. Gives what is wrong, or nothing.
  virtual std::string BeginCapture(const CaptureOrder&) { return "this node makes no captures"; }
  /// Completes the capture when the agent is gone. Gives why there is none, or nothing.
  virtual std::string EndCapture() { return "this node makes no captures"; }
  /// Async-signal-safe. Signal 0 asks for a stop without a signal.
  virtual void RequestStop(int signal) noexcept = 0;
};

/// The layer that this program is linked with.
[[nodiscard]] NodeLayer& ActiveNodeLayer();
