#pragma once

#include "support/Switches.h"

/// Whether the operator has turned on the lines of the process and workgroup records.
[[nodiscard]] inline bool IsProcessTraceOn() { return g_processTraceOn != 0; }

/// Prints one line, with the local time in front, to standard output if the lines are on. What
/// doesn't fit into 500 bytes is cut; control characters are shown as "?". A reader that doesn't
/// keep up loses lines: the agent never waits for it.
void PrintProcessTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
