#pragma once

#include <string>

/// The lines of a daemon's schedule that play a capture: each record that the capture has rows of,
/// collected as often as its samples follow on each other, `speed` times as fast. Reads
/// capture.json of `folder`, anybody's, of which the daemon checks the rest. Throws ClientError,
/// naming `source` for a folder that is no capture.
[[nodiscard]] std::string PlaySchedule(const std::string& source, const std::string& folder,
                                       double speed);
