#pragma once

#include <cstddef>

/// The whole life of the service: start, run, stop. Command line: -n instance name, -d data
/// directory; other options are accepted and ignored. Returns the exit value: 0 after a stop by
/// SIGTERM or by a shutdown request, 1 after a failed start or a stop by SIGINT or SIGPWR,
/// otherwise the run loop's result.
[[nodiscard]] int RunService(int argc, char** argv);

/// Says that the start failed with `rc`; `line` is where.
void ReportStartFailure(int line, int rc);
/// The host name, or "<unknown>", zero-filled to `size`.
void GetHostNameForMessage(char* buffer, std::size_t size);
/// The node's identifier, at most size - 1 characters, or "<unknown>", zero-filled to `size`.
void GetServiceNameForMessage(char* buffer, std::size_t size);
