#pragma once

#include <string>

#include "client/commands/Commands.h"

// The commands on what the gate sends by itself. Each returns the exit value.

/// Shows how pushing to each target, and telling each receiver of alarms, goes.
[[nodiscard]] int RunPushStatus(const CommonOptions& common, bool json);
/// Becomes `qmt_gate --push-test`, which sends each target, or the one of that name (empty: all),
/// an empty request and prints what it answers; its exit value is 0 if all took it. Started by
/// root, it runs as the gate's user. Returns kExitUsage, with a complaint, only if it can't be
/// started.
[[nodiscard]] int RunPushTest(const CommonOptions& common, const std::string& name);
