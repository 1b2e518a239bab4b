#pragma once

#include "client/commands/Commands.h"
#include "client/view/ViewOptions.h"

/// Shows the host full screen until the operator quits or a signal asks for the end; the exit
/// value. Throws as the commands of client/commands/Commands.h do.
[[nodiscard]] int RunView(const CommonOptions& common, const ViewOptions& options);
