#include "local/ini/IniSection.h"

#include <algorithm>

std::vector<IniSetting> SectionSettings(const LocalIniFile& ini, std::string_view section) {
  std::vector<IniSetting> settings = ini.Settings();
  std::erase_if(settings, [&](const IniSetting& setting) {
    return !setting.subSection.empty() || !IsSameName(setting.section, section);
  });
  return settings;
}

const IniSetting* FindSetting(const std::vector<IniSetting>& settings, std::string_view key) {
  const auto found = std::ranges::find_if(
      settings, [&](const IniSetting& setting) { return IsSameName(setting.key, key); });
  return found == settings.end() ? nullptr : &*found;
}

std::vector<std::string> SettingWords(const std::string& value) {
  constexpr const char* kBetween = " ,\t";
  std::vector<std::string> words;
  for (std::size_t begin = value.find_first_not_of(kBetween); begin != std::string::npos;) {
    const std::size_t end = value.find_first_of(kBetween, begin);
    words.push_back(value.substr(begin, end - begin));
    begin = value.find_first_not_of(kBetween, end);
  }
  return words;
}
