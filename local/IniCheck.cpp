#include "local/IniCheck.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>

#include "local/AlarmSettings.h"
#include "local/HttpSettings.h"
#include "local/NodeSettings.h"
#include "local/PushSettings.h"
#include "local/ini/IniText.h"

namespace {

constexpr const char* kNodeSection = "Node";
constexpr const char* kScheduleSection = "Schedule";

bool IsIn(const IniSetting& setting, const char* section) {
  return setting.subSection.empty() && IsSameName(setting.section, section);
}

/// The same text for all spellings of a setting's place.
std::string PlaceOf(const IniSetting& setting) {
  // A name holds no line end.
  std::string place = setting.section + '\n' + setting.subSection + '\n' + setting.key;
  std::transform(place.begin(), place.end(), place.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return place;
}

void AddRepeated(const std::vector<IniSetting>& settings, std::vector<IniProblem>& problems) {
  std::unordered_map<std::string, std::size_t> lines;
  for (const IniSetting& setting : settings) {
    const auto [first, isNew] = lines.emplace(PlaceOf(setting), setting.line);
    // The schedule tells its own.
    if (!isNew && !IsIn(setting, kScheduleSection)) {
      problems.push_back({setting.line, "\"" + setting.key + "\" stands in line " +
                                            std::to_string(first->second) +
                                            " already, which is the one that counts"});
    }
  }
}

/// What is wrong with the files that targets and receivers are told by.
std::vector<IniProblem> FileProblems(const LocalIniFile& ini, const std::filesystem::path& folder) {
  std::vector<IniProblem> problems =
      KeyFileProblems(ReadAlarmSettings(ini).keys, kAlarmSection, folder);
  for (const PushSettings& push : ReadPushSettings(ini)) {
    const std::vector<IniProblem> found = KeyFileProblems(push.keys, push.section, folder);
    problems.insert(problems.end(), found.begin(), found.end());
  }
  return problems;
}

}  // namespace

std::vector<ScheduleLine> ScheduleLines(const LocalIniFile& ini) {
  std::vector<ScheduleLine> lines;
  for (const IniSetting& setting : ini.Settings()) {
    if (IsIn(setting, kScheduleSection)) {
      lines.push_back({setting.key, setting.value, setting.line});
    }
  }
  return lines;
}

std::vector<IniProblem> SettingProblems(const LocalIniFile& ini,
                                        const std::filesystem::path& folder) {
  std::vector<IniProblem> problems;
  for (const std::vector<IniProblem>& found :
       {NodeProblems(ini), HttpProblems(ini), PushProblems(ini), AlarmProblems(ini),
        FileProblems(ini, folder)}) {
    problems.insert(problems.end(), found.begin(), found.end());
  }
  return problems;
}

IniListing ListIni(const LocalIniFile& ini, const std::filesystem::path& folder,
                   ScheduleBook& book) {
  IniListing listing;
  for (const IniFault& fault : ini.Faults()) {
    listing.problems.push_back(
        {fault.line, fault.problem + (fault.text.empty() ? "" : " (" + fault.text + ")")});
  }
  const std::vector<IniProblem> found = SettingProblems(ini, folder);
  listing.problems.insert(listing.problems.end(), found.begin(), found.end());
  book.Load(ScheduleLines(ini), [&](std::size_t line, const std::string& problem) {
    listing.problems.push_back({line, problem});
  });
  listing.settings = ini.Settings();
  AddRepeated(listing.settings, listing.problems);
  std::erase_if(listing.settings, [](const IniSetting& setting) {
    return IsIn(setting, kNodeSection) || IsIn(setting, kHttpSection) ||
           IsIn(setting, kScheduleSection) || IsIn(setting, kAlarmSection) ||
           (setting.subSection.empty() && IsPushSection(setting.section));
  });
  return listing;
}
