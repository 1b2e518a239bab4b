#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "local/alarm/AlarmDefinition.h"

/// The interval of a record's schedule; 0 where it has none.
using AlarmInterval = std::function<std::chrono::seconds(const std::string& record)>;

/// The same conditions as a file of Prometheus rules, over the metrics that the records' fields are
/// exposed as. What can't be said so stands in a comment, with the reason.
[[nodiscard]] std::string AlarmRules(const std::vector<const AlarmDefinition*>& definitions,
                                     const AlarmInterval& intervalOf);
