#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "client/commands/Commands.h"

struct ControlGroupOptions {
  std::string path;                   ///< of the group to show with all below it, empty for all
  std::vector<std::string> sort;      ///< see GroupOrder()
  std::optional<std::size_t> levels;  ///< to show below that group
  double overSeconds = 1;
  bool json = false;
};

/// Shows the tree of control groups, from two looks at the record CGRP; the exit value. Throws as
/// the commands of client/commands/Commands.h do.
[[nodiscard]] int RunControlGroups(const CommonOptions& common, const ControlGroupOptions& options);
