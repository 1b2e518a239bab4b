#include "process/ApplicationMonitor.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "support/AgentUtil.h"
#include "support/TraceLog.h"

namespace {

constexpr int kRangeEnd = 65536;

/// Whether a field of the file can hold the text.
bool IsStorable(const char* text) { return std::strpbrk(text, "\t\n") == nullptr; }

bool IsWatched(const ProcessCondition& condition) {
  return condition.kind == ApplicationMonitor::kProgram ||
         condition.kind == ApplicationMonitor::kCommandLine;
}

bool Matches(const ProcessCondition& condition, const char* subject) {
  const char* pattern = condition.pattern.c_str();
  return std::strpbrk(pattern, "?*") == nullptr ? std::strcmp(pattern, subject) == 0
                                                : WildcardMatch(pattern, subject);
}

/// Takes the decimal digits at the front of `text`. False without any, or with too many.
bool TakeNumber(std::string_view& text, int& number) {
  if (text.empty() || text.front() < '0' || text.front() > '9') {
    return false;
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc{};
}

/// "5", "5-7" or "5,7".
bool ParseRange(std::string_view text, int& low, int& high) {
  if (!TakeNumber(text, low)) {
    return false;
  }
  high = low;
  if (!text.empty()) {
    if (text.front() != '-' && text.front() != ',') {
      return false;
    }
    text.remove_prefix(1);
    if (!TakeNumber(text, high) || !text.empty()) {
      return false;
    }
  }
  return low <= high && high < kRangeEnd;
}

}  // namespace

const ApplicationMonitor::ApplicationEntry& ApplicationMonitor::At(int application) const {
  static const ApplicationEntry none;
  return application >= 0 && application < GetCount()
             ? m_applications[static_cast<std::size_t>(application)]
             : none;
}

const ProcessCondition& ApplicationMonitor::At(int application, int process) const {
  static const ProcessCondition none;
  return process >= 0 && process < kProcesses
             ? At(application).processes[static_cast<std::size_t>(process)]
             : none;
}

ProcessCondition* ApplicationMonitor::Find(int application, int process) {
  if (application < 0 || application >= GetCount() || process < 0 || process >= kProcesses) {
    return nullptr;
  }
  return &m_applications[static_cast<std::size_t>(application)]
              .processes[static_cast<std::size_t>(process)];
}

const char* ApplicationMonitor::GetName(int application) const {
  return At(application).name.c_str();
}
int ApplicationMonitor::GetStatus(int application) const { return At(application).status; }
int ApplicationMonitor::GetExist(int application) const { return At(application).exist; }
int ApplicationMonitor::GetState(int application, int process) const {
  return At(application, process).state;
}
int ApplicationMonitor::GetProcessCount(int application, int process) const {
  return At(application, process).count;
}
int ApplicationMonitor::GetRangeMax(int application, int process) const {
  return At(application, process).rangeMax;
}
int ApplicationMonitor::GetRangeMin(int application, int process) const {
  return At(application, process).rangeMin;
}
int ApplicationMonitor::GetKind(int application, int process) const {
  return At(application, process).kind;
}
const char* ApplicationMonitor::GetPattern(int application, int process) const {
  return At(application, process).pattern.c_str();
}

int ApplicationMonitor::add(const char* name) {
  TraceEntry("ApplicationMonitor::add", name);
  if (GetCount() >= kMaxApplications || name == nullptr || name[0] == '\0' || !IsStorable(name)) {
    TraceExit("ApplicationMonitor::add");
    return 0;
  }
  ApplicationEntry entry;
  entry.name = name;
  const auto hasSameName = [&entry](const ApplicationEntry& other) {
    return std::strcmp(entry.name.c_str(), other.name.c_str()) == 0;
  };
  if (std::any_of(m_applications.begin(), m_applications.end(), hasSameName)) {
    TraceExit("ApplicationMonitor::add");
    return 0;
  }
  m_applications.push_back(entry);
  TraceExit("ApplicationMonitor::add");
  return 1;
}

int ApplicationMonitor::remove(int index) {
  TraceEntry("ApplicationMonitor::remove", index);
  if (index < 0 || index >= GetCount()) {
    TraceExit("ApplicationMonitor::remove");
    return 0;
  }
  m_applications.erase(m_applications.begin() + index);
  TraceExit("ApplicationMonitor::remove");
  return 1;
}

void ApplicationMonitor::SetKind(int application, int process, Kind kind) {
  if (ProcessCondition* condition = Find(application, process)) {
    condition->kind = static_cast<std::uint8_t>(kind);
  }
}

int ApplicationMonitor::SetPattern(int application, int process, const char* pattern) {
  ProcessCondition* condition = Find(application, process);
  if (condition == nullptr || !IsStorable(pattern)) {
    return 0;
  }
  condition->pattern = pattern;
  return 1;
}

int ApplicationMonitor::SetRange(int application, int process, const char* text) {
  ProcessCondition* condition = Find(application, process);
  if (condition == nullptr) {
    return 0;
  }
  if (text == nullptr || text[0] == '\0') {
    return 1;
  }
  int low = 0;
  int high = 0;
  if (!ParseRange(text, low, high)) {
    return 0;
  }
  condition->rangeMin = low;
  condition->rangeMax = high;
  return 1;
}

void ApplicationMonitor::begin() {
  TraceEntry("ApplicationMonitor::begin");
  if (!m_isCollecting) {
    for (ApplicationEntry& application : m_applications) {
      application.status = application.exist = kUnknown;
      for (ProcessCondition& condition : application.processes) {
        condition.state = kUnknown;
        condition.count = 0;
      }
    }
    m_isAnyCounted = false;
  }
  m_isCollecting = true;
  TraceExit("ApplicationMonitor::begin");
}

void ApplicationMonitor::countProcess(const char* programName, const char* arguments) {
  if (!m_isCollecting || programName == nullptr || programName[0] == '\0') {
    return;
  }
  m_isAnyCounted = true;
  for (ApplicationEntry& application : m_applications) {
    for (ProcessCondition& condition : application.processes) {
      if (IsWatched(condition) &&
          Matches(condition, condition.kind == kProgram ? programName : arguments)) {
        ++condition.count;
      }
    }
  }
}

void ApplicationMonitor::end() {
  TraceEntry("ApplicationMonitor::end");
  m_isCollecting = false;
  if (m_isAnyCounted) {
    std::for_each(m_applications.begin(), m_applications.end(), Evaluate);
    m_isAnyCounted = false;
  }
  TraceExit("ApplicationMonitor::end");
}

void ApplicationMonitor::Evaluate(ApplicationEntry& application) {
  application.status = kNormal;
  application.exist = kAbnormal;
  for (ProcessCondition& condition : application.processes) {
    if (!IsWatched(condition)) {
      continue;
    }
    if (condition.rangeMin <= condition.count && condition.count <= condition.rangeMax) {
      condition.state = kNormal;
      application.exist = kNormal;
    } else {
      condition.state = kAbnormal;
      application.status = kAbnormal;
    }
  }
}
