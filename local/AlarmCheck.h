#pragma once

#include <string>

#include "local/schedule/ScheduleBook.h"
#include "node/IniListing.h"

/// A definition file of alarms as a check sees it: what is wrong in it, with the line. Where an ini
/// file stands beside it, a record that its schedule doesn't collect is a fault too. `book` takes
/// that schedule in.
[[nodiscard]] IniListing ListAlarms(const std::string& path, ScheduleBook& book);
