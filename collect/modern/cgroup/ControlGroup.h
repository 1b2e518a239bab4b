#pragma once

#include <string>
#include <string_view>

#include "support/NotTold.h"

// What is told of a control group. Figures are kNotTold where the kernel has none, as where their
// controller is not on in the group, or the group is the root, which lacks most of them.

/// Time of the processors for the group and all below it, counters since the group was made.
/// Version 2: cpu.stat. Version 1: cpuacct.usage, cpuacct.stat, cpu.stat.
struct ControlGroupCpu {
  double userSeconds = kNotTold;
  double systemSeconds = kNotTold;
  double totalSeconds = kNotTold;
  // Of the group's own limit.
  double periods = kNotTold;
  double throttledPeriods = kNotTold;
  double throttledSeconds = kNotTold;
};

/// Bytes of the group and all below it.
/// Version 2: memory.current, .stat, .swap.current, .max, .events. Version 1:
/// memory.usage_in_bytes, .stat (the total_ ones), .kmem.usage_in_bytes, .limit_in_bytes,
/// .failcnt, .oom_control.
struct ControlGroupMemory {
  double current = kNotTold;
  double anonymous = kNotTold;
  double file = kNotTold;    ///< in the page cache, with tmpfs and shared memory
  double kernel = kNotTold;  ///< version 2 before 5.18: stacks, page tables, per-CPU data and slabs
  double swap = kNotTold;
  double limit = kNotTold;  ///< the group's own; kNotTold for none
  // Counters; on version 1 of the group alone.
  double outOfMemoryKills = kNotTold;
  double highEvents = kNotTold;  ///< not told by version 1
  double maxEvents = kNotTold;   ///< how often the limit was met
};

/// Counters of block I/O of the group and all below it, summed over devices: what a stacked device
/// hands on to others counts for each of them. Version 2: with those that have gone since the agent
/// has seen the group first.
/// Version 2: io.stat. Version 1: blkio.throttle.io_service_bytes and .io_serviced, recursive where
/// the kernel has that, else of the group alone.
struct ControlGroupIo {
  double bytesRead = kNotTold;
  double bytesWritten = kNotTold;
  double reads = kNotTold;
  double writes = kNotTold;
};

/// Percent of the last 10 seconds in which some or all tasks waited. Version 2 alone: cpu.pressure,
/// memory.pressure, io.pressure.
struct ControlGroupPressure {
  double cpuSome = kNotTold;
  double cpuFull = kNotTold;
  double memorySome = kNotTold;
  double memoryFull = kNotTold;
  double ioSome = kNotTold;
  double ioFull = kNotTold;
};

/// One control group.
struct ControlGroup {
  /// Below the mount of its hierarchy, with the bytes of the kernel: "/" is what is mounted there,
  /// the root or, in a container, the container's own group.
  std::string path;
  std::string_view kind;      ///< see NameControlGroup(); lives for ever
  std::string_view runtime;   ///< the same; empty if the name does not tell it
  std::string containerId;    ///< see NameControlGroup(), as are those below
  std::string containerName;  ///< of runtimes that have names for ids
  std::string pod;
  /// Processes of the group and all below it: the lines of cgroup.procs. Groups that the walk does
  /// not reach (ControlGroupWalk) count nowhere; kNotTold for a group of threads.
  double processes = kNotTold;
  /// Threads of the group and all below it: pids.current; where that is not there, as in a root,
  /// the lines of cgroup.threads or, for version 1, of tasks, and the threads of the groups below.
  double threads = kNotTold;
  ControlGroupCpu cpu;
  ControlGroupMemory memory;
  ControlGroupIo io;
  ControlGroupPressure pressure;
};
