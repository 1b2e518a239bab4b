#pragma once

#include <cstdint>

/// What the kernel's task iterator tells of a thread, as the helper's program writes it: a stream of
/// such structures, one a thread, those of a group one after the other and its leader first where it
/// lives. Numbers are those of the machine; the BPF program has the same structure in C.
struct TaskFigures {
  std::uint32_t size;      ///< of this structure, in bytes; tells a helper of another version
  std::int32_t pid;        ///< of the thread, in the reader's PID namespace
  std::int32_t tgid;       ///< of its group
  std::int32_t ppid;       ///< of its parent's group; 0 for none
  std::int32_t pgrp;
  std::int32_t session;
  std::int32_t ttyNumber;  ///< as in /proc/PID/stat; 0 for none
  std::int32_t ttyGroup;   ///< the foreground group of the terminal; -1 for none
  std::uint32_t uid;       ///< the four in the initial user namespace
  std::uint32_t euid;
  std::uint32_t suid;
  std::uint32_t fsuid;
  std::uint32_t gid;
  std::uint32_t egid;
  std::uint32_t sgid;
  std::uint32_t fsgid;
  std::uint32_t state;      ///< __state | exit_state of the kernel
  std::uint32_t flags;      ///< PF_...
  std::int32_t priority;    ///< as in stat: the kernel's prio less 100
  std::int32_t nice;
  std::uint32_t policy;
  std::int32_t lastCpu;
  std::uint32_t threads;    ///< of the group
  std::uint32_t isKernel;   ///< 1 for a thread of the kernel
  std::uint64_t startTime;  ///< nanoseconds since boot, sleep included
  // Of this thread.
  std::uint64_t utime;      ///< nanoseconds, not scaled
  std::uint64_t stime;
  std::uint64_t runTime;    ///< sum_exec_runtime, by which the kernel scales the two
  std::uint64_t minorFaults;
  std::uint64_t majorFaults;
  std::uint64_t voluntarySwitches;
  std::uint64_t otherSwitches;
  std::uint64_t runDelay;   ///< nanoseconds
  std::uint64_t readChars;
  std::uint64_t writeChars;
  std::uint64_t readCalls;
  std::uint64_t writeCalls;
  std::uint64_t readBytes;
  std::uint64_t writeBytes;
  std::uint64_t cancelledBytes;
  // Of the group: what its threads that have ended have left, the same in each of its threads.
  std::uint64_t deadUtime;
  std::uint64_t deadStime;
  std::uint64_t deadRunTime;
  std::uint64_t deadMinorFaults;
  std::uint64_t deadMajorFaults;
  std::uint64_t deadVoluntarySwitches;
  std::uint64_t deadOtherSwitches;
  std::uint64_t deadReadChars;
  std::uint64_t deadWriteChars;
  std::uint64_t deadReadCalls;
  std::uint64_t deadWriteCalls;
  std::uint64_t deadReadBytes;
  std::uint64_t deadWriteBytes;
  std::uint64_t deadCancelledBytes;
  std::uint64_t childUtime;  ///< of children that were waited for
  std::uint64_t childStime;
  // Of its memory; 0 without one.
  std::uint64_t virtualPages;
  std::uint64_t anonymousPages;
  std::uint64_t filePages;
  std::uint64_t sharedPages;
  std::uint64_t swapPages;
  std::uint64_t peakPages;   ///< the most resident
  std::uint64_t dataPages;
  std::uint64_t stackPages;
  std::uint64_t execPages;
  std::uint64_t controlGroup;  ///< the id of its group in the default hierarchy
  std::uint64_t selfExecId;    ///< changes with each program that it begins
  char name[16];               ///< comm, ended by a zero byte
};
