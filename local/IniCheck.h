#pragma once

#include <vector>

#include "local/ini/LocalIniFile.h"
#include "local/schedule/ScheduleBook.h"
#include "node/IniListing.h"

/// The lines of section "Schedule".
[[nodiscard]] std::vector<ScheduleLine> ScheduleLines(const LocalIniFile& ini);

/// What is wrong in the sections "Node", "Http", "Push" and "Alarms".
[[nodiscard]] std::vector<IniProblem> SettingProblems(const LocalIniFile& ini);

/// The file as a check sees it: what is wrong in its text and in the sections "Node", "Http",
/// "Push", "Alarms" and "Schedule", and the settings of all other sections. `book` takes the
/// schedule in.
[[nodiscard]] IniListing ListIni(const LocalIniFile& ini, ScheduleBook& book);
