#include "local/HttpSettings.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "local/ini/IniSection.h"
#include "support/ListenAddress.h"

namespace {

constexpr const char* kNodeSectionOfHttp = "Node";
constexpr std::string_view kHttpListen = "Listen";
constexpr std::string_view kHttpRecords = "Records";
constexpr std::string_view kHttpNames = "Names";
constexpr std::string_view kHttpCertificate = "Certificate";
constexpr std::string_view kHttpKey = "Key";
constexpr std::string_view kHttpUsers = "Users";
constexpr std::string_view kHttpTokens = "Tokens";
constexpr std::string_view kHttpArguments = "Arguments";
constexpr std::string_view kHttpGate = "Gate";
constexpr const char* kHttpListenVariable = "QMT_HTTP_LISTEN";

constexpr std::array kHttpKeys{kHttpListen,      kHttpRecords,   kHttpNames,
                               kHttpCertificate, kHttpKey,       kHttpUsers,
                               kHttpTokens,      kHttpArguments, kHttpGate};

/// What stands in section "Node" under another name.
struct NodeKey {
  std::string_view key;
  const char* ofNode;
};
constexpr std::array kHttpNodeKeys{NodeKey{kHttpListen, "Http Listen"},
                                   NodeKey{kHttpRecords, "Http Records"},
                                   NodeKey{kHttpNames, "Http Hosts"}};

struct GateWord {
  const char* word;
  GateMode mode;
};
constexpr std::array kGateWords{GateWord{"child", GateMode::kChild},
                                GateWord{"unit", GateMode::kUnit},
                                GateWord{"none", GateMode::kNone}};

std::optional<GateMode> ReadGate(const std::string& text) {
  const auto found = std::ranges::find_if(
      kGateWords, [&](const GateWord& row) { return IsSameName(text, row.word); });
  return found == kGateWords.end() ? std::nullopt : std::optional(found->mode);
}

std::optional<bool> ReadYesNo(const std::string& text) {
  return IsSameName(text, "yes")  ? std::optional(true)
         : IsSameName(text, "no") ? std::optional(false)
                                  : std::nullopt;
}

/// Finds a setting by its key in section "Http", or else by that which it has in "Node".
class HttpKeys {
 public:
  explicit HttpKeys(const LocalIniFile& ini)
      : m_http(SectionSettings(ini, kHttpSection)),
        m_node(SectionSettings(ini, kNodeSectionOfHttp)) {}

  [[nodiscard]] const IniSetting* Find(std::string_view key) const {
    if (const IniSetting* own = FindSetting(m_http, key); own != nullptr) {
      return own;
    }
    const auto former =
        std::ranges::find_if(kHttpNodeKeys, [&](const NodeKey& row) { return row.key == key; });
    return former == kHttpNodeKeys.end() ? nullptr : FindSetting(m_node, former->ofNode);
  }
  [[nodiscard]] std::string Text(std::string_view key) const {
    const IniSetting* setting = Find(key);
    return setting == nullptr ? "" : setting->value;
  }

 private:
  std::vector<IniSetting> m_http;
  std::vector<IniSetting> m_node;
};

/// What a value must be that the setting doesn't take; empty if it takes it.
std::string WrongValue(std::string_view key, const std::string& value) {
  if (key == kHttpListen) {
    const std::vector<std::string> words = SettingWords(value);
    const bool isGood = std::ranges::all_of(words, [](const std::string& word) {
      return ParseListenAddress(SplitScheme(word).address).has_value();
    });
    return isGood ? "" : kListenAddressForm;
  }
  if (key == kHttpGate) {
    return ReadGate(value) ? "" : "child, unit or none";
  }
  if (key == kHttpArguments) {
    return ReadYesNo(value) ? "" : "yes or no";
  }
  return "";
}

void AddWrongValue(std::string_view key, const IniSetting& setting,
                   std::vector<IniProblem>& problems) {
  if (const std::string wanted = WrongValue(key, setting.value); !wanted.empty()) {
    problems.push_back({setting.line, "\"" + setting.key + "\" must be " + wanted + ", not \"" +
                                          setting.value + "\""});
  }
}

/// Of a certificate and its key one alone is of no use.
void AddHalfPair(const std::vector<IniSetting>& section, std::string_view key,
                 std::string_view other, std::vector<IniProblem>& problems) {
  const IniSetting* one = FindSetting(section, key);
  const IniSetting* two = FindSetting(section, other);
  if (one != nullptr && !one->value.empty() && (two == nullptr || two->value.empty())) {
    problems.push_back({one->line, "\"" + one->key + "\" needs \"" + std::string(other) +
                                       "\" beside it in [Http]"});
  }
}

}  // namespace

HttpSettings ReadHttpSettings(const LocalIniFile& ini, bool isService) {
  const HttpKeys keys(ini);
  HttpSettings settings;
  // For where the file is not to be changed, as in a container.
  if (const char* listen = std::getenv(kHttpListenVariable); listen != nullptr) {
    settings.listen = SettingWords(listen);
  }
  if (const IniSetting* setting = keys.Find(kHttpListen); setting != nullptr) {
    settings.listen = SettingWords(setting->value);
  }
  if (const IniSetting* setting = keys.Find(kHttpRecords); setting != nullptr) {
    settings.records = SettingWords(setting->value);
    settings.recordsLine = setting->line;
  }
  settings.names = SettingWords(keys.Text(kHttpNames));
  settings.certificate = keys.Text(kHttpCertificate);
  settings.key = keys.Text(kHttpKey);
  settings.users = keys.Text(kHttpUsers);
  settings.tokens = keys.Text(kHttpTokens);
  // Who has written something wrong there wanted a change: less is shown then, not more.
  if (const IniSetting* setting = keys.Find(kHttpArguments); setting != nullptr) {
    settings.arguments = ReadYesNo(setting->value).value_or(false);
  }
  settings.gate = isService ? GateMode::kUnit : GateMode::kChild;
  if (const IniSetting* setting = keys.Find(kHttpGate); setting != nullptr) {
    settings.gate = ReadGate(setting->value).value_or(GateMode::kNone);
  }
  return settings;
}

const char* GateModeName(GateMode mode) {
  return std::ranges::find_if(kGateWords, [&](const GateWord& row) { return row.mode == mode; })
      ->word;
}

bool IsHttpKeyOfNode(std::string_view key) {
  return std::ranges::any_of(kHttpNodeKeys,
                             [&](const NodeKey& row) { return IsSameName(key, row.ofNode); });
}

std::vector<IniProblem> HttpProblems(const LocalIniFile& ini) {
  std::vector<IniProblem> problems;
  for (const IniSetting& setting : SectionSettings(ini, kNodeSectionOfHttp)) {
    for (const NodeKey& row : kHttpNodeKeys) {
      if (IsSameName(setting.key, row.ofNode)) {
        AddWrongValue(row.key, setting, problems);
      }
    }
  }
  const std::vector<IniSetting> section = SectionSettings(ini, kHttpSection);
  for (const IniSetting& setting : section) {
    const auto key = std::ranges::find_if(
        kHttpKeys, [&](std::string_view name) { return IsSameName(setting.key, name); });
    if (key == kHttpKeys.end()) {
      problems.push_back({setting.line, "no setting \"" + setting.key + "\" in [Http]"});
    } else {
      AddWrongValue(*key, setting, problems);
    }
  }
  AddHalfPair(section, kHttpCertificate, kHttpKey, problems);
  AddHalfPair(section, kHttpKey, kHttpCertificate, problems);
  return problems;
}
