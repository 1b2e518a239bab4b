#pragma once

#include <sys/sem.h>

#include <cstdint>

#include "collect/ipc/IPCListSource.h"

/// One semaphore of a System V set as the source reads it.
struct x_semaphore {
  std::int32_t key = 0;
  std::uint32_t semNum = 0;  ///< its number in its set
  std::uint32_t cuid = 0;
  std::uint32_t cgid = 0;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::int32_t semId = 0;
  std::uint32_t mode = 0;  ///< 16 bits
  // -1 each, if the set has gone.
  std::int32_t pid = 0;
  std::int32_t value = 0;
  std::int32_t nCount = 0;  ///< processes that wait for a higher value
  std::int32_t zCount = 0;  ///< processes that wait for zero
  IPCTime changeTime;
  IPCTime opTime;
};

/// One semaphore as builders see it.
class Sem : public x_semaphore {
 public:
  [[nodiscard]] static const char* name() { return "Semphore"; }
};

extern const IPCSide<x_semaphore, ::semid_ds> kSemaphoreSide;

/// Reads one row per semaphore from semctl(2): the sets as they are when the source is made, the
/// values as they are when a row is read.
class SemSourceUser : public IPCListSource<x_semaphore, Sem, ::semid_ds, kSemaphoreSide> {};
