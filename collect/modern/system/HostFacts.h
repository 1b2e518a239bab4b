#pragma once

#include <string>

#include "support/NotTold.h"

/// What a host is, rather than what it does: most of it changes with a start or never. A text that
/// is not known is empty, a number kNotTold.
struct HostFacts {
  /// Of the running system; of another host root that of its /proc/sys/kernel/hostname, else of its
  /// /etc/hostname.
  std::string name;
  std::string machineId;  ///< 32 hex digits of /etc/machine-id
  std::string kernel;     ///< as "6.1.0-30-amd64"
  std::string kernelVersion;
  /// PRETTY_NAME, ID and VERSION_ID of /etc/os-release, else of /usr/lib/os-release.
  std::string distribution;
  std::string distributionId;
  std::string distributionVersion;
  /// Of the running system; of another host root that of /proc/sys/kernel/arch, since kernel 6.1.
  std::string architecture;
  std::string processorModel;  ///< that of the first processor of /proc/cpuinfo
  double sockets = kNotTold;   ///< as the next two of what is on; see CountProcessors()
  double cores = kNotTold;
  double threads = kNotTold;      ///< processors as the kernel counts them
  double memoryBytes = kNotTold;  ///< MemTotal of /proc/meminfo
  std::string virtualisation;     ///< see FindVirtualisation()
  std::string container;          ///< see FindContainer()
  double bootTime = kNotTold;     ///< seconds since 1970, btime of /proc/stat
  std::string clockSource;

  // The next are those of the running kernel, where it may be asked.
  /// 1 or 0; where the kernel may not be asked what systemd-timesyncd says, if it runs.
  double clockSynchronised = kNotTold;
  double clockOffsetSeconds = kNotTold;  ///< still to be put right, with its sign
  /// As the program that keeps the clock estimates it; the kernel's own 16 where none does.
  double clockErrorSeconds = kNotTold;

  double entropyBits = kNotTold;    ///< 256 at most since kernel 5.18
  double openFiles = kNotTold;      ///< file handles used in the whole host
  double mostOpenFiles = kNotTold;  ///< kNotTold for no bound too
  /// Processes and threads, each of which has a number of its own; that of /proc/loadavg, which
  /// belongs to all of the kernel.
  double tasks = kNotTold;
  double mostTasks = kNotTold;  ///< the smaller one of pid_max and threads-max
  /// 1 if /run/reboot-required is there, or /lib/modules has modules but not those of the running
  /// kernel, as after its package has been replaced; 0 if its modules are there, which does not
  /// tell of a newer kernel beside it; kNotTold in a container and where there are no modules.
  double rebootNeeded = kNotTold;
};

/// Reads all of that anew. Never fails.
void ReadHostFacts(HostFacts& facts);
