#pragma once

#include "client/doctor/Facts.h"
#include "client/doctor/Finding.h"

// How the daemon does; nothing where it has not answered, but for the disk.

/// Whether it may see what its figures need.
[[nodiscard]] MaybeFinding CheckRights(const Facts& facts);
/// Whether daemon and client are of one version.
[[nodiscard]] MaybeFinding CheckVersion(const Facts& facts);
/// The host profile in force.
[[nodiscard]] MaybeFinding CheckProfile(const Facts& facts);
/// Whether records are collected, and on time.
[[nodiscard]] MaybeFinding CheckSchedule(const Facts& facts);
/// Whether rows are kept.
[[nodiscard]] MaybeFinding CheckHistory(const Facts& facts);
/// Whether there is room for the rows.
[[nodiscard]] MaybeFinding CheckDisk(const Facts& facts);
