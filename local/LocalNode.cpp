#include "local/LocalNode.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <utility>

#include "json/JsonText.h"
#include "json/RowCondition.h"
#include "local/AlarmCheck.h"
#include "local/AlarmSettings.h"
#include "local/GateSettings.h"
#include "local/IniCheck.h"
#include "local/PushTargets.h"
#include "local/log/ErrorStream.h"
#include "node/MessageCatalog.h"
#include "support/ProgramBeside.h"

namespace {

constexpr const char* kIniDirectory = ".";
constexpr const char* kIniName = "qmtagt.ini";
constexpr const char* kAlarmStates = "alarms.state";
constexpr int kBuildFailedMessage = CatalogEntry(10300).number;

std::string TextOf(const char* text) { return text == nullptr ? std::string() : text; }

/// Empty if the system doesn't tell.
std::string ReadHostName() {
  std::array<char, 256> buffer{};
  return ::gethostname(buffer.data(), buffer.size() - 1) == 0 ? buffer.data() : "";
}

std::string FaultText(const std::string& path, const IniFault& fault) {
  std::string text = path;
  if (fault.line != 0) {
    text += ":" + std::to_string(fault.line);
  }
  text += ": " + fault.problem;
  return fault.text.empty() ? text : text + " (" + fault.text + ")";
}

std::string PlaceText(const std::string& path, const IniProblem& problem) {
  return path + ":" + std::to_string(problem.line) + ": " + problem.text;
}

/// The socket for all; `gate` need not be made yet.
ControlSettings SocketSettings(const GateRun& gate) {
  ControlSettings settings;
  settings.isGate = [&gate](const PeerIdentity& peer) { return gate.IsGate(peer); };
  return settings;
}

}  // namespace

LocalNode::LoopParts::LoopParts(const ProblemReport& report)
    : desk(loop),
      history(report),
      sinks({&lastRows, &history}),
      schedule(loop, desk, sinks),
      alarms(loop, desk, schedule, lastRows, history, report),
      operations(loop, desk, schedule, lastRows, history),
      server(loop, operations, SocketSettings(gate), report),
      gate(loop, operations, report),
      watches(loop, report),
      timers(loop),
      manager(loop) {
  sinks.Add(operations.Followers());
  sinks.Add(alarms);
  operations.ServeAlarms(alarms);
  operations.Followers().OnProblem(report);
  operations.TheGate().OnProblem(report);
  // The words are made while there is memory for them.
  loop.OnNoMemory(
      [report, words = std::string("Out of memory: what was under way has been given up.")] {
        report(words);
      });
}

LocalNode::LoopParts& LocalNode::Parts() {
  if (m_parts == nullptr) {
    m_parts = std::make_unique<LoopParts>([this](const std::string& problem) { Report(problem); });
    m_parts->operations.TheGate().SetLog([this](std::size_t count) {
      return m_log == nullptr ? std::vector<RecentMessage>{} : m_log->Recent().Last(count);
    });
  }
  return *m_parts;
}

void LocalNode::Report(const std::string& problem) {
  if (m_log != nullptr) {
    m_log->Note(MessageLog::kOperatorLevel, kWarning, problem);
  }
}

int LocalNode::DebugInit(const ServiceRegistration&) {
  std::string error;
  const std::unique_ptr<LocalIniFile> ini = LocalIniFile::Open(kIniDirectory, kIniName, error);
  MessageLogSettings settings;
  if (ini != nullptr) {
    ReadLogLevels(*ini, settings);
  }
  m_log = std::make_unique<MessageLog>(settings);
  if (ini == nullptr) {
    Report(error);
  } else {
    for (const IniProblem& problem : SettingProblems(*ini, kIniDirectory)) {
      Report(PlaceText(kIniName, problem));
    }
  }
  return PlayCapture() ? 0 : -1;
}

int LocalNode::MsgLogLevel(int* level) {
  if (m_log == nullptr) {
    return -1;
  }
  *level = m_log->LogLevel();
  return 0;
}

int LocalNode::MsgDataLevel(int* level) {
  if (m_log == nullptr) {
    return -1;
  }
  *level = m_log->DataLevel();
  return 0;
}

void LocalNode::DebugTerm() {
  m_parts.reset();
  m_log.reset();
}

void LocalNode::PrintMsg(const MessageLine& line) {
  // The contract has no other way to tell that one record of a batch failed.
  if (line.number == kBuildFailedMessage && line.argCount > 0 && m_parts != nullptr) {
    m_parts->desk.NoteFailedBuild(TextOf(line.args[0]));
  }
  if (m_log != nullptr) {
    m_log->PrintMsg(line);
  } else if (line.level <= MessageLog::kOperatorLevel) {
    // Before the log is open and after its end.
    const std::string text = ExpandMessage(line.format, line.argCount, line.args);
    ErrorStream(STDERR_FILENO).Write(text + '\n');
  }
}

short LocalNode::PrintDat(const char* data, int length, int level, int kind, int* written) {
  if (m_log == nullptr) {
    return -1;
  }
  return m_log->PrintDat(data, length, level, kind, written);
}

void LocalNode::AssertLog(const char* expression, const char* file, int line) {
  if (m_log != nullptr) {
    m_log->AssertLog(expression, file, line);
  }
}

short LocalNode::StatInitialize(char first, char second, char third) {
  m_status = std::make_unique<ServiceStatus>();
  const short result = m_status->Initialize(first, second, third);
  if (!m_status->Reason().empty()) {
    Report(m_status->Reason());
  }
  return result;
}

int LocalNode::StatSetStatus(short status, const char* file, int line, short& out) {
  return m_status == nullptr ? -1 : m_status->SetStatus(status, file, line, out);
}

void LocalNode::StatTerminate() {
  if (m_status != nullptr) {
    m_status->Terminate();
  }
}

int LocalNode::HostName(char* out, int size) {
  if (out == nullptr || size < 1) {
    return -1;
  }
  const std::string name = ReadHostName();
  const std::size_t length = std::min(name.size(), static_cast<std::size_t>(size) - 1);
  std::memcpy(out, name.data(), length);
  out[length] = '\0';
  return name.empty() ? -1 : 0;
}

int LocalNode::Connect(CMBAgent&, const AgentIdentity& identity) {
  m_nodeId =
      std::string(1, static_cast<char>(identity.productId)) + "/" + TextOf(identity.instance);
  DaemonFacts facts;
  facts.node = m_nodeId;
  facts.host = ReadHostName();
  Parts().operations.SetFacts(std::move(facts));
  std::string error;
  if (m_capture == nullptr && !Parts().server.Open(error)) {
    Report(error);
    return -1;
  }
  return 0;
}

std::unique_ptr<CMBIniFile> LocalNode::OpenIniFile(const char* directory, const char* name) {
  m_iniDirectory = directory;
  m_iniName = name;
  std::string error;
  std::unique_ptr<LocalIniFile> ini = LocalIniFile::Open(directory, name, error);
  if (ini == nullptr) {
    Report(error);
    return nullptr;
  }
  for (const IniFault& fault : ini->Faults()) {
    Report(FaultText(ini->Path(), fault));
  }
  ini->OnWriteProblem([this](const std::string& problem) { Report(problem); });
  return ini;
}

IniListing LocalNode::ListIniFile(const char* path) {
  const std::filesystem::path file(path);
  const std::string folder = file.has_parent_path() ? file.parent_path().string() : kIniDirectory;
  std::string error;
  const std::unique_ptr<LocalIniFile> ini =
      LocalIniFile::Open(folder, file.filename().string(), error);
  if (ini == nullptr) {
    return {error, {}, {}};
  }
  LoopParts parts([](const std::string&) {});
  IniListing listing = ListIni(*ini, folder, parts.schedule);
  const HttpSettings settings = ReadHttpSettings(*ini, false);
  parts.operations.Metrics().Configure(
      settings.records.value_or(std::vector<std::string>{}), [&](const std::string& problem) {
        listing.problems.push_back({settings.recordsLine, problem});
      });
  const std::vector<IniProblem> found = ReadPushTargets(*ini).problems;
  listing.problems.insert(listing.problems.end(), found.begin(), found.end());
  return listing;
}

IniListing LocalNode::ListAlarmFile(const char* path) {
  LoopParts parts([](const std::string&) {});
  return ListAlarms(path, parts.schedule);
}

void LocalNode::EventText(const char* text) {
  if (m_log != nullptr) {
    m_log->EventText(text);
  }
}

void LocalNode::DebugText(const char* file, int line, const char* text) {
  if (m_log != nullptr) {
    m_log->DebugText(file, line, text);
  }
}

void LocalNode::LoadSettings() {
  std::string error;
  const std::unique_ptr<LocalIniFile> ini =
      LocalIniFile::Open(m_iniDirectory.empty() ? kIniDirectory : m_iniDirectory,
                         m_iniName.empty() ? kIniName : m_iniName, error);
  if (ini == nullptr) {
    Report(error);
    return;
  }
  Parts().operations.SetIniFile(m_iniDirectory.empty() ? kIniDirectory : m_iniDirectory,
                                m_iniName.empty() ? kIniName : m_iniName);
  if (!ini->HasSection("Schedule") && !WriteDefaultSchedule(*ini, error)) {
    Report(error);
  }
  Parts().history.Configure(ReadNodeSettings(*ini).history);
  const HttpSettings http = ReadHttpSettings(*ini, Parts().manager.IsThere());
  ConfigureMetrics(http);
  StartGate(http, *ini);
  Parts().schedule.Load(ini->Path(), ScheduleLines(*ini),
                        [this](const std::string& problem) { Report(problem); });
  StartAlarms(*ini);
}

void LocalNode::ConfigureMetrics(const HttpSettings& settings) {
  MetricsDesk& metrics = Parts().operations.Metrics();
  if (settings.records) {
    metrics.Configure(*settings.records, [this](const std::string& problem) { Report(problem); });
    return;
  }
  metrics.Configure(UsualRecords(), [](const std::string&) {});
}

void LocalNode::StartAlarms(const LocalIniFile& ini) {
  const AlarmSettings settings = ReadAlarmSettings(ini);
  const std::filesystem::path folder(m_iniDirectory.empty() ? kIniDirectory : m_iniDirectory);
  AlarmBookSettings book;
  book.file = (folder / settings.file).lexically_normal().string();
  book.isRequired = settings.isFileNamed;
  book.statesFile = std::filesystem::path(Parts().history.Settings().file)
                        .replace_filename(kAlarmStates)
                        .string();
  if (Parts().manager.IsThere() && !settings.command.empty()) {
    Report(
        "[Alarms]: Command: the service manager's rules for the daemon's unit may bar it from the "
        "network, from mailing and from writing files (see docs/alarms.md)");
  }
  book.command = {settings.command, std::chrono::seconds(settings.commandSeconds),
                  static_cast<std::size_t>(settings.commands)};
  Parts().alarms.OnChange([this](const Json& alarm) { TellAlarm(alarm); });
  Parts().alarms.OnOff([this](const AlarmDefinition& definition, const std::string& why) {
    TellNumbered(CatalogEntry(10702).number, {definition.name, why});
  });
  Parts().alarms.Configure(std::move(book));
}

void LocalNode::TellAlarm(const Json& alarm) {
  std::string key;
  for (const JsonMember& member : alarm["key"].Members()) {
    key += (key.empty() ? "" : ", ") + ShownValue(member.value, false);
  }
  const bool isBegin = alarm["until"].IsNull();
  TellNumbered(isBegin ? CatalogEntry(10700).number : CatalogEntry(10701).number,
               {alarm["alarm"].Text(), JsonText(alarm["id"]), alarm["severity"].Text(),
                std::move(key), alarm["text"].Text()});
}

void LocalNode::TellNumbered(int number, const std::vector<std::string>& arguments) {
  const auto entry = std::ranges::find(kMessageCatalog, number, &CatalogMessage::number);
  std::vector<const char*> texts;
  texts.reserve(arguments.size());
  for (const std::string& argument : arguments) {
    texts.push_back(argument.c_str());
  }
  MessageLine line;
  line.number = number;
  line.level = entry->level;
  line.kind = entry->kind;
  line.format = entry->text;
  line.argCount = static_cast<int>(texts.size());
  line.args = texts.data();
  PrintMsg(line);
}

std::vector<PushTarget> LocalNode::PreparePushes(const LocalIniFile& ini) {
  PushTargets read = ReadPushTargets(ini);
  for (const IniProblem& problem : read.problems) {
    Report(PlaceText(ini.Path(), problem));
  }
  std::set<std::string> withTotals;
  for (const PushTarget& target : read.targets) {
    std::ranges::copy_if(target.records, std::inserter(withTotals, withTotals.end()),
                         [](const std::string& record) {
                           const auto* layout = LayoutRegistry::Instance().Find(record);
                           return layout != nullptr && HoldsGrowth(*layout);
                         });
  }
  Parts().schedule.KeepTotals(std::move(withTotals));
  return std::move(read.targets);
}

void LocalNode::StartGate(const HttpSettings& settings, const LocalIniFile& ini) {
  const std::vector<PushTarget> targets = PreparePushes(ini);
  const AlarmSettings alarms = ReadAlarmSettings(ini);
  if (alarms.lacksReceivers) {
    Report(ini.Path() +
           ": [Alarms]: Alertmanager and Webhook are left out, since the settings of who asks "
           "are wrong (see qmtctl check)");
  }
  const bool sends = !targets.empty() || !alarms.alertmanagers.empty() || !alarms.webhooks.empty();
  Parts().operations.TheGate().SetFacts(GateFactsOf(settings, targets, alarms));
  if (settings.gate == GateMode::kUnit) {
    Parts().gate.Expect();
  }
  if (settings.gate == GateMode::kNone && sends) {
    Report("Gate = none: nothing of sections Push and Alarms is sent");
  }
  if (settings.gate != GateMode::kChild || (settings.listen.empty() && !sends)) {
    return;
  }
  if (Parts().manager.IsThere()) {
    Report(
        "Gate = child: the service manager's rules for the daemon's unit may bar qmt_gate from "
        "the network (Gate = unit has it started by itself)");
  }
  const std::string program = FindProgramBeside("qmt_gate", "gate");
  if (program.empty()) {
    Report("qmt_gate is not there beside the daemon: nothing is served by HTTP");
    return;
  }
  Parts().gate.Start(program);
}

void LocalNode::Leave(LoopParts& parts) {
  parts.loop.Try([&parts] { parts.manager.Stopping(); });
  parts.schedule.Stop();
  parts.alarms.Stop();
  parts.gate.Terminate();
  parts.server.Close();
  parts.loop.Try([&parts] { parts.gate.Wait(); });
}

int LocalNode::Run(CMBRunnableNode& node) {
  if (m_capture != nullptr) {
    MakeCapture(node);
    return m_capture->problem.empty() ? 0 : 1;
  }
  LoadSettings();
  Parts().schedule.Start();
  Parts().manager.Ready();
  Parts().operations.Memory().NoteRareWork();
  Parts().loop.Run(node);
  Leave(Parts());
  return 0;
}

int LocalNode::Yield(long seconds) {
  if (m_parts != nullptr) {
    m_parts->loop.Yield(seconds);
  }
  return 0;
}

int LocalNode::Hold(long seconds) {
  return m_parts != nullptr && m_parts->loop.Hold(seconds) ? 0 : 1;
}

int LocalNode::WatchDescriptor(int descriptor) { return Parts().watches.Watch(descriptor); }

int LocalNode::UnwatchDescriptor(int descriptor) {
  return m_parts == nullptr ? 1 : m_parts->watches.Unwatch(descriptor);
}

int LocalNode::ScheduleEvent(CMBEvent* event, long period, int repeat, long firstTime) {
  return Parts().timers.Schedule(event, period, repeat, firstTime);
}

int LocalNode::CancelEvent(CMBEvent* event, bool destroy) {
  return m_parts == nullptr ? 1 : m_parts->timers.Cancel(event, destroy);
}

void LocalNode::RequestStop(int) noexcept { EventLoop::RequestStop(); }
