#pragma once

#include "support/HostNameWire.h"

/// Answers a question in place by getaddrinfo(3) and getnameinfo(3), IPv4 alone. A query that is a
/// dotted address is looked up as one whatever the kind says. What can't be found stays an empty
/// text; the stamp and the query stay as they are. May take as long as the system's resolver does.
void Resolve(HostNameWire& request);
