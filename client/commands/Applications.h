#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/ask/Connection.h"
#include "client/commands/Commands.h"

/// What `app set` changes of one condition; what is not given stays.
struct ConditionChange {
  std::optional<std::string> kind;  ///< "none", "execute" or "command-line"
  std::optional<std::string> name;
  std::optional<std::string> range;
};

// The commands on monitored applications: the settings below their folders of the configuration
// tree, found by their labels, and what the record APP says of them. Each returns the exit value.

/// The names of the applications, as the settings have them.
[[nodiscard]] std::vector<std::string> ApplicationNames(Connection& connection);
[[nodiscard]] int RunAppList(const CommonOptions& common);
[[nodiscard]] int RunAppAdd(const CommonOptions& common, const std::string& name);
[[nodiscard]] int RunAppDelete(const CommonOptions& common, const std::string& name);
/// `condition` is counted from 1.
[[nodiscard]] int RunAppSet(const CommonOptions& common, const std::string& name,
                            std::uint64_t condition, const ConditionChange& change);
