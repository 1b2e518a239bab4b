#pragma once

#include <string>
#include <vector>

#include "support/NotTold.h"

/// A processor that is on line, or all of them; kNotTold for what the host does not tell.
struct CpuTimeFigures {
  std::string name;  ///< "all" or "cpu7"

  // Seconds since boot, from /proc/stat, as the kernel has them: `user` has `guest` within it and
  // `nice` `guestNice`, so that the first eight are all the time there was.

  double user = kNotTold;
  double nice = kNotTold;
  double system = kNotTold;
  double idle = kNotTold;
  double wait = kNotTold;  ///< idle while a task of it waited for I/O
  double irq = kNotTold;
  double softIrq = kNotTold;
  double steal = kNotTold;  ///< that the host of a virtual machine gave to others
  double guest = kNotTold;
  double guestNice = kNotTold;

  // Of a single processor only.

  /// Now, from cpufreq; without it from /proc/cpuinfo, where x86 tells it.
  double frequencyMHz = kNotTold;
  double lowestMHz = kNotTold;  ///< that the hardware can, from cpufreq
  double highestMHz = kNotTold;
  /// How often its core and its package got too hot since boot, from thermal_throttle (Intel).
  double coreThrottled = kNotTold;
  double packageThrottled = kNotTold;
  double temperature = kNotTold;  ///< of its core in degrees Celsius; see CoreTemperatures
};

/// Reads a row of all processors and one of each, in the order of /proc/stat; none on a host
/// without that file.
///
/// Whether a host has cpufreq shows by its folder of policies, which a processor joins as it comes
/// on line. Thermal throttling is a matter of the vendor, so the first processor tells for all, of
/// unlike cores too. What a host has not is not looked for with each processor. Five files of
/// each are opened at most, and two more where cores have temperatures, once as long as the same
/// processors are on line.
///
/// Kernels before 5.19 on x86 may sleep 10 milliseconds for the frequency of a processor that is
/// idle, but only once for all those of /proc/cpuinfo: after a few that took long the rest comes
/// from there.
void ReadCpuTimes(std::vector<CpuTimeFigures>& processors);
