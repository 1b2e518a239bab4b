#include "local/NodeSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>

#include "local/HttpSettings.h"
#include "local/ini/IniSection.h"
#include "local/log/MessageLog.h"

namespace {

constexpr const char* kSection = "Node";
constexpr const char* kHistoryFile = "History File";
constexpr const char* kHistoryDays = "History Days";
constexpr const char* kHistoryMegabytes = "History Megabytes";

/// A setting that is a whole number.
struct NumberKey {
  const char* name;
  long least;
  long most;
};
constexpr std::array kNumberKeys{
    NumberKey{kLogLevelKey, 0, 999},     NumberKey{kDataLevelKey, 0, 999},
    NumberKey{kHistoryDays, 1, 3650},    NumberKey{kHistoryMegabytes, 1, 1 << 20},
    NumberKey{"Mount Timeout", 0, 3600},  // the agent reads it
};

const NumberKey* FindNumberKey(const std::string& key) {
  const auto found = std::ranges::find_if(
      kNumberKeys, [&](const NumberKey& row) { return IsSameName(key, row.name); });
  return found == kNumberKeys.end() ? nullptr : &*found;
}

std::optional<long> ReadNumber(const NumberKey& key, const std::string& text) {
  long value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = status == std::errc{} && end == text.data() + text.size();
  return isWhole && value >= key.least && value <= key.most ? std::optional(value) : std::nullopt;
}

}  // namespace

NodeSettings ReadNodeSettings(const LocalIniFile& ini) {
  const std::vector<IniSetting> section = SectionSettings(ini, kSection);
  NodeSettings settings;
  const auto readNumber = [&](const char* key, int& target) {
    if (const IniSetting* setting = FindSetting(section, key); setting != nullptr) {
      const auto value = ReadNumber(*FindNumberKey(key), setting->value);
      target = static_cast<int>(value.value_or(target));
    }
  };
  readNumber(kHistoryDays, settings.history.days);
  readNumber(kHistoryMegabytes, settings.history.megabytes);
  if (const IniSetting* setting = FindSetting(section, kHistoryFile); setting != nullptr) {
    settings.history.file = setting->value;
  }
  return settings;
}

std::vector<IniProblem> NodeProblems(const LocalIniFile& ini) {
  std::vector<IniProblem> problems;
  for (const IniSetting& setting : SectionSettings(ini, kSection)) {
    if (const NumberKey* key = FindNumberKey(setting.key); key != nullptr) {
      if (!ReadNumber(*key, setting.value)) {
        problems.push_back({setting.line, "\"" + setting.key + "\" must be " +
                                              std::to_string(key->least) + " to " +
                                              std::to_string(key->most) + ", not \"" +
                                              setting.value + "\""});
      }
    } else if (!IsSameName(setting.key, kHistoryFile) && !IsHttpKeyOfNode(setting.key)) {
      problems.push_back({setting.line, "no setting \"" + setting.key + "\" in [Node]"});
    }
  }
  return problems;
}
