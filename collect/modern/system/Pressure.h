#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/NotTold.h"

/// One line of a file of pressure; kNotTold for what it lacks. The averages are those of the
/// kernel: percent of the last 10, 60 and 300 seconds.
struct PressureLine {
  double average10 = kNotTold;
  double average60 = kNotTold;
  double average300 = kNotTold;
  double stalledSeconds = kNotTold;  ///< since boot, exact to a microsecond
};

/// A file of pressure, the host's or a control group's.
struct PressureText {
  PressureLine some;  ///< at least one task waited
  PressureLine full;  ///< all tasks that were not idle waited
};

/// Takes "some avg10=0.22 avg60=0.59 avg300=9.04 total=10304578721" and the line "full ...", in any
/// order. The first value of a key counts; what is no decimal number is passed over.
[[nodiscard]] PressureText ParsePressure(std::string_view text);
/// The same of the whole host's cpu. Kernels of today write zeros as its `full` for the sake of
/// readers, and measure nothing: it is not told then.
[[nodiscard]] PressureText ParseHostCpuPressure(std::string_view text);

/// What the whole host waited for, from /proc/pressure.
struct PressureFigures {
  std::string resource;  ///< "cpu", "memory", "io" or "irq"
  PressureText text;     ///< of "irq" the kernel has `full` alone, of "cpu" most have `some`
};

/// Reads a row for each resource that the kernel has a file of, in the order of the names above. A
/// host whose kernel measures no pressure, or was booted with psi=0, has no rows.
void ReadPressure(std::vector<PressureFigures>& rows);
