#pragma once

#include <string_view>

#include "support/NotTold.h"

/// What the kernel did, and the tasks that it has to run. kNotTold is what a file does not have.
struct KernelFigures {
  // Of /proc/loadavg: load averages, in tasks, and processes and threads in all.
  double load1 = kNotTold;
  double load5 = kNotTold;
  double load15 = kNotTold;
  double tasks = kNotTold;

  // Of /proc/stat; the counts are since boot.
  double runnable = kNotTold;  ///< tasks, the one that reads included
  double blocked = kNotTold;   ///< tasks that wait for I/O
  double bootTime = kNotTold;  ///< seconds since 1970
  double contextSwitches = kNotTold;
  double interrupts = kNotTold;
  double softInterrupts = kNotTold;  ///< since 2.6.31
  double forks = kNotTold;           ///< processes and threads made

  // Of /proc/vmstat, since boot.
  double readKbytes = kNotTold;  ///< from disks
  double writtenKbytes = kNotTold;
};

/// Reads the three files. Never fails: what is missing is kNotTold.
void ReadKernel(KernelFigures& figures);

// The texts of the files, whose figures are added to those that are there.
void TakeKernelLoad(std::string_view loadavg, KernelFigures& figures);
void TakeKernelStat(std::string_view stat, KernelFigures& figures);
void TakeKernelDisks(std::string_view vmstat, KernelFigures& figures);
