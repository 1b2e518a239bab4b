#pragma once

#include <cstdint>
#include <vector>

#include "collect/Source.h"

/// The host's limits of System V IPC as the source reads them.
struct x_ipc {
  std::uint64_t shmMax = 0;  ///< bytes of a segment
  std::uint32_t shmMin = 0;
  std::uint32_t shmMni = 0;
  std::uint32_t shmSeg = 0;
  std::uint32_t semMap = 0;
  std::uint32_t semMni = 0;
  std::uint32_t semMns = 0;
  std::uint32_t semMnu = 0;
  std::uint32_t semMsl = 0;
  std::uint32_t semOpm = 0;
  std::uint32_t semUme = 0;
  std::uint32_t semUsz = 0;
  std::uint32_t semVmx = 0;
  std::uint32_t semAem = 0;
  std::uint32_t msgMap = 0;
  std::uint32_t msgMax = 0;
  std::uint32_t msgMnb = 0;
  std::uint32_t msgMni = 0;
  std::uint32_t msgSsz = 0;
  std::uint32_t msgTql = 0;
  std::uint32_t msgSeg = 0;     ///< 16 bits
  std::uint64_t totalSwap = 0;  ///< bytes; their low 32 bits
  bool swapFailed = false;      ///< the system did not tell its swap
};

/// The limits as builders see them.
class IPC : public x_ipc {
 public:
  [[nodiscard]] static const char* name() { return "IPC"; }
};

/// Reads the one row from shmctl(2), semctl(2), msgctl(2) with IPC_INFO and from sysinfo(2). A call
/// that fails is traced and leaves its figures 0.
class IPCSourceUser : public PtrSource<x_ipc, IPC, std::vector<IPC>> {
 public:
  IPCSourceUser();
  ~IPCSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_ipc* record) override;

 private:
  inline static SourceStatistics s_statistics;
};
