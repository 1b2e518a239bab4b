#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "local/ini/LocalIniFile.h"

/// The settings of one section, its subsections apart, in file order; of those of one name the
/// first counts.
[[nodiscard]] std::vector<IniSetting> SectionSettings(const LocalIniFile& ini,
                                                      std::string_view section);
/// The first setting with that key; null if there is none. It lies in `settings`.
[[nodiscard]] const IniSetting* FindSetting(const std::vector<IniSetting>& settings,
                                            std::string_view key);
/// The words of a value, parted by blanks and commas.
[[nodiscard]] std::vector<std::string> SettingWords(const std::string& value);
