#include "local/PushSettings.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "json/JsonText.h"
#include "json/RowText.h"
#include "local/SectionReader.h"
#include "local/control/SampleQueries.h"
#include "local/ini/IniSection.h"

namespace {

constexpr std::string_view kPushSection = "Push";
constexpr const char* kBareName = "push";
constexpr const char* kUrl = "Url";
constexpr const char* kPushRecords = "Records";
constexpr const char* kPushNames = "Names";
constexpr const char* kLabels = "Labels";
constexpr const char* kSpeed = "Megabytes per Second";
constexpr const char* kBatch = "Batch";
constexpr const char* kPushDays = "Days";

constexpr std::size_t kMostNameBytes = 64;
constexpr std::size_t kMostLabels = 32;
constexpr std::size_t kMostPushRecords = SampleQueries::kMostRecords;
constexpr long kLeastBatch = 100;
constexpr long kMostBatch = 100000;
constexpr long kUsualBatch = 10000;
constexpr long kMostPushDays = 3650;
constexpr double kLeastSpeed = 0.001;
constexpr double kMostSpeed = 10000;
constexpr double kBytesOfMegabyte = 1048576;

bool IsLetterOrDigit(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
         (letter >= '0' && letter <= '9');
}

bool IsTargetName(std::string_view name) {
  return !name.empty() && name.size() <= kMostNameBytes &&
         std::ranges::all_of(name, [](char letter) {
           return IsLetterOrDigit(letter) || letter == '-' || letter == '_';
         });
}

/// Names that begin with two underscores are those of the protocol.
bool IsLabelName(std::string_view name) {
  return !name.empty() && !(name.front() >= '0' && name.front() <= '9') &&
         !name.starts_with("__") && std::ranges::all_of(name, [](char letter) {
           return IsLetterOrDigit(letter) || letter == '_';
         });
}

std::string NameOf(std::string_view section) {
  return section.size() == kPushSection.size()
             ? kBareName
             : std::string(section.substr(kPushSection.size() + 1));
}

/// The sections of targets with their settings, as they come first in the file.
std::vector<std::vector<IniSetting>> PushSections(const LocalIniFile& ini) {
  std::vector<std::vector<IniSetting>> sections;
  for (IniSetting& setting : ini.Settings()) {
    if (!setting.subSection.empty() || !IsPushSection(setting.section)) {
      continue;
    }
    const auto same = std::ranges::find_if(sections, [&](const std::vector<IniSetting>& section) {
      return IsSameName(section.front().section, setting.section);
    });
    if (same == sections.end()) {
      sections.push_back({std::move(setting)});
    } else {
      same->push_back(std::move(setting));
    }
  }
  return sections;
}

void ReadLabels(SectionReader& section, PushSettings& push) {
  const IniSetting* const setting = section.Find(kLabels);
  std::string_view rest = setting == nullptr ? std::string_view() : setting->value;
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
    const std::size_t mark = pair.find('=');
    const std::string name(Trimmed(pair.substr(0, mark)));
    const std::string value(mark == std::string_view::npos ? "" : Trimmed(pair.substr(mark + 1)));
    const bool isRepeated =
        std::ranges::any_of(push.labels, [&](const auto& label) { return label.first == name; });
    if (!IsLabelName(name) || value.empty() || isRepeated || ValidUtf8(value) != value ||
        push.labels.size() == kMostLabels) {
      section.NoteWrong(*setting, "NAME=VALUE parted by commas, each name once, " +
                                      std::to_string(kMostLabels) + " at most");
      return;
    }
    push.labels.emplace_back(name, value);
  }
}

std::uint64_t ReadSpeed(SectionReader& section) {
  const IniSetting* const setting = section.Find(kSpeed);
  if (setting == nullptr) {
    return 0;
  }
  const std::string& text = setting->value;
  double value = 0;
  const auto [end, status] =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed);
  const bool isNumber = status == std::errc{} && end == text.data() + text.size();
  if (!isNumber || !(value == 0 || (value >= kLeastSpeed && value <= kMostSpeed))) {
    section.NoteWrong(*setting, "0 for no limit, or 0.001 to 10000");
    return 0;
  }
  return static_cast<std::uint64_t>(std::llround(value * kBytesOfMegabyte));
}

void ReadNames(SectionReader& section, PushSettings& push) {
  const IniSetting* const setting = section.Find(kPushNames);
  push.hasNodeNames = setting != nullptr && IsSameName(setting->value, "node");
  push.namesLine = setting == nullptr ? 0 : setting->line;
  if (setting != nullptr && !push.hasNodeNames && !IsSameName(setting->value, "agent")) {
    section.NoteWrong(*setting, "agent or node");
  }
}

void ReadRecords(SectionReader& section, PushSettings& push) {
  const IniSetting* const setting = section.Find(kPushRecords);
  if (setting == nullptr) {
    return;
  }
  push.records = SettingWords(setting->value);
  push.recordsLine = setting->line;
  if (push.records->size() > kMostPushRecords) {
    section.NoteWrong(*setting, "at most " + std::to_string(kMostPushRecords) + " records");
  }
}

struct ReadTarget {
  PushSettings push;
  std::vector<IniProblem> problems;
};

ReadTarget ReadSection(const std::vector<IniSetting>& settings) {
  const std::string& title = settings.front().section;
  const std::size_t line = settings.front().line;
  SectionReader section(title, settings);
  PushSettings push;
  push.section = title;
  push.name = NameOf(title);
  push.recordsLine = line;
  if (!IsTargetName(push.name)) {
    section.Note(line,
                 "a name has 1 to " + std::to_string(kMostNameBytes) + " letters, digits, - and _");
  }
  if (section.Find(kUrl) == nullptr) {
    section.Note(line, std::string("there must be a \"") + kUrl + "\"");
  }
  push.url = section.Url(kUrl);
  ReadRecords(section, push);
  ReadNames(section, push);
  push.keys = ReadSendingKeys(section);
  ReadClientKeys(section, push.keys);
  ReadLabels(section, push);
  push.bytesPerSecond = ReadSpeed(section);
  push.batch =
      static_cast<std::size_t>(section.Whole(kBatch, kLeastBatch, kMostBatch, kUsualBatch));
  push.days = static_cast<int>(section.Whole(kPushDays, 0, kMostPushDays, 0));
  return {std::move(push), section.Finish()};
}

std::vector<ReadTarget> ReadTargets(const LocalIniFile& ini) {
  std::vector<ReadTarget> targets;
  std::size_t good = 0;
  for (const std::vector<IniSetting>& settings : PushSections(ini)) {
    ReadTarget target = ReadSection(settings);
    const bool isRepeated = std::ranges::any_of(targets, [&](const ReadTarget& other) {
      return IsSameName(other.push.name, target.push.name);
    });
    if (isRepeated) {
      target.problems.push_back(
          {settings.front().line, "[" + settings.front().section + "]: its name is taken already"});
    }
    if (target.problems.empty() && ++good > kMostPushTargets) {
      target.problems.push_back(
          {settings.front().line, "[" + settings.front().section + "]: there are more than " +
                                      std::to_string(kMostPushTargets) + " targets"});
    }
    for (IniProblem& problem : target.problems) {
      problem.text += kNotPushed;
    }
    targets.push_back(std::move(target));
  }
  return targets;
}

}  // namespace

bool IsPushSection(std::string_view section) {
  return IsSameName(section, kPushSection) ||
         (section.size() > kPushSection.size() && section[kPushSection.size()] == '.' &&
          IsSameName(section.substr(0, kPushSection.size()), kPushSection));
}

std::vector<PushSettings> ReadPushSettings(const LocalIniFile& ini) {
  std::vector<PushSettings> settings;
  for (ReadTarget& target : ReadTargets(ini)) {
    if (target.problems.empty()) {
      settings.push_back(std::move(target.push));
    }
  }
  return settings;
}

std::vector<IniProblem> PushProblems(const LocalIniFile& ini) {
  std::vector<IniProblem> problems;
  for (const ReadTarget& target : ReadTargets(ini)) {
    problems.insert(problems.end(), target.problems.begin(), target.problems.end());
  }
  return problems;
}

Json PushJson(const PushSettings& push, const std::vector<std::string>& records,
              std::string (*path)(const std::string&)) {
  Json labels = Json::Object();
  for (const auto& [name, value] : push.labels) {
    labels[name] = value;
  }
  return Json{{"name", push.name},
              {"url", push.url},
              {"records", records},
              {"names", push.hasNodeNames ? "node" : "agent"},
              {"user", push.keys.user},
              {"password_file", path(push.keys.passwordFile.path)},
              {"token_file", path(push.keys.tokenFile.path)},
              {"authority", path(push.keys.authority.path)},
              {"client_certificate", path(push.keys.clientCertificate.path)},
              {"client_key", path(push.keys.clientKey.path)},
              {"labels", std::move(labels)},
              {"bytes_per_second", push.bytesPerSecond},
              {"batch", push.batch},
              {"days", push.days}};
}
