#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "collect/ProcLib.h"
#include "collect/Source.h"

/// One processor as the source reads it; counters since boot.
struct x_cpu {
  std::uint32_t size = 0;  ///< always 140
  std::uint32_t cpuId = 0;
  std::uint32_t reserved1 = 0;
  std::uint32_t reserved2 = 0;
  std::uint32_t interrupts = 0;
  std::uint32_t reserved3 = 0;
  std::uint32_t reserved4 = 0;
  /// 0 if /proc/cpuinfo lists the processor (profile `classic`) or if
  /// /sys/devices/system/cpu/online does (`modern`), else 1.
  std::uint32_t online = 0;
  tagNTIME idleTime;
  tagNTIME userTime;  ///< nice time included
  tagNTIME systemTime;
  tagNTIME waitTime;
  std::array<char, 41> cpuType{};  ///< the model name, cut to 40 characters
};

/// One processor as builders see it.
class CPU : public x_cpu {
 public:
  [[nodiscard]] static const char* name() { return "CPU"; }

  [[nodiscard]] std::uint32_t GetCpuId() const { return cpuId; }
  [[nodiscard]] const char* GetType() const { return cpuType.data(); }
  [[nodiscard]] std::uint32_t GetInterrupts() const { return interrupts; }
  // The kernel has no figures of these three per processor: 0.
  [[nodiscard]] std::uint32_t GetContextSwitches() const { return reserved2; }
  [[nodiscard]] std::uint32_t GetSystemCalls() const { return reserved3; }
  [[nodiscard]] std::uint32_t GetTraps() const { return reserved4; }
  /// 0 if the processor is on line, else 1; see `online`.
  [[nodiscard]] std::uint32_t GetOnline() const { return online; }
  [[nodiscard]] tagUTIME GetIdleTime() const { return ToUTIME(idleTime); }
  [[nodiscard]] tagUTIME GetUserTime() const { return ToUTIME(userTime); }
  [[nodiscard]] tagUTIME GetSystemTime() const { return ToUTIME(systemTime); }
  [[nodiscard]] tagUTIME GetWaitTime() const { return ToUTIME(waitTime); }
};

/// Reads one row per on-line processor from /proc/stat, /proc/interrupts and /proc/cpuinfo. Fails
/// as a whole only if the processors cannot be counted or /proc/cpuinfo cannot be read; a figure
/// that cannot be read is 0.
class CPUSourceUser : public PtrSource<x_cpu, CPU, std::vector<CPU>> {
 public:
  CPUSourceUser();
  ~CPUSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_cpu* record) override;

  /// Stores the sum of the current processor's column of /proc/interrupts. 0, or -1 if the file
  /// cannot be opened.
  [[nodiscard]] int GetInterrupts(std::uint32_t* total);
  /// Stores the current processor's column of an interrupt line's value. 0, or -1 if it has none.
  [[nodiscard]] int GetTraps(std::uint32_t* total, const char* nmiValue) const;
  /// Reads on through /proc/cpuinfo, from where the last call stopped, to the processor. 0 if
  /// found, -1 at the end of the file.
  [[nodiscard]] int IsCPUOnline(std::uint32_t cpuId);

 private:
  /// Makes the map of a file once; each failing try is traced.
  [[nodiscard]] static bool MapOnce(ProcLib& lib, bool& mapped);
  void ReadTimes(x_cpu& record);
  void ReadTraps();

  inline static SourceStatistics s_statistics;

  ProcLib m_statLib;
  ProcLib m_interruptsLib;
  ProcLib m_cpuinfoLib;
  ProcLib m_idsLib;
  ProcLib m_typesLib;
  std::vector<std::uint32_t> m_cpuIds;
  std::vector<std::string> m_cpuTypes;
  int m_remaining = 0;
  std::size_t m_index = 0;
  std::uint32_t m_currentId = 0;
  bool m_statMapped = false;
  bool m_interruptsMapped = false;
  /// The column sums of /proc/interrupts; empty until read.
  std::vector<std::uint32_t> m_interruptSums;
};
