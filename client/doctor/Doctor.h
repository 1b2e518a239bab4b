#pragma once

#include <string>
#include <vector>

#include "client/commands/Commands.h"
#include "client/doctor/Facts.h"
#include "client/doctor/Finding.h"

/// What was found under one name.
struct Diagnosis {
  const char* check;
  Finding finding;
};

/// Has every check judge the facts, in the order of their telling; those that had nothing to look
/// at are left out.
[[nodiscard]] std::vector<Diagnosis> Diagnose(const Facts& facts);

/// Prints what hinders the daemon or its users, a line for each check. kExitFailed if a check
/// fails. Changes nothing.
[[nodiscard]] int RunDoctor(const CommonOptions& common, bool json);
