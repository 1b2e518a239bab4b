#include "collect/ipc/SHMSource.h"

namespace {

constexpr IPCKind<::shmid_ds> kSegments{
    [] {
      // SHM_INFO answers with a structure of its own, which is the smaller one.
      static_assert(sizeof(::shm_info) <= sizeof(::shmid_ds));
      ::shmid_ds info{};
      return Os().shmctl(0, SHM_INFO, &info);
    },
    [](int slot, ::shmid_ds& description) { return Os().shmctl(slot, SHM_STAT, &description); },
    "System call shmctl() failed.Error incalculating the number of Shared MemorySegments "
    "configured",
    "No Shared Memory Segments are currently configured"};

void Fill(x_shm& record, const IPCWalk<::shmid_ds>::Object& segment) {
  const ::shmid_ds& description = segment.description;
  FillPermissions(record, description.shm_perm);
  record.shmId = segment.id;
  record.nAttach = static_cast<std::uint32_t>(description.shm_nattch);
  record.creatorPid = static_cast<std::uint32_t>(description.shm_cpid);
  record.lastPid = static_cast<std::uint32_t>(description.shm_lpid);
  record.segmentSize = description.shm_segsz;
  record.changeTime.seconds = description.shm_ctime;
  record.detachTime.seconds = description.shm_dtime;
  record.attachTime.seconds = description.shm_atime;
}

}  // namespace

SHMSourceUser::SHMSourceUser() {
  TraceEntry("SHMSourceUser::SHMSourceUser");
  ++s_statistics.constructed;
  m_pendingError.reset(Initialize());
  if (m_pendingError != nullptr) {
    Trace(20, kError, "An error occured in a function (SHMSourceUser::Initialize). (rc=%1)",
          AddressOf(m_pendingError.get()));
  }
  TraceExit("SHMSourceUser::SHMSourceUser");
}

UtlError* SHMSourceUser::Initialize() { return m_segments.Take(kSegments); }

void SHMSourceUser::read(x_shm* record) {
  TraceEntry("SHMSourceUser::read", AddressOf(record));
  m_more = false;
  if (const auto* segment = m_pendingError == nullptr ? m_segments.Current() : nullptr;
      segment != nullptr) {
    Fill(*record, *segment);
    m_segments.Advance();
    m_more = true;
  }
  TraceExit("SHMSourceUser::read");
}
