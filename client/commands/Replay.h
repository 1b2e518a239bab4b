#pragma once

#include "client/commands/Commands.h"

struct ReplayOptions {
  std::string source;  ///< a capture: its folder, or the file that it is packed in
  double speed = 1;    ///< how many times as fast as it was made
  RecordOptions what;  ///< records to show and end; none to view the host
  double overSeconds = 1;
  bool hasView = false;  ///< whether this program has a command "view"
};

/// Starts a daemon of its own on the capture, below a temporary folder, and shows it: records, or
/// the view on a terminal, else the path of the daemon's socket until a signal comes.
[[nodiscard]] int RunReplay(const CommonOptions& common, const ReplayOptions& options);
