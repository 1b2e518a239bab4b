#pragma once

#include <string>

#include "client/commands/Commands.h"
#include "json/Json.h"

/// Prints a link to the gate's console with a fresh token and, unless `isPrinting` or where there
/// is no desktop, has it opened.
[[nodiscard]] int RunConsole(const CommonOptions& common, bool isPrinting);

/// The link that the daemon's answer to `console_token` comes to. Throws ClientError if no gate
/// shows the console on this host, or for what the control protocol does not promise.
[[nodiscard]] std::string ConsoleLink(const Json& answer);
