#pragma once

#include <string>

/// Asks the daemon at the socket `controlPath` for the targets of pushes, sends an empty request to
/// each, or to the one named `push` where that is not empty, and prints a line for each: its name,
/// its URL as ShownUrl() gives it, and what the server has said. The exit value: 0 if all have
/// taken it, else 1.
[[nodiscard]] int TestPushes(const std::string& controlPath, const std::string& push);
