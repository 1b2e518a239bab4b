#pragma once

#include <vector>

#include "node/IniListing.h"
#include "node/local/LocalIniFile.h"
#include "node/local/ScheduleBook.h"

/// The lines of section "Schedule".
[[nodiscard]] std::vector<ScheduleLine> ScheduleLines(const LocalIniFile& ini);

/// The file as a check sees it: what is wrong in its text and in the sections "Node" and
/// "Schedule", and the settings of all other sections. `book` takes the schedule in.
[[nodiscard]] IniListing ListIni(const LocalIniFile& ini, ScheduleBook& book);
