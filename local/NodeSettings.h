#pragma once

#include <vector>

#include "local/history/HistoryStore.h"
#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

/// The settings of section "Node", apart from the levels of the message log, which reads its own,
/// and from what HttpSettings reads.
struct NodeSettings {
  HistorySettings history;
};

/// A value that is missing or wrong leaves the default.
[[nodiscard]] NodeSettings ReadNodeSettings(const LocalIniFile& ini);
/// What is wrong in section "Node": unknown keys, and values that no setting takes.
[[nodiscard]] std::vector<IniProblem> NodeProblems(const LocalIniFile& ini);
