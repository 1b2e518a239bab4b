#pragma once

#include <cstdint>

/// The clocks of a program that is linked with MotionClock.cpp. That file defines the C library's
/// functions that tell the time or wait for it, so that all that reads a clock in the program, the
/// libraries that it loads included, reads these. They stand still but for the tick of a read; when
/// the event loop finds nothing ready they jump to its next timer.
///
/// The program is led by two descriptors, whose numbers are the values of QMT_MOTION_ORDERS and
/// QMT_MOTION_REPORTS. Whenever a pause is due it reports "at WALL BOOT" (seconds since the epoch,
/// seconds since the boot) and takes orders, a line each, until one lets it go on:
///
///     wall SECONDS    the clock on the wall is set by so much
///     nudge MICROSECONDS   the same
///     leap            the present second of the wall's clock is told once more
///     run SECONDS     goes on, and pauses again after so long
///
/// The end of the orders ends the program as SIGTERM does. QMT_MOTION_WALL and QMT_MOTION_BOOT are
/// the two clocks at the start, in seconds.
namespace motion {

/// Nanoseconds since the boot.
[[nodiscard]] std::int64_t BootNanoseconds();

}  // namespace motion
