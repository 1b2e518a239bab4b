#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <vector>

#include "collect/LineReader.h"
#include "collect/ProcLib.h"
#include "collect/Source.h"

/// The whole host as the source reads it. Counters are since boot. The words marked "none" stay 0,
/// those marked "modern" under the profile `classic`.
struct x_system {
  std::uint32_t size = 0;  ///< never written
  float freeMemMB = 0;
  float totalMemMB = 0;
  float freeSwapMB = 0;
  float totalSwapMB = 0;
  float runQueue = 0;                 ///< runnable tasks; under `modern` without the agent
  std::uint32_t processesDied = 0;    ///< accounting records read
  std::uint32_t runQueueSamples = 0;  ///< none
  float load1 = 0;
  float load5 = 0;
  float load15 = 0;
  std::int32_t bootTime = 0;  ///< seconds since the epoch
  std::uint32_t numCPUs = 0;
  std::uint32_t physicalReads = 0;      ///< modern
  std::uint32_t physicalWrites = 0;     ///< modern
  std::uint32_t blockReads = 0;         ///< modern: Kbytes
  std::uint32_t blockWrites = 0;        ///< modern: Kbytes
  std::uint32_t logicalReads = 0;       ///< none
  std::uint32_t logicalWrites = 0;      ///< none
  std::uint32_t logicalReadBytes = 0;   ///< none
  std::uint32_t logicalWriteBytes = 0;  ///< none
  // Only the low 32 bits of these four are written. The first two are Kbytes; pages under `modern`.
  std::uint64_t pagesIn = 0;
  std::uint64_t pagesOut = 0;
  std::uint64_t swapIn = 0;
  std::uint64_t swapOut = 0;
  std::uint32_t reserved0 = 0;  ///< none
  std::uint32_t contextSwitches = 0;
  std::uint32_t reserved1 = 0;  ///< system calls: none
  std::uint32_t reserved2 = 0;  ///< traps: none
  std::uint32_t interrupts = 0;
  std::uint32_t majorFaults = 0;         ///< modern
  std::uint32_t minorFaults = 0;         ///< modern
  std::uint32_t softwareLockFaults = 0;  ///< none
  std::uint32_t pageReclaims = 0;        ///< modern
  std::uint32_t pageScans = 0;           ///< modern
  std::uint32_t numProcesses = 0;
  std::uint32_t numUsers = 0;  ///< distinct real user ids of processes
  /// None of the files below /proc was there: the zeros are not those of a host at rest.
  bool isNowhere = false;
  std::uint64_t pageInOps = 0;   ///< modern: read operations of disks
  std::uint64_t pageOutOps = 0;  ///< modern: write operations of disks
  std::uint64_t forks = 0;       ///< modern: processes and threads made
};

/// The whole host as builders see it.
class System : public x_system {
 public:
  [[nodiscard]] static const char* name() { return "System"; }
};

/// Reads the host's one row from sysinfo(2), /proc/stat, /proc/vmstat, /proc/loadavg and
/// /proc/<pid>/status. Never fails as a whole: what one file does not yield stays 0.
///
/// Results of type int are 0, or -1 for a failure that has been traced.
class SystemSourceUser : public PtrSource<x_system, System, std::vector<System>> {
 public:
  SystemSourceUser();
  ~SystemSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_system* record) override;

  /// Interrupts, context switches and, where an old kernel has them there, the paging counters. A
  /// line that is missing or cannot be scanned is no failure.
  [[nodiscard]] int ReadStatProc();
  /// The paging counters of /proc/vmstat, read as ReadStatProc does.
  [[nodiscard]] int ReadVmstatProc();
  /// Load averages and runnable tasks; a line that is too short is no failure.
  [[nodiscard]] int ReadLoadavgProc();

  /// Processes in /proc; 0 if it cannot be opened.
  [[nodiscard]] static std::uint32_t CountProcesses();
  /// Distinct real user ids of all processes. One that ends between the look at /proc and the
  /// opening of its status makes the whole count fail.
  [[nodiscard]] int CountUser(unsigned int* result);
  static void AddUser(std::vector<unsigned int>& users, unsigned int uid);
  /// Reads on to the first line, or piece of one, that contains `key` and leaves it in the caller's
  /// `*line` of 1024 bytes; -1 if there is none.
  [[nodiscard]] static int GetLine(std::FILE* file, char** line, const char* key);

  /// Accounting records read by this process.
  [[nodiscard]] static int SystemProcessDied();
  /// Adds the processors' non-maskable interrupts of /proc/interrupts to TrapCount(). No figure of
  /// the record is made of it.
  [[nodiscard]] int GetTrapCount();
  [[nodiscard]] std::uint32_t TrapCount() const { return m_figures.trapCount; }

 private:
  bool m_isNowhere = false;
  /// What has been read, until it is known which of it goes into the record.
  struct Figures {
    float runQueue = 0;
    std::uint32_t swapIn = 0;
    std::uint32_t swapOut = 0;
    std::uint32_t pagesIn = 0;
    std::uint32_t pagesOut = 0;
    std::uint32_t ctxt = 0;
    std::uint32_t trapCount = 0;
    std::uint32_t intr = 0;
    unsigned int userCount = 0;
    float load1 = 0;
    float load5 = 0;
    float load15 = 0;
  };
  /// A key of a file of keys and where the one or two numbers behind it go.
  struct KeyedNumbers {
    const char* key;
    std::uint32_t* first;
    std::uint32_t* second = nullptr;
  };

  static void ReadMemory(x_system& record);
  void ReadCounters(x_system& record);
  void ReadLoad(x_system& record);
  void ReadProcessors(x_system& record);
  void CopyPaging(x_system& record) const;
  [[nodiscard]] static int ScanKeys(ProcLib& lib, std::initializer_list<KeyedNumbers> keys);
  /// The real user id of one process; nothing if its status does not tell.
  [[nodiscard]] static std::optional<unsigned int> UserOf(LineReader& reader, const char* path);

  inline static SourceStatistics s_statistics;

  ProcLib m_statLib;
  ProcLib m_loadavgLib;
  ProcLib m_vmstatLib;
  Figures m_figures;
  std::vector<unsigned int> m_userIds;
};
