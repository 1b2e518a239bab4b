#pragma once

#include <vector>

#include "local/AlarmSettings.h"
#include "local/HttpSettings.h"
#include "local/PushTargets.h"
#include "local/control/GateQueries.h"

/// What the operation `gate` tells of the settings. What is relative in them means the daemon's
/// folder, the working directory, also to a gate that runs elsewhere.
[[nodiscard]] GateFacts GateFactsOf(const HttpSettings& http,
                                    const std::vector<PushTarget>& targets,
                                    const AlarmSettings& alarms);
