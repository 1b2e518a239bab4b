#pragma once

#include <cstdint>
#include <string>

#include "client/ask/PushAnswers.h"
#include "client/show/Terminal.h"

/// Targets and receivers as a table each, where there are any. What keeps a target from being
/// pushed to stands below. `now`, in seconds since the epoch, is what ages are counted to.
[[nodiscard]] std::string PushText(const PushStatus& push, std::int64_t now, const Screen& screen);
