#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/NotTold.h"

class Process;
struct TaskGroup;

/// What a process holds and where it stands, as its files in /proc tell. What is not told is as in
/// ProcessDetail.
struct ProcessSurroundings {
  /// Entries of fd. Kernels before 6.2 want the rights of who may trace it for that; 100,000 there
  /// stand for more too.
  double openFiles = kNotTold;
  double oomScore = kNotTold;
  double oomScoreAdjust = kNotTold;  ///< with its sign
  /// The kernel's function that its first thread waits in; empty for none, for a thread that runs,
  /// and without the rights of who may trace it.
  std::string blockedIn;
  std::string controlGroup;  ///< see ControlGroupOf()
  std::string executable;    ///< with " (deleted)" behind it if its file has gone
};

/// One process, more closely than a walk over all of them tells it. A number that the kernel or a
/// right does not give is kNotTold, a text empty: a process of the kernel has neither memory nor a
/// program, one that has ended and is not fetched yet has lost them. Texts have blanks in the place
/// of control characters, and none at the end.
struct ProcessDetail : ProcessSurroundings {
  // Of stat.
  std::int32_t pid = 0;
  std::uint64_t startTicks = 0;  ///< since the start of the host; tells a number used again
  double startTime = kNotTold;   ///< seconds since 1970; moves when the clock is set
  std::string name;
  char state = '\0';        ///< the letter
  bool isOfKernel = false;  ///< a thread of the kernel, without a program
  double threads = kNotTold;
  double userSeconds = kNotTold;    ///< of all threads, those that have ended too
  double systemSeconds = kNotTold;  ///< the same
  double lastCpu = kNotTold;        ///< processor that its first thread ran on last

  // Of status. Switches are those of the first thread alone.
  double uid = kNotTold;  ///< the real one
  double voluntarySwitches = kNotTold;
  double otherSwitches = kNotTold;
  double anonBytes = kNotTold;    ///< in memory, of no file
  double fileBytes = kNotTold;    ///< in memory, of files
  double sharedBytes = kNotTold;  ///< in memory, shared memory and tmpfs
  double swapBytes = kNotTold;
  double peakBytes = kNotTold;  ///< most that was in memory

  // Of io, which wants the rights of who may trace it; of all threads.
  double storageReadBytes = kNotTold;   ///< fetched from storage
  double storageWriteBytes = kNotTold;  ///< sent to storage, sooner or later
  double callReadBytes = kNotTold;      ///< by calls, whatever they read from
  double callWriteBytes = kNotTold;
  double readCalls = kNotTold;
  double writeCalls = kNotTold;

  // Of schedstat, which is that of the first thread alone: no sum over the process.
  double runDelaySeconds = kNotTold;  ///< ready, but waiting for a processor

  std::string commandLine;  ///< 1,023 bytes at most
};

/// Fills the rows anew with all processes of /proc, in its order. A process that has ended
/// meanwhile, or whose stat is none, has no row. Never fails; without /proc there are no rows.
void ReadProcessDetails(std::vector<ProcessDetail>& rows);
/// The same for the processes of a walk in the same run, in its order, without a walk of its own. A
/// process whose number has been taken by another one since has no row.
void ReadProcessDetails(std::span<const Process> walked, std::vector<ProcessDetail>& rows);
/// The same for the processes of the task iterator and those that it lacks, both in the order of
/// their numbers. KeptParts are those of the former; what the iterator and they tell is taken from
/// them, the rest from /proc. With `isRead` they have been read in the same batch.
void ReadTaskDetails(const std::vector<TaskGroup>& groups, std::span<const std::int32_t> missing,
                     bool isRead, std::vector<ProcessDetail>& rows);
