#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "local/history/HistoryStore.h"
#include "local/ini/LocalIniFile.h"
#include "node/IniListing.h"

/// The settings of section "Node", apart from the levels of the message log, which reads its own.
struct NodeSettings {
  HistorySettings history;
  std::string httpListen = "127.0.0.1:9964";            ///< empty: no HTTP
  std::optional<std::vector<std::string>> httpRecords;  ///< see docs/metrics.md for the default
  std::vector<std::string> httpHosts;  ///< names, besides the host's own, that requests may be for
  std::size_t httpRecordsLine = 0;     ///< where the file sets them
};

/// A value that is missing or wrong leaves the default, which for `httpListen` is that of the
/// environment variable QMT_HTTP_LISTEN where it is set.
[[nodiscard]] NodeSettings ReadNodeSettings(const LocalIniFile& ini);
/// What is wrong in section "Node": unknown keys, and values that no setting takes.
[[nodiscard]] std::vector<IniProblem> NodeProblems(const LocalIniFile& ini);
