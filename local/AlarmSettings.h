#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "json/Json.h"
#include "local/SendingKeys.h"
#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

inline constexpr const char* kAlarmSection = "Alarms";

/// The settings of section "Alarms": what the alarms are, and who is told of them.
struct AlarmSettings {
  std::string file = "alarms";             ///< definitions; what is relative lies beside qmtagt.ini
  bool isFileNamed = false;                ///< the file names it: that it is missing is a fault
  std::vector<std::string> alertmanagers;  ///< addresses, as of the next two; without a query
  std::vector<std::string> webhooks;
  std::string link;     ///< what receivers may show
  std::string command;  ///< the absolute path of a program that is started for each; empty: none
  int commandSeconds = 30;      ///< after that it is ended
  int commands = 4;             ///< at once
  SendingKeys keys;             ///< for alertmanagers and webhooks
  bool lacksReceivers = false;  ///< some were left out, as `keys` are faulty
};

/// A value that is missing or wrong leaves the default; with keys that are faulty there are no
/// receivers.
[[nodiscard]] AlarmSettings ReadAlarmSettings(const LocalIniFile& ini);
/// What is wrong in section "Alarms".
[[nodiscard]] std::vector<IniProblem> AlarmProblems(const LocalIniFile& ini);
/// What the gate needs of it, as the operation `gate` tells it; its paths as `path` makes them.
[[nodiscard]] Json AlarmReceiversJson(const AlarmSettings& settings,
                                      std::string (*path)(const std::string&));
