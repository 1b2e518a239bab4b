#include "local/NodeSettings.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <optional>
#include <string>

#include "local/http/HttpServer.h"
#include "local/ini/IniText.h"
#include "local/log/MessageLog.h"

namespace {

constexpr const char* kSection = "Node";
constexpr const char* kHistoryFile = "History File";
constexpr const char* kHistoryDays = "History Days";
constexpr const char* kHistoryMegabytes = "History Megabytes";
constexpr const char* kHttpListen = "Http Listen";
constexpr const char* kHttpRecords = "Http Records";
constexpr const char* kHttpHosts = "Http Hosts";
constexpr const char* kHttpListenVariable = "QMT_HTTP_LISTEN";

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
constexpr std::array kTextKeys{kHistoryFile, kHttpListen, kHttpRecords, kHttpHosts};

const NumberKey* FindNumberKey(const std::string& key) {
  const auto found = std::ranges::find_if(
      kNumberKeys, [&](const NumberKey& row) { return IsSameName(key, row.name); });
  return found == kNumberKeys.end() ? nullptr : &*found;
}

bool IsTextKey(const std::string& key) {
  return std::ranges::any_of(kTextKeys, [&](const char* name) { return IsSameName(key, name); });
}

std::optional<long> ReadNumber(const NumberKey& key, const std::string& text) {
  long value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = status == std::errc{} && end == text.data() + text.size();
  return isWhole && value >= key.least && value <= key.most ? std::optional(value) : std::nullopt;
}

/// The settings of the section, of which the first of a name counts.
std::vector<IniSetting> SectionOf(const LocalIniFile& ini) {
  std::vector<IniSetting> settings;
  for (const IniSetting& setting : ini.Settings()) {
    if (setting.subSection.empty() && IsSameName(setting.section, kSection)) {
      settings.push_back(setting);
    }
  }
  return settings;
}

const IniSetting* Find(const std::vector<IniSetting>& settings, const char* key) {
  const auto found = std::ranges::find_if(
      settings, [&](const IniSetting& setting) { return IsSameName(setting.key, key); });
  return found == settings.end() ? nullptr : &*found;
}

/// The words of a text, parted by blanks and commas.
std::vector<std::string> Words(const std::string& text) {
  constexpr const char* kBetween = " ,\t";
  std::vector<std::string> words;
  for (std::size_t begin = text.find_first_not_of(kBetween); begin != std::string::npos;) {
    const std::size_t end = text.find_first_of(kBetween, begin);
    words.push_back(text.substr(begin, end - begin));
    begin = text.find_first_not_of(kBetween, end);
  }
  return words;
}

}  // namespace

NodeSettings ReadNodeSettings(const LocalIniFile& ini) {
  const std::vector<IniSetting> section = SectionOf(ini);
  NodeSettings settings;
  // For where the file is not to be changed, as in a container.
  if (const char* listen = std::getenv(kHttpListenVariable); listen != nullptr) {
    settings.httpListen = listen;
  }
  const auto readNumber = [&](const char* key, int& target) {
    if (const IniSetting* setting = Find(section, key); setting != nullptr) {
      const auto value = ReadNumber(*FindNumberKey(key), setting->value);
      target = static_cast<int>(value.value_or(target));
    }
  };
  readNumber(kHistoryDays, settings.history.days);
  readNumber(kHistoryMegabytes, settings.history.megabytes);
  if (const IniSetting* setting = Find(section, kHistoryFile); setting != nullptr) {
    settings.history.file = setting->value;
  }
  if (const IniSetting* setting = Find(section, kHttpListen); setting != nullptr) {
    settings.httpListen = setting->value;
  }
  if (const IniSetting* setting = Find(section, kHttpHosts); setting != nullptr) {
    settings.httpHosts = Words(setting->value);
  }
  if (const IniSetting* setting = Find(section, kHttpRecords); setting != nullptr) {
    settings.httpRecords = Words(setting->value);
    settings.httpRecordsLine = setting->line;
  }
  return settings;
}

std::vector<IniProblem> NodeProblems(const LocalIniFile& ini) {
  std::vector<IniProblem> problems;
  for (const IniSetting& setting : SectionOf(ini)) {
    if (const NumberKey* key = FindNumberKey(setting.key); key != nullptr) {
      if (!ReadNumber(*key, setting.value)) {
        problems.push_back({setting.line, "\"" + setting.key + "\" must be " +
                                              std::to_string(key->least) + " to " +
                                              std::to_string(key->most) + ", not \"" +
                                              setting.value + "\""});
      }
    } else if (IsSameName(setting.key, kHttpListen)) {
      if (!setting.value.empty() && !HttpServer::IsAddress(setting.value)) {
        problems.push_back({setting.line, "\"" + setting.key +
                                              "\" must be ADDRESS:PORT, as 127.0.0.1:9964 or "
                                              "[::1]:9964, not \"" +
                                              setting.value + "\""});
      }
    } else if (!IsTextKey(setting.key)) {
      problems.push_back({setting.line, "no setting \"" + setting.key + "\" in [Node]"});
    }
  }
  return problems;
}
