#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "agent/ConfigNames.h"
#include "node/IniListing.h"

/// A text of section "Agent": a missing or empty one gets the default at the start.
struct AgentTextSetting {
  const char* label;
  std::size_t size;  ///< bytes, terminator included
  const char* defaultValue;
  bool isTime = false;  ///< what is no time gets the default too
};

inline constexpr std::size_t kLetter = 2;
inline constexpr std::array kAgentTextSettings{
    AgentTextSetting{kUFSSTimeLabel, kShortText, "00:00", true},
    AgentTextSetting{kMessagesFileLabel, kLongText, ""},
    AgentTextSetting{kWorkgroupFileLabel, kLongText, "wgfile"},
    AgentTextSetting{kAccountingFileLabel, kLongText, "/var/adm/pacct"},
    AgentTextSetting{kUseAccountingLabel, kLetter, "Y"},
    AgentTextSetting{kLogDiedLabel, kLetter, "Y"},
    AgentTextSetting{kTruncateLabel, kLetter, "N"},
    AgentTextSetting{kMicrostateLabel, kLetter, "N"},
    AgentTextSetting{kDeviceNameCacheLabel, kLetter, "N"},
};
inline constexpr long kDefaultDataMaxCount = 1440;

/// Whether that is the setting of the host profile.
[[nodiscard]] bool IsHostProfile(const IniSetting& setting);
/// What is wrong with a profile's name; empty for a good one.
[[nodiscard]] std::string ProfileProblem(const std::string& value);

/// Whether that is a value of the setting "Process Source"; case matters.
[[nodiscard]] bool IsProcessSource(const std::string& value);

/// What the agent makes of settings otherwise than they stand: names that it doesn't know, and
/// values that it cuts, or replaces by their defaults.
[[nodiscard]] std::vector<IniProblem> AgentSettingProblems(std::span<const IniSetting> settings);
