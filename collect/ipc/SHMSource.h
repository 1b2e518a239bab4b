#pragma once

#include <sys/shm.h>

#include <cstdint>
#include <vector>

#include "collect/Source.h"
#include "collect/ipc/IPCWalk.h"

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

/// Reads one row per segment, as they are when the source is made, from shmctl(2). Fails as a whole
/// if the host has none.
class SHMSourceUser : public PtrSource<x_shm, SHM, std::vector<SHM>> {
 public:
  SHMSourceUser();
  ~SHMSourceUser() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_shm* record) override;

  /// Takes the segments. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Initialize();

 private:
  inline static SourceStatistics s_statistics;

  IPCWalk<::shmid_ds> m_segments;
};
