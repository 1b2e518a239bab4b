#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

struct ProcessLimits;

// The parsers of what the kernels of today write of one process. Each takes the text of one file as
// far as it was read, and allocates nothing. A line without its end counts as missing, since a
// number in it may have been cut.

/// What /proc/PID/stat tells.
struct ProcessStat {
  std::string_view name;  ///< lies in the text; may hold blanks, brackets and control characters
  char state = '\0';
  std::int32_t ppid = 0;
  std::int32_t pgrp = 0;
  std::int32_t session = 0;
  std::int32_t tty = 0;           ///< device number; 0 for none
  std::uint32_t kernelFlags = 0;  ///< PF_ bits
  std::uint64_t minorFaults = 0;
  std::uint64_t majorFaults = 0;
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::int32_t priority = 0;
  std::int32_t nice = 0;
  std::int32_t threads = 0;
  std::uint64_t startTicks = 0;
  std::uint64_t virtualBytes = 0;
  std::uint64_t residentPages = 0;
  std::int32_t processor = -1;  ///< that it ran on last; -1 where the line ends before
  std::uint32_t policy = 0;     ///< SCHED_ number; 0 too where the line ends before it
  bool hasPolicy = false;
};
/// Whether the text is what the kernel writes, up to the pages in memory. The name stands between
/// the first "(" and the last ")" of all the text.
[[nodiscard]] bool ParseProcessStat(std::string_view text, ProcessStat& stat);

/// What /proc/PID/statm tells, in pages.
struct ProcessPages {
  std::uint64_t size = 0;
  std::uint64_t resident = 0;
  std::uint64_t shared = 0;
  std::uint64_t text = 0;  ///< of the program; 0 too where the line ends before
  std::uint64_t data = 0;  ///< with the stack; the same
};
[[nodiscard]] bool ParseProcessStatm(std::string_view text, ProcessPages& pages);

// The following are files of lines that each have a key. The parsers return which keys there were,
// a bit each in the order of the table of keys; what is missing stays as it was.

/// What /proc/PID/status tells.
struct ProcessStatus {
  struct Identity {
    std::int32_t real = 0;
    std::int32_t effective = 0;
    std::int32_t saved = 0;
  };
  Identity user;
  Identity group;
  std::uint64_t dataKB = 0;
  std::uint64_t stackKB = 0;
  std::uint64_t codeKB = 0;
  std::uint64_t sharedLibKB = 0;
  std::uint64_t swapKB = 0;
  std::uint64_t voluntarySwitches = 0;
  std::uint64_t otherSwitches = 0;
};
[[nodiscard]] std::span<const std::string_view> ProcessStatusKeys();
[[nodiscard]] std::uint32_t ParseProcessStatus(std::string_view text, ProcessStatus& status);

/// What /proc/PID/io tells of the calls of a process.
struct ProcessIo {
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
};
[[nodiscard]] std::span<const std::string_view> ProcessIoKeys();
[[nodiscard]] std::uint32_t ParseProcessIo(std::string_view text, ProcessIo& io);

/// /proc/PID/limits; "unlimited" is kNoProcessLimit.
[[nodiscard]] std::span<const std::string_view> ProcessLimitKeys();
[[nodiscard]] std::uint32_t ParseProcessLimits(std::string_view text, ProcessLimits& limits);

/// Makes the text of /proc/PID/cmdline fit to be shown: each control character, such as the NULs
/// between the arguments, becomes a blank, and blanks at the end are cut, as programs that write
/// over their arguments leave them. Returns the new length.
[[nodiscard]] std::size_t TidyArguments(std::span<char> text);
