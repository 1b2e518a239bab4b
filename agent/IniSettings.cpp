#include "agent/IniSettings.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "agent/DayTime.h"
#include "node/Trace.h"
#include "support/HostProfile.h"
#include "support/UserFileSemaphore.h"

namespace {

/// Settings outside of section "Agent": what user records and log records take.
struct RecordSection {
  const char* section;
  std::array<const char*, 4> subSections;
  std::array<const char*, 6> keys;
};
constexpr std::array kRecordSections{
    RecordSection{"Interval Records",
                  {"UPI", "UPIB"},
                  {"Flushtime", "Datamaxcount", "Pipedir", "Pipeuser", "Pipegroup", "Pipemode"}},
    RecordSection{"Detail Records",
                  {"UPD", "UPDB"},
                  {"Flushtime", "Datamaxcount", "Pipedir", "Pipeuser", "Pipegroup", "Pipemode"}},
    RecordSection{"Log Records", {"MESS"}, {"Eventfile"}},
};

bool IsSame(const std::string& left, const char* right) {
  return right != nullptr && xlb_stricmp(left.c_str(), right) == 0;
}

template <class Names>
bool IsAmong(const std::string& name, const Names& names) {
  return std::any_of(names.begin(), names.end(), [&](const char* n) { return IsSame(name, n); });
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

std::string SectionName(const IniSetting& setting) {
  return "[" + setting.section + (setting.subSection.empty() ? "" : "/" + setting.subSection) + "]";
}

std::string UnknownKey(const IniSetting& setting) {
  return "no setting " + Quoted(setting.key) + " in " + SectionName(setting);
}

std::string TextProblem(const IniSetting& setting, const AgentTextSetting& text) {
  std::string value = setting.value.substr(0, text.size - 1);
  if (value.empty() && *text.defaultValue != '\0') {
    return Quoted(setting.key) + " is empty, so it becomes " + Quoted(text.defaultValue);
  }
  if (text.isTime && isValidTime(value.data()) == 0) {
    return Quoted(setting.value) + " is neither a time as HH:MM nor \"Never\", so it becomes " +
           Quoted(text.defaultValue);
  }
  if (setting.value.size() >= text.size) {
    return Quoted(setting.key) + " takes " + std::to_string(text.size - 1) +
           (text.size == kLetter ? " byte" : " bytes") + ", the rest is cut off";
  }
  return "";
}

std::string CountProblem(const IniSetting& setting) {
  // A number too great for the agent is its greatest one.
  const std::string& value = setting.value;
  long count = 0;
  const auto [end, status] = std::from_chars(value.data() + (value.starts_with('+') ? 1 : 0),
                                             value.data() + value.size(), count);
  const bool isNumber = status != std::errc::invalid_argument && end == value.data() + value.size();
  const bool isGreat = status == std::errc::result_out_of_range && !value.starts_with('-');
  return isNumber && (isGreat || count >= 1)
             ? ""
             : Quoted(value) + " is no whole number from 1 on, so it becomes " +
                   std::to_string(kDefaultDataMaxCount);
}

std::string RangeProblem(const std::string& value, long least, long most) {
  long number = 0;
  const auto [end, status] = std::from_chars(value.data(), value.data() + value.size(), number);
  const bool isWhole = status == std::errc{} && end == value.data() + value.size();
  return isWhole && number >= least && number <= most
             ? ""
             : Quoted(value) + " is no whole number from " + std::to_string(least) + " to " +
                   std::to_string(most) + ", so the default holds";
}

std::string HostProblem(const IniSetting& setting) {
  if (IsSame(setting.key, kGroupDepthLabel)) {
    return RangeProblem(setting.value, 0, kMostGroupDepth);
  }
  if (IsSame(setting.key, kProcessRefreshLabel)) {
    return RangeProblem(setting.value, 1, kMostProcessRefresh);
  }
  if (IsSame(setting.key, kProcessSourceLabel)) {
    return IsProcessSource(setting.value)
               ? ""
               : Quoted(setting.value) +
                     " is none of \"auto\", \"proc\" and \"iterator\", so it means \"auto\"";
  }
  return UnknownKey(setting);
}

std::string AgentProblem(const IniSetting& setting) {
  if (IsSame(setting.key, kDataMaxCountLabel)) {
    return CountProblem(setting);
  }
  if (IsSame(setting.key, kGuardModeLabel)) {
    return ParseGuardMode(setting.value)
               ? ""
               : Quoted(setting.value) + " is none of 0600, 0660 and 0666, so it means 0666";
  }
  for (const AgentTextSetting& text : kAgentTextSettings) {
    if (IsSame(setting.key, text.label)) {
      return TextProblem(setting, text);
    }
  }
  return UnknownKey(setting);
}

std::string Problem(const IniSetting& setting) {
  if (IsSame(setting.section, kAgentSection) && setting.subSection.empty()) {
    return AgentProblem(setting);
  }
  if (IsHostProfile(setting)) {
    return ProfileProblem(setting.value);
  }
  if (IsSame(setting.section, kHostSection) && setting.subSection.empty()) {
    return HostProblem(setting);
  }
  for (const RecordSection& record : kRecordSections) {
    if (IsSame(setting.section, record.section) &&
        IsAmong(setting.subSection, record.subSections)) {
      return IsAmong(setting.key, record.keys) ? "" : UnknownKey(setting);
    }
  }
  return "nothing reads the settings of " + SectionName(setting);
}

}  // namespace

bool IsHostProfile(const IniSetting& setting) {
  return IsSame(setting.section, kHostSection) && setting.subSection.empty() &&
         IsSame(setting.key, kProfileLabel);
}

bool IsProcessSource(const std::string& value) {
  return value == "auto" || value == "proc" || value == "iterator";
}

std::string ProfileProblem(const std::string& value) {
  return HostProfileOf(value)
             ? ""
             : Quoted(value) + " is neither \"classic\" nor \"modern\", so it means \"classic\"";
}

std::vector<IniProblem> AgentSettingProblems(std::span<const IniSetting> settings) {
  std::vector<IniProblem> problems;
  for (const IniSetting& setting : settings) {
    if (std::string problem = Problem(setting); !problem.empty()) {
      problems.push_back({setting.line, std::move(problem)});
    }
  }
  return problems;
}
