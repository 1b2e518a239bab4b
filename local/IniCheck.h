#pragma once

#include <filesystem>
#include <vector>

#include "local/ini/LocalIniFile.h"
#include "local/schedule/ScheduleBook.h"
#include "node/IniListing.h"

/// The lines of section "Schedule".
[[nodiscard]] std::vector<ScheduleLine> ScheduleLines(const LocalIniFile& ini);

/// What is wrong in the sections "Node", "Http", "Push" and "Alarms", and with the files that the
/// last two name; relative ones are meant from `folder`.
[[nodiscard]] std::vector<IniProblem> SettingProblems(const LocalIniFile& ini,
                                                      const std::filesystem::path& folder);

/// The file as a check sees it: what is wrong in its text and in the sections "Node", "Http",
/// "Push", "Alarms" and "Schedule", and the settings of all other sections. `folder` is as above;
/// `book` takes the schedule in.
[[nodiscard]] IniListing ListIni(const LocalIniFile& ini, const std::filesystem::path& folder,
                                 ScheduleBook& book);
