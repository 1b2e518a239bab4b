#pragma once

#include <sys/sem.h>

#include <cstdint>
#include <vector>

#include "collect/Source.h"
#include "collect/ipc/IPCWalk.h"

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

/// Reads one row per semaphore from semctl(2): the sets as they are when the source is made, the
/// values as they are when a row is read. Fails as a whole if the host has no sets.
class SemSourceUser : public PtrSource<x_semaphore, Sem, std::vector<Sem>> {
 public:
  SemSourceUser();
  ~SemSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_semaphore* record) override;

  /// Takes the sets. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Initialize();

 private:
  inline static SourceStatistics s_statistics;

  IPCWalk<::semid_ds> m_sets;
  std::uint64_t m_semNum = 0;
};
