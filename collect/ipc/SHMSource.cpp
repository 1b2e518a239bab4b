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

void FillSegment(x_shm& record, const IPCObject<::shmid_ds>& segment, std::uint64_t /*number*/) {
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

constexpr IPCSide<x_shm, ::shmid_ds> kSharedMemorySide{
    .kind = kSegments,
    .rows = [](const ::shmid_ds& /*description*/) -> std::uint64_t { return 1; },
    .fill = FillSegment,
    .constructor = "SHMSourceUser::SHMSourceUser",
    .read = "SHMSourceUser::read",
    .initializeFailed = "An error occured in a function (SHMSourceUser::Initialize). (rc=%1)"};
