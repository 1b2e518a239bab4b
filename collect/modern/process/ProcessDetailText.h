#pragma once

#include <cstdint>
#include <string_view>

struct ProcessDetail;

// The parsers of what ProcessDetail tells. Each takes the text of one file of a process as far as
// it was read; what is missing stays as it was. A line without its end counts as missing.

/// False, and no figure is taken, if that is no line of /proc/PID/stat. The start time is one only
/// with a boot time, in seconds since 1970.
[[nodiscard]] bool TakeStatDetail(std::string_view text, double bootTime, ProcessDetail& detail);
void TakeStatusDetail(std::string_view text, ProcessDetail& detail);
void TakeIoDetail(std::string_view text, ProcessDetail& detail);
/// Three zeros are what a kernel without these figures writes, and tell nothing.
void TakeSchedDetail(std::string_view text, ProcessDetail& detail);

/// The function's name of /proc/PID/wchan; empty for "0" and for what is no name.
[[nodiscard]] std::string_view WaitChannelOf(std::string_view text);

/// The control group of /proc/PID/cgroup that tells most of a process: that of version 2, unless it
/// is "/" and there are controllers of version 1. Of these the first of memory, cpu and systemd's
/// own that is not "/"; "/" if all of them are. Empty if the text names none.
[[nodiscard]] std::string_view ControlGroupOf(std::string_view text);
