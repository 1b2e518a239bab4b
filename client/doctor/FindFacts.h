#pragma once

#include <string>

#include "client/doctor/Facts.h"

// How the facts are found. Nothing is changed, and each question waits 5 s at most.

/// Looks at the control socket and at who asks.
[[nodiscard]] SocketFacts FindSocket(const std::string& path);
/// Asks the daemon there, and the kernel for its process.
[[nodiscard]] DaemonFacts FindDaemon(const std::string& path);
/// Looks at what stands around a daemon that has told this, of the socket at `path`. What it has
/// not told is taken from the settings in the folder above that of the socket.
[[nodiscard]] HostFacts FindHost(const std::string& path, const DaemonFacts& daemon);
