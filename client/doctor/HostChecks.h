#pragma once

#include "client/doctor/Facts.h"
#include "client/doctor/Finding.h"

// What stands around the daemon.

/// Whether the clock is right, as far as can be told.
[[nodiscard]] MaybeFinding CheckClock(const Facts& facts);
/// The programs that the daemon starts.
[[nodiscard]] MaybeFinding CheckPrograms(const Facts& facts);
/// Where the gate listens or, if the daemon has not answered, whether it can.
[[nodiscard]] MaybeFinding CheckPort(const Facts& facts);
/// The units of the service manager, where they are this daemon's.
[[nodiscard]] MaybeFinding CheckUnit(const Facts& facts);
/// The files of definitions and settings.
[[nodiscard]] MaybeFinding CheckFiles(const Facts& facts);
