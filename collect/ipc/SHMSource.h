#pragma once

#include <sys/shm.h>

#include <cstdint>

#include "collect/ipc/IPCListSource.h"

/// One segment of System V shared memory as the source reads it.
struct x_shm {
  std::int32_t key = 0;
  std::uint32_t cuid = 0;
  std::uint32_t cgid = 0;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::int32_t shmId = 0;
  std::uint32_t mode = 0;     ///< 16 bits
  std::uint32_t nAttach = 0;  ///< attachments
  std::uint32_t creatorPid = 0;
  std::uint32_t lastPid = 0;
  std::uint64_t segmentSize = 0;  ///< bytes
  IPCTime changeTime;
  IPCTime detachTime;
  IPCTime attachTime;
};

/// One segment as builders see it.
class SHM : public x_shm {
 public:
  [[nodiscard]] static const char* name() { return "Shared memory"; }
};

extern const IPCSide<x_shm, ::shmid_ds> kSharedMemorySide;

/// Reads one row per segment from shmctl(2).
class SHMSourceUser : public IPCListSource<x_shm, SHM, ::shmid_ds, kSharedMemorySide> {};
