#pragma once

#include <string>
#include <vector>

#include "local/PushSettings.h"
#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

/// A server that is pushed to, with what it is sent.
struct PushTarget {
  PushSettings settings;
  std::vector<std::string> records;  ///< each once; one at least
};

struct PushTargets {
  std::vector<PushTarget> targets;  ///< in the order of the file
  /// What is wrong with names and records; PushProblems has the rest.
  std::vector<IniProblem> problems;
};

/// The targets of a file. Records that can't be pushed are left out, and a target that has no
/// others, or whose names this host's profile has none of. To be called when the profile is chosen
/// and the layouts are published.
[[nodiscard]] PushTargets ReadPushTargets(const LocalIniFile& ini);

/// The records of a scrape, and of a target, where the settings name none; those that can be
/// exposed.
[[nodiscard]] std::vector<std::string> UsualRecords();
