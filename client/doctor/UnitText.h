#pragma once

#include <string_view>
#include <vector>

#include "client/doctor/Facts.h"

/// The units that `systemctl show` told of: blocks of lines NAME=VALUE, parted by lines of another
/// kind. What is no such block, or names no unit, is left out.
[[nodiscard]] std::vector<UnitFacts> ParseUnits(std::string_view text);
