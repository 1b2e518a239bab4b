#pragma once

#include <string>

/// Writes one line to standard error, which the service manager, or the daemon that has started the
/// gate, hands on to its log. Bytes that are no printable ASCII or UTF-8 become "?".
void GateLog(const std::string& text);
