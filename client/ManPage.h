#pragma once

#include <string>

#include "client/CommandView.h"

/// The manual page of a command tree, in the macros of man(7): section 1, the same text at every
/// build. Hidden commands are left out.
[[nodiscard]] std::string ManPage(const CommandView& tree);
