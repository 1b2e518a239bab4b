#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/ConfigNames.h"
#include "agent/UnixAgent.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr std::uint16_t kYesNoTable = 1;
constexpr std::uint16_t kKindTable = 1001;
constexpr std::uint16_t kApplicationTable = 1002;
constexpr std::size_t kYesNoWidth = 4;
constexpr std::size_t kKindWidth = 16;
constexpr std::size_t kApplicationWidth = 64;
constexpr int kPatternSize = 128;
constexpr int kRangeSize = 12;
constexpr int kAddedNameLength = 1;
constexpr int kFirstFlag = 0;
constexpr int kSecondFlag = 1;

/// Makes a child that the parent owns.
template <class Child, class... Args>
Child& Add(CMBNodeConfigBase& parent, Args&&... args) {
  auto child = std::make_unique<Child>(std::forward<Args>(args)...);
  parent.push_back(child.get());
  return *child.release();
}

void AddText(CMBNodeConfigBase& folder, int id, const char* label, const char* help,
             std::string value, int maxLength) {
  Add<CMBNodeConfigItem>(folder, static_cast<std::uint16_t>(id), label, help, value.data(),
                         maxLength, kFirstFlag, kSecondFlag);
}

void AddChoice(CMBNodeConfigBase& folder, int id, const char* label, const char* help,
               std::uint16_t table, int current, int flag) {
  Add<CMBNodeConfigItem>(folder, static_cast<std::uint16_t>(id), label, help, table,
                         static_cast<std::uint16_t>(current), flag);
}

/// Each entry is cut to width - 1 characters.
void AddTable(CMBNodeConfigBase& root, std::uint16_t id, std::size_t width,
              const std::vector<std::string>& entries) {
  std::string block(entries.size() * width, '\0');
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i].copy(block.data() + i * width, width - 1);
  }
  Add<CMBNodeConfigPossibleValues>(root, id, static_cast<int>(block.size()), block.data(),
                                   static_cast<int>(width));
}

int ShownApplications(const ApplicationMonitor& applications) {
  return std::min(applications.GetCount(), kMaxShownApplications);
}

std::string ProcessLabel(int process, const char* what) {
  std::array<char, 32> label{};
  std::snprintf(label.data(), label.size(), "Process%02d %s", process + 1, what);
  return label.data();
}

std::string RangeText(const ApplicationMonitor& applications, int application, int process) {
  const std::string text = std::to_string(applications.GetRangeMin(application, process)) + "-" +
                           std::to_string(applications.GetRangeMax(application, process));
  return text.substr(0, kRangeSize - 1);
}

void AddProcess(CMBNodeConfigBase& folder, const ApplicationMonitor& applications, int application,
                int process) {
  const int base =
      kFirstApplicationItemId + (process << kProcessShift) + (application << kApplicationShift);
  AddChoice(folder, base + kKindItem, ProcessLabel(process, "Kind").c_str(),
            "The specified type of the condition is displayed.", kKindTable,
            applications.GetKind(application, process), kFirstFlag);
  AddText(folder, base + kPatternItem, ProcessLabel(process, "Name").c_str(), "Process name.",
          applications.GetPattern(application, process), kPatternSize);
  AddText(folder, base + kRangeItem, ProcessLabel(process, "Range").c_str(),
          "The range conditions for each process. The conditions are displayed as \"Minimum "
          "value-Maximum value\".",
          RangeText(applications, application, process), kRangeSize);
}

void AddApplicationFolders(CMBNodeConfigBase& parent, const ApplicationMonitor& applications) {
  auto& folder = Add<CMBNodeConfigRequest>(parent, "Application monitoring setting", "");
  for (int application = 0; application < ShownApplications(applications); ++application) {
    auto& own = Add<CMBNodeConfigRequest>(folder, applications.GetName(application), "");
    for (int process = 0; process < ApplicationMonitor::kProcesses; ++process) {
      AddProcess(own, applications, application, process);
    }
  }
}

void AddListFolder(CMBNodeConfigBase& parent, const ApplicationMonitor& applications) {
  auto& folder = Add<CMBNodeConfigRequest>(parent, "ADDITION OR DELETION A SETTING", "");
  AddText(folder, kAddApplicationId, kAddApplicationLabel,
          "Input an Application monitoring setting to be ADD.", "", kAddedNameLength);
  AddChoice(folder, kDeleteApplicationId, kDeleteApplicationLabel,
            "Choose an Application monitoring setting to be DELETE.", kApplicationTable, 0,
            applications.GetCount() == 0 ? 1 : 0);
}

void AddTables(CMBNodeConfigBase& root, const ApplicationMonitor& applications) {
  AddTable(root, kYesNoTable, kYesNoWidth, {"Yes", "No"});
  AddTable(root, kKindTable, kKindWidth, {"None", "Execute", "Command Line"});
  std::vector<std::string> names{"None"};
  for (int application = 0; application < applications.GetCount(); ++application) {
    names.emplace_back(applications.GetName(application));
  }
  AddTable(root, kApplicationTable, kApplicationWidth, names);
}

}  // namespace

int UnixAgent::NotifyEvent(CMBNodeConfigRequest* event) {
  TraceEntry("UnixAgent::NotifyEvent", AddressOf(event));
  Trace(20, kInformation, "Processing configuration request parameters.");
  AddTables(*event, m_applications);
  auto& folder = Add<CMBNodeConfigRequest>(*event, "Agent Configuration", "");
  AddApplicationFolders(folder, m_applications);
  AddListFolder(folder, m_applications);
  if (HasUFSS()) {
    AddText(folder, kUFSSTimeId, kUFSSTimeLabel,
            "Daily time for PD UFSS record background data collection in the form HH:MM or "
            "\"Never\".",
            m_ufssTime, kShortText);
  }
  AddText(folder, kDataMaxCountId, kDataMaxCountLabel, "Maximum Number of User Defined Records",
          m_dataMaxCount, kShortText);
  Trace(20, kInformation, "Configuration request processing complete.");
  TraceExit("UnixAgent::NotifyEvent");
  return kNotifyDone;
}

void UnixAgent::addConfigLine(int id, const char* label, const char* section,
                              const char* defaultValue, const char* name, const char* help,
                              CMBNodeConfigBase& folder) {
  constexpr int kIdOffset = 101;
  std::optional<std::string> value;
  std::string shownHelp = help;
  if (const char* option = ProductOptions::Instance().Get(section, name); option != nullptr) {
    value = option;
  } else if (GetIniFile() != nullptr) {
    std::array<char, kLongText> buffer{};
    if (GetIniFile()->ReadString(buffer.data(), static_cast<int>(buffer.size()), name, section,
                                 nullptr, nullptr, 0) != 0) {
      value = buffer.data();
    }
  }
  if (!value && defaultValue != nullptr) {
    value = defaultValue;
    shownHelp += " (Default)";
  }
  AddText(folder, id < 0 ? -id : id + kIdOffset, label, shownHelp.c_str(),
          value.value_or("<attribute not set>"), kLongText);
}
