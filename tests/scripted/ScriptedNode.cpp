#include "tests/scripted/ScriptedNode.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "support/Switches.h"

namespace {

std::unique_ptr<ScriptedNode>& Holder() {
  static std::unique_ptr<ScriptedNode> node = std::make_unique<ScriptedNode>();
  return node;
}

std::string Expand(const MessageLine& line) {
  std::string text;
  for (const char* c = line.format; *c != '\0'; ++c) {
    if (*c == '%' && c[1] >= '1' && c[1] <= '9' && c[1] - '0' <= line.argCount) {
      text += line.args[c[1] - '1'];
      ++c;
    } else {
      text += *c;
    }
  }
  return text;
}

std::vector<std::string> IniKey(const char* key, const char* section, const char* subSection) {
  return {section, subSection == nullptr ? "" : subSection, key};
}

class ScriptedIni : public CMBIniFile {
 public:
  int ReadString(char* out, int size, const char* key, const char* section, const char* subSection,
                 void*, int) override {
    const IniValues& values = ScriptedNode::Instance().ini;
    const auto place = values.find(IniKey(key, section, subSection));
    std::snprintf(out, static_cast<std::size_t>(size), "%s",
                  place == values.end() ? "" : place->second.c_str());
    return place != values.end();
  }
  int WriteString(const char* value, const char* key, const char* section, const char* subSection,
                  void*, int) override {
    ScriptedNode& node = ScriptedNode::Instance();
    if (!node.iniWrites || key == node.iniRefusedKey) {
      return 0;
    }
    node.iniWritten.emplace_back(key, value);
    node.ini[IniKey(key, section, subSection)] = value;
    return 1;
  }
  int ReadLong(long* out, const char* key, const char* section, const char* subSection,
               void*) override {
    const IniValues& values = ScriptedNode::Instance().ini;
    const auto place = values.find(IniKey(key, section, subSection));
    if (place == values.end()) {
      return 0;
    }
    *out = std::strtol(place->second.c_str(), nullptr, 10);
    return 1;
  }
  int WriteLong(long value, const char* key, const char* section, const char* subSection, void*,
                int) override {
    return WriteString(std::to_string(value).c_str(), key, section, subSection, nullptr, 0);
  }
};

}  // namespace

NodeLayer& ActiveNodeLayer() { return ScriptedNode::Instance(); }

ScriptedNode& ScriptedNode::Instance() { return *Holder(); }

void ScriptedNode::Reset() {
  Holder() = std::make_unique<ScriptedNode>();
  g_msgLogLevel = 0;
  g_msgDataLevel = 0;
  g_kernelVariant = 3;
  g_collectorLogOn = 0;
  g_processTraceOn = 0;
  g_caughtSignal = 0;
  g_localNodeId = nullptr;
}

ScriptedNode::~ScriptedNode() {
  for (const ScheduledEvent& entry : scheduled) {
    delete entry.event;
  }
}

std::vector<LoggedLine> ScriptedNode::LinesWith(const std::string& part) const {
  std::vector<LoggedLine> found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [&](const LoggedLine& line) { return line.text.find(part) != std::string::npos; });
  return found;
}

int ScriptedNode::CountMessages(int number) const {
  return static_cast<int>(std::count_if(
      lines.begin(), lines.end(), [&](const LoggedLine& line) { return line.number == number; }));
}

void ScriptedBus::SendAckMsg(const _tagMBMessageHeader*, const char*, const char*,
                             std::uint8_t priority, std::uint16_t sequence, int length, int,
                             void* data, std::uint8_t flag) {
  sent.push_back({priority, sequence, length, data, flag});
}

int ScriptedNode::DebugInit(const ServiceRegistration& given) {
  registration = std::to_string(given.reserved) + " " + given.programName + " " + given.productTag +
                 " " + std::to_string(given.number) + " " +
                 std::string(given.letters.begin(), given.letters.end());
  calls.emplace_back("DebugInit");
  return debugInitResult;
}
int ScriptedNode::MsgLogLevel(int* level) {
  *level = logLevel;
  return levelResult;
}
int ScriptedNode::MsgDataLevel(int* level) {
  *level = dataLevel;
  return levelResult;
}
void ScriptedNode::DebugTerm() { calls.emplace_back("DebugTerm"); }

void ScriptedNode::PrintMsg(const MessageLine& line) {
  lines.push_back({line.number, line.level, line.kind, Expand(line), line.sourceFile});
}

short ScriptedNode::PrintDat(const char* data, int length, int, int, int* written) {
  const int taken = acceptData ? acceptData(length) : length;
  *written = std::max(taken, 0);
  dataTrace.append(data, static_cast<std::size_t>(*written));
  return static_cast<short>(taken);
}
void ScriptedNode::AssertLog(const char* expression, const char*, int) {
  lines.push_back({0, 1, 1, std::string("assertion ") + expression, ""});
}

short ScriptedNode::StatInitialize(char first, char second, char third) {
  registration += std::string(" ") + first + second + third;
  calls.emplace_back("StatInitialize");
  return statResult;
}
int ScriptedNode::StatSetStatus(short status, const char*, int, short& out) {
  statuses.push_back(status);
  out = 0;
  return setStatusResult;
}
void ScriptedNode::StatTerminate() { calls.emplace_back("StatTerminate"); }

int ScriptedNode::HostName(char* out, int size) {
  std::snprintf(out, static_cast<std::size_t>(size), "scripted-host");
  return hostNameResult;
}

int ScriptedNode::Connect(CMBAgent&, const AgentIdentity& given) {
  registration += std::string(" ") + static_cast<char>(given.productId) + " " + given.agentType +
                  " " + given.version + " " + given.subVersion + " " + std::to_string(given.major) +
                  std::to_string(given.minor) + " " + static_cast<char>(given.nodeType) +
                  std::to_string(given.agentKind);
  calls.emplace_back("Connect");
  return connectResult;
}
std::unique_ptr<CMBIniFile> ScriptedNode::OpenIniFile(const char*, const char*) {
  return iniOpens ? std::make_unique<ScriptedIni>() : nullptr;
}
IniListing ScriptedNode::ListIniFile(const char*) {
  IniListing listing;
  for (const auto& [key, value] : ini) {
    listing.settings.push_back({7, key[0], key[1], key[2], value});
  }
  return listing;
}

char* ScriptedNode::LocalNodeId() { return m_nodeId.data(); }
void ScriptedNode::EventText(const char* text) { eventTexts.emplace_back(text); }
void ScriptedNode::DebugText(const char*, int, const char* text) { debugTexts.emplace_back(text); }

int ScriptedNode::Run(CMBRunnableNode& node) {
  calls.emplace_back("Run");
  if (onRun) {
    onRun(node);
  }
  return runResult;
}
int ScriptedNode::Yield(long) {
  if (onYield) {
    onYield();
  }
  return 0;
}
int ScriptedNode::Hold(long seconds) {
  holds += static_cast<int>(seconds);
  if (onHold) {
    onHold();
  }
  return 0;
}
int ScriptedNode::WatchDescriptor(int descriptor) {
  watched.push_back(descriptor);
  return 0;
}
int ScriptedNode::UnwatchDescriptor(int descriptor) {
  return std::erase(watched, descriptor) == 0 ? 1 : 0;
}
int ScriptedNode::ScheduleEvent(CMBEvent* event, long period, int repeat, long firstTime) {
  scheduled.push_back({event, period, repeat, firstTime});
  return 0;
}
int ScriptedNode::CancelEvent(CMBEvent* event, bool destroy) {
  const auto removed =
      std::erase_if(scheduled, [&](const ScheduledEvent& entry) { return entry.event == event; });
  if (destroy) {
    delete event;
  }
  return removed == 0 ? 1 : 0;
}
void ScriptedNode::RequestStop(int signal) noexcept { stopSignal = signal; }
