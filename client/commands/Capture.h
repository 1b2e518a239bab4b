#pragma once

#include "client/commands/Commands.h"

struct CaptureOptions {
  std::string target;  ///< a folder, or a file whose name ends in .tar.zst
  long everySeconds = 10;
  long count = 1;
  std::string profile;  ///< empty: that of the daemon, or modern
  bool isPrivate = false;
  std::string since;  ///< as typed, from when on kept rows are taken; empty: an hour
};

/// Has the daemon's program keep what it reads of the host, and takes the daemon's kept rows along.
/// Leaves nothing behind where it fails or is interrupted.
[[nodiscard]] int RunCaptureCommand(const CommonOptions& common, const CaptureOptions& options);
