#pragma once

#include <string>

/// Writes one line to standard error, which the service manager, or the daemon that has started the
/// gate, hands on to its log. What could steer a terminal is written out.
void GateLog(const std::string& text);
