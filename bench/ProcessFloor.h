#pragma once

#include <cstddef>

#include "support/HostProfile.h"

/// How the files of a process are named to the kernel.
enum class FloorPaths {
  kAbsolute,  ///< "/proc/PID/stat"
  kRelative,  ///< "PID/stat" from the open /proc, as the walk of the agent does
};

/// Makes the system calls of one walk over /proc and nothing else: for each process its stat,
/// statm, cmdline and status, under the profile `modern` its io too, are opened, read once and
/// closed, and the targets of cwd and root are read and looked up. No byte of what they give is
/// looked at. Returns how many processes were there; 0 if /proc cannot be opened.
[[nodiscard]] std::size_t WalkFloor(FloorPaths paths, HostProfile profile);
