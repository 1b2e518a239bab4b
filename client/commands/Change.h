#pragma once

#include <cstdint>
#include <string>

#include "client/ask/Connection.h"

/// Asks the daemon to change a setting and, unless the change is done, tells the operator what came
/// of it; `refusal` is what "refused" means for it. The exit value.
[[nodiscard]] int ChangeItem(Connection& connection, std::uint64_t item, const std::string& value,
                             const std::string& refusal);
