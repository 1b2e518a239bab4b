#pragma once

#include "client/doctor/Facts.h"
#include "client/doctor/Finding.h"

// How one comes to the daemon.

/// The control socket: there, and one.
[[nodiscard]] MaybeFinding CheckSocket(const Facts& facts);
/// Whether this user may use it, and how to get in.
[[nodiscard]] MaybeFinding CheckAccess(const Facts& facts);
/// Whether the daemon answers there.
[[nodiscard]] MaybeFinding CheckAnswer(const Facts& facts);
