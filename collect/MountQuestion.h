#pragma once

#include <sys/vfs.h>

/// How a question about a mounted file system ended.
enum class MountAnswer {
  kAnswered,
  kFailed,   ///< `errno` tells why
  kNoAnswer  ///< the time is up, or a former question is still without an answer; traced
};

/// Asks statfs(2) for the figures of the file system mounted at `mountPoint`, a path of the
/// monitored host. A server that is gone makes that call wait for ever, so where the option "Node",
/// "Mount Timeout" (seconds, 0 or missing for none) sets a limit a child asks. One that does not
/// answer in time is killed but never waited for, and while it lasts its mount is not asked again.
[[nodiscard]] MountAnswer AskMount(const char* mountPoint, struct ::statfs64* figures);
