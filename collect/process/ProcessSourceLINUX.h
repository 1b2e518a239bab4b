#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/ProcessWalk.h"
#include "collect/Source.h"

/// The device number of a process without a terminal.
inline constexpr std::uint64_t kNoTerminal = ~std::uint64_t{0};

/// One process as the source reads it.
struct x_proc {
  std::uint32_t size = 0;  ///< always 1132
  std::int32_t pid = 0;
  std::int32_t ppid = 0;
  std::int32_t pgrp = 0;
  std::int32_t session = 0;
  std::uint32_t reserved = 0;
  std::uint32_t flags = 0;  ///< ProcessFlag bits
  std::uint32_t state = 0;  ///< a ProcessState
  std::uint32_t minorFaults = 0;
  std::uint32_t majorFaults = 0;
  std::uint32_t swaps = 0;
  std::uint32_t reserved2 = 0;
  std::uint32_t residentBytes = 0;
  std::uint64_t stackKB = 0;
  std::uint64_t codeKB = 0;  ///< 0 on kernel variant 3
  std::uint64_t dataKB = 0;  ///< 0 on kernel variant 3
  double sharedKB = 0.0;
  std::uint32_t totalBytes = 0;
  std::uint32_t virtualSize = 0;  ///< bytes
  std::int32_t nice = 0;
  std::int32_t priority = 0;   ///< the kernel's, 60 added
  std::uint64_t tty = 0;       ///< device number, or kNoTerminal
  std::uint64_t cwdInode = 0;  ///< 0 if unknown; under `modern` see ReadFolderMark()
  std::uint64_t rootInode = 0;
  tagNTIME userTime;
  tagNTIME systemTime;
  tagNTIME cpuTime;    ///< user plus system time, field by field, without carry
  tagNTIME startTime;  ///< since 1970
  std::int32_t euid = 0;
  std::int32_t egid = 0;
  std::int32_t ruid = 0;
  std::int32_t rgid = 0;
  std::int32_t suid = 0;
  std::int32_t sgid = 0;
  std::array<char, 256> name{};
  std::array<char, 120> cmdline{};  ///< without a terminator if it is full
};

enum ProcessFlag : std::uint32_t {
  kProcessInCore = 0x01,   ///< not in an uninterruptible wait
  kProcessSystem = 0x04,   ///< set for none
  kProcessMemMgmt = 0x10,  ///< a process of the kernel's memory management
};

enum ProcessState : std::uint32_t {
  kStateOther = 0,
  kStateSleeping = 1,
  kStateRunning = 2,
  kStateZombie = 4,
  kStateStopped = 5,
  kStateUninterruptible = 8,
};

/// The state that the letter of a stat line stands for, of those that kernel 2.4 has.
[[nodiscard]] constexpr std::uint32_t ProcessStateOf(char letter) {
  switch (letter) {
    case 'R':
      return kStateRunning;
    case 'S':
      return kStateSleeping;
    case 'T':
      return kStateStopped;
    case 'Z':
      return kStateZombie;
    case 'D':
      return kStateUninterruptible;
    default:
      return kStateOther;
  }
}

/// What the kernels of today tell of a process besides; all zero under the profile `classic`.
struct ModernProcessFigures {
  char state = '\0';              ///< the letter of its stat line
  std::uint32_t kernelFlags = 0;  ///< PF_ bits
  std::uint32_t policy = 0;       ///< SCHED_ number
  std::uint64_t residentKB = 0;
  std::uint64_t virtualKB = 0;
  std::uint64_t totalKB = 0;  ///< of its pages, with those swapped out
  std::uint64_t swapKB = 0;
  std::uint64_t heapKB = 0;  ///< its private writable memory without the stack
  std::uint64_t sharedLibKB = 0;
  std::uint64_t ioBytes = 0;     ///< read and written by its calls
  std::uint64_t startTicks = 0;  ///< since the start of the host; tells a number used again
  /// What it read and wrote could not be read: the counts and `ioBytes` are 0 for want of it.
  bool isIoUnknown = false;
};

/// What the kernel takes for no limit, 2^64-1 in its units.
inline constexpr double kNoProcessLimit = 18446744073709551615.0;

/// The limits of one process in the kernel's units, bytes, seconds or files; kNoProcessLimit for
/// none.
struct ProcessLimits {
  struct Limit {
    double soft = 0;
    double hard = 0;
  };
  Limit dataSize;
  Limit fileSize;
  Limit openFiles;
  Limit virtualMemSize;
  Limit stackSize;
  Limit coreSize;
  Limit cpuTime;
};

/// One process as builders see it.
class Process : public x_proc {
 public:
  [[nodiscard]] static const char* name() { return "Process"; }

  [[nodiscard]] std::int32_t GetPid() const { return pid; }
  [[nodiscard]] std::int32_t GetPpid() const { return ppid; }
  [[nodiscard]] std::int32_t GetPgrp() const { return pgrp; }
  [[nodiscard]] std::int32_t GetSession() const { return session; }
  [[nodiscard]] std::uint32_t GetFlags() const { return flags; }
  [[nodiscard]] std::uint32_t GetState() const { return state; }
  [[nodiscard]] std::uint32_t GetMinorFaults() const { return minorFaults; }
  [[nodiscard]] std::uint32_t GetMajorFaults() const { return majorFaults; }
  [[nodiscard]] std::uint32_t GetSwaps() const { return swaps; }
  [[nodiscard]] std::uint32_t GetResidentBytes() const { return residentBytes; }
  [[nodiscard]] std::uint64_t GetStackKB() const { return stackKB; }
  [[nodiscard]] std::uint64_t GetCodeKB() const { return codeKB; }
  [[nodiscard]] std::uint64_t GetDataKB() const { return dataKB; }
  [[nodiscard]] double GetSharedKB() const { return sharedKB; }
  [[nodiscard]] std::uint32_t GetTotalBytes() const { return totalBytes; }
  [[nodiscard]] std::uint32_t GetVirtualSize() const { return virtualSize; }
  [[nodiscard]] std::int32_t GetNice() const { return nice; }
  [[nodiscard]] std::int32_t GetPriority() const { return priority; }
  [[nodiscard]] std::uint64_t GetTty() const { return tty; }
  [[nodiscard]] std::uint64_t GetCwdInode() const { return cwdInode; }
  [[nodiscard]] std::uint64_t GetRootInode() const { return rootInode; }
  [[nodiscard]] tagUTIME GetUserTime() const { return ToUTIME(userTime); }
  [[nodiscard]] tagUTIME GetSystemTime() const { return ToUTIME(systemTime); }
  [[nodiscard]] tagUTIME GetCpuTime() const { return ToUTIME(cpuTime); }
  [[nodiscard]] tagUTIME GetStartTime() const { return ToUTIME(startTime); }
  [[nodiscard]] std::int32_t GetEuid() const { return euid; }
  [[nodiscard]] std::int32_t GetEgid() const { return egid; }
  [[nodiscard]] std::int32_t GetRuid() const { return ruid; }
  [[nodiscard]] std::int32_t GetRgid() const { return rgid; }
  [[nodiscard]] std::int32_t GetSuid() const { return suid; }
  [[nodiscard]] std::int32_t GetSgid() const { return sgid; }
  [[nodiscard]] const char* GetName() const { return x_proc::name.data(); }
  [[nodiscard]] std::string_view GetCmdline() const {
    return {cmdline.data(), ::strnlen(cmdline.data(), cmdline.size())};
  }

  // What the kernel's process files don't tell: zero for a process that the source has delivered.
  std::uint32_t contextSwitches = 0;
  std::uint32_t signals = 0;
  std::uint32_t reads = 0;
  std::uint32_t writes = 0;
  std::uint32_t blockOps = 0;
  std::uint32_t ioKbytes = 0;
  ModernProcessFigures modern;
  std::int32_t snapshotTime = 0;  ///< of the list that the process stands in, since 1970

  // What accounting tells of an ended process.
  std::uint32_t died = 0;  ///< 1 for a process from the accounting list
  tagUTIME endTime;
  std::uint32_t accountingFlags = 0;
  std::int32_t exitStatus = 0;
  std::uint32_t memCharge = 0;
  std::array<char, 9> accountingCommand{};
};

/// Walks /proc and gives one row per process, from its stat, statm, status, cmdline, cwd and root.
/// A process that cannot be read, as one that has just ended, is skipped. The category fails only
/// if /proc cannot be opened or the boot time cannot be read.
class ProcessSourceUser : public PtrSource<x_proc, Process, std::vector<Process>> {
 public:
  ProcessSourceUser();
  ~ProcessSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_proc* record) override;
  /// Processes that the last walk could read but has no row for, as their stat line or status is
  /// not what the kernel writes: a command name with a blank shifts the former.
  [[nodiscard]] static std::uint32_t Skipped() { return s_skipped; }

  // The parsers of one file's text each: 0, or -1 if the text is not what the kernel writes.

  /// The line of /proc/PID/stat; wants `pid` filled. A blank in the command name shifts the
  /// figures; the right name is that of /proc/PID/status.
  [[nodiscard]] int Get_Stat_Info(const char* line, x_proc* record) const;
  /// The line of /proc/PID/statm: `totalBytes` and `sharedKB`.
  [[nodiscard]] int Get_Statm_Info(const char* line, x_proc* record) const;
  /// The text of /proc/PID/status: name, identities and memory. Only the name must be there.
  [[nodiscard]] int Get_Status_Info(const char* text, x_proc* record) const;
  /// Turns the NULs among the first `length` - 1 bytes into blanks.
  static void Get_CmdLine_Info(char* text, int length);

  /// The inode of a link's target; 0 if it cannot be told. `format` is a path with "%s" in the
  /// process number's place, as in "/proc/%s/cwd".
  [[nodiscard]] std::uint64_t ReadLink(const char* format, const char* pid) const;
  /// The names of kernel process flags, parted by commas; lives until the next call. For debugging.
  [[nodiscard]] static const char* LoadFlagString(std::uint32_t flags);

 private:
  struct FileOfProcess;
  static const FileOfProcess kStat;
  static const FileOfProcess kStatm;
  static const FileOfProcess kCmdline;
  static const FileOfProcess kStatus;

  [[nodiscard]] bool ReadProcess(const char* pid, x_proc& record);
  /// ReadLink with a trace of a failure.
  [[nodiscard]] std::uint64_t LinkInode(const char* format, const char* pid) const;
  /// Bytes read into the buffer of the file, -1 on failure, which is traced.
  [[nodiscard]] int ReadFile(ProcessFolder& folder, const FileOfProcess& file, char* buffer) const;

  inline static SourceStatistics s_statistics;
  inline static std::uint32_t s_skipped = 0;

  ProcessWalk m_walk;
  std::int32_t m_bootTime = 0;
  // One buffer a file for the whole walk, each with room for a terminator.
  std::array<char, 1024> m_stat{};
  std::array<char, 1024> m_statm{};
  std::array<char, 121> m_cmdline{};
  std::array<char, 1025> m_status{};
};
