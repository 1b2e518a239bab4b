#pragma once

#include <string>

/// How the view begins.
struct ViewOptions {
  double everySeconds = 2;
  std::string at;    ///< a time as typed; empty for now
  std::string pane;  ///< the key of the first pane; empty for the first one
};
