#pragma once

#include <cstdint>

#include "collect/process/ProcessSourceLINUX.h"
#include "records/RecordStructures.h"
#include "support/HostProfile.h"

/// The sizes of a process in Kbytes, as a row shows them.
struct ProcessSizes {
  std::uint32_t real = 0;
  std::uint32_t virtualMem = 0;
  std::uint32_t total = 0;
  std::uint32_t stack = 0;
  std::uint32_t heap = 0;
  std::uint32_t sharedLib = 0;
  std::uint32_t text = 0;
  std::uint32_t data = 0;
};

/// When a process was started.
struct ProcessStart {
  std::int32_t seconds = 0;  ///< since 1970
  std::uint64_t ticks = 0;   ///< since the start of the host; 0 under the profile `classic`
};

/// All that a process has read and written.
struct ProcessIoTotal {
  float kbytes = 0.0F;      ///< as a row shows it
  std::uint64_t bytes = 0;  ///< 0 under the profile `classic`
  bool isUnknown = false;   ///< never under the profile `classic`
};

/// Whether it can be told what a process has read and written since, its calls too: a total that is
/// unknown on either side would make its whole life the growth of one interval.
[[nodiscard]] inline bool IsComparable(const ProcessIoTotal& now, const ProcessIoTotal& before) {
  return !now.isUnknown && !before.isUnknown;
}

/// What the profiles of the host make different of the figures of a process. Builders take the
/// rules once for a build.
struct ProcessRules {
  const char* (*stateText)(const Process& process);
  const char* (*schedulerClass)(const Process& process);
  /// The kernel's flags as words.
  void (*putFlags)(const Process& process, Text<120>& field);
  ProcessSizes (*sizes)(const Process& process);
  ProcessIoTotal (*ioTotal)(const Process& process);
  /// How long a process that lives has lived at `now`, in seconds since 1970.
  tagUTIME (*age)(const Process& process, std::int32_t now);
  /// The second that what a process did since its start counts from, by its start time: `now` where
  /// that is not known, so that there is no time and thus no rate.
  std::int32_t (*countsFrom)(std::int32_t startTime, std::int32_t now);

  // From one look to the next.

  /// Whether two processes of one number are the same one.
  bool (*isSame)(const ProcessStart& a, const ProcessStart& b);
  /// The same for workgroups.
  bool (*isSameInWorkgroups)(const ProcessStart& a, const ProcessStart& b);
  /// What a counter of 32 bits has grown by.
  std::uint32_t (*growth)(std::uint32_t now, std::uint32_t before);
  /// What a process has read and written since, in Kbytes; the totals can be compared.
  float (*ioGrowth)(const ProcessIoTotal& now, const ProcessIoTotal& before);
  /// A process that has ended is listed with "<defunct>" in its name's place.
  bool hasDefunctNames;
  /// Requests remember the processes of their last answer by the kernel's start times.
  bool keepsMarks;

  // For sums over processes.

  std::uint64_t (*realKbytes)(const Process& process);
  std::uint64_t (*virtualKbytes)(const Process& process);
  /// A sum of Kbytes as the word of a row.
  std::uint32_t (*sizeWord)(std::uint64_t kbytes);
  /// The sums over programs, terminals and users tell rates.
  bool hasGroupRates;

  // For the summary of all processes.

  /// Bits of ProcessFlag.
  std::uint32_t (*summaryFlags)(const Process& process);
  /// The ProcessState that a process counts under.
  std::uint32_t (*summaryState)(const Process& process);
  /// A terminal that no device file has counts as none.
  bool needsTerminalFile;
  /// Whether a process counts its user, and its terminal if it has one, as in use. `isActive`: it
  /// did something since the last look.
  bool (*isInUse)(const Process& process, bool isActive);
  /// That is told at the first look too.
  bool tellsUseAtOnce;
};

[[nodiscard]] const ProcessRules& ProcessRulesOf(HostProfile profile);

[[nodiscard]] inline ProcessStart StartOf(const Process& process) {
  return {process.startTime.seconds, process.modern.startTicks};
}
