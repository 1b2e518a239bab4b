#pragma once

// C, as it is read by the BPF program too.
#include <stdint.h>

/// Counts the meanings of TaskFigures: another number, and a reader can't know what it reads.
#define QMT_TASK_FIGURES_VERSION 1

/// Bits of TaskFigures::present: what this kernel counts. The figures of the others are 0.
enum {
  kTaskHasRunDelay = 1,
  kTaskHasCharacters = 2,  ///< of readChars, writeChars, readCalls, writeCalls
  kTaskHasBytes = 4,       ///< of readBytes, writeBytes, cancelledBytes
  kTaskHasMemory = 8       ///< of this thread: its memory stands in this structure
};

/// What the kernel's task iterator tells of a thread, as the helper's program writes it: a stream
/// of such structures in the machine's order of bytes, one a thread, by rising numbers of the
/// threads. So those of a group don't stand together, and its leader, which is there until the last
/// of them has ended, has pid == tgid and need not be the first. A read may end inside a structure.
struct TaskFigures {
  uint32_t size;     ///< of this structure, in bytes
  uint32_t version;  ///< QMT_TASK_FIGURES_VERSION of who wrote it
  uint32_t present;  ///< bits of kTaskHas...
  int32_t pid;       ///< of the thread, in the reader's PID namespace
  int32_t tgid;      ///< of its group
  int32_t ppid;      ///< of its parent's group; 0 for none
  int32_t pgrp;
  int32_t session;
  int32_t ttyNumber;  ///< as in /proc/PID/stat; 0 for none
  int32_t ttyGroup;   ///< the foreground group of the terminal; -1 for none
  uint32_t uid;       ///< the four in the initial user namespace
  uint32_t euid;
  uint32_t suid;
  uint32_t fsuid;
  uint32_t gid;
  uint32_t egid;
  uint32_t sgid;
  uint32_t fsgid;
  uint32_t state;    ///< __state | exit_state of the kernel
  uint32_t flags;    ///< PF_...
  int32_t priority;  ///< as in stat: the kernel's prio less 100
  int32_t nice;
  uint32_t policy;
  int32_t lastCpu;
  uint32_t threads;    ///< of the group
  uint32_t isKernel;   ///< 1 for a thread of the kernel
  uint64_t startTime;  ///< nanoseconds since boot, sleep included, in the initial time namespace
  // Of this thread.
  uint64_t utime;  ///< nanoseconds, not scaled
  uint64_t stime;
  uint64_t runTime;  ///< sum_exec_runtime, by which the kernel scales the two
  uint64_t minorFaults;
  uint64_t majorFaults;
  uint64_t voluntarySwitches;
  uint64_t otherSwitches;
  uint64_t runDelay;  ///< nanoseconds
  uint64_t readChars;
  uint64_t writeChars;
  uint64_t readCalls;
  uint64_t writeCalls;
  uint64_t readBytes;
  uint64_t writeBytes;
  uint64_t cancelledBytes;
  // Of the group: what its threads that have ended have left, the same in each of its threads.
  uint64_t deadUtime;
  uint64_t deadStime;
  uint64_t deadRunTime;
  uint64_t deadMinorFaults;
  uint64_t deadMajorFaults;
  uint64_t deadVoluntarySwitches;
  uint64_t deadOtherSwitches;
  uint64_t deadReadChars;
  uint64_t deadWriteChars;
  uint64_t deadReadCalls;
  uint64_t deadWriteCalls;
  uint64_t deadReadBytes;
  uint64_t deadWriteBytes;
  uint64_t deadCancelledBytes;
  uint64_t childUtime;  ///< of children that were waited for
  uint64_t childStime;
  // Of its memory: in the record of the leader, and in those of the others where it has none left.
  uint64_t virtualPages;
  uint64_t anonymousPages;
  uint64_t filePages;
  uint64_t sharedPages;
  uint64_t swapPages;
  uint64_t peakPages;  ///< the most resident
  uint64_t dataPages;
  uint64_t stackPages;
  uint64_t execPages;     ///< of code, its own and that of libraries
  uint64_t controlGroup;  ///< the id of its group in the default hierarchy
  uint64_t selfExecId;    ///< changes with each program that it begins
  char name[16];          ///< ended by a zero byte; /proc has more of it for a thread of the kernel
};
