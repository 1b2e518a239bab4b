#pragma once

/// The seconds, with their fraction, of the clock that lengths of time are taken by: it runs since
/// the host's boot, also while the host sleeps, and nobody sets it. Where it can't be read, as in a
/// capture without it, that of the day stands in: the seconds of time(2), with the fraction of the
/// clock of microseconds where that agrees.
[[nodiscard]] double RunningSeconds();
