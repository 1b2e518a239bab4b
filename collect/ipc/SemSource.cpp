#include "collect/ipc/SemSource.h"

namespace {

constexpr IPCKind<::semid_ds> kSemaphoreSets{
    [] {
      struct ::seminfo info {};
      return Os().semctl(0, 0, SEM_INFO, &info);
    },
    [](int slot, ::semid_ds& description) { return Os().semctl(slot, 0, SEM_STAT, &description); },
    "System call semctl() failed.Error incalculating the number of Semaphore Arrays configured",
    "No Semaphore Arrays are currently configured"};

std::int32_t Ask(int id, std::uint32_t number, int command) {
  return Os().semctl(id, static_cast<int>(number), command, nullptr);
}

void FillSemaphore(x_semaphore& record, const IPCObject<::semid_ds>& set, std::uint64_t number) {
  const ::semid_ds& description = set.description;
  FillPermissions(record, description.sem_perm);
  record.semNum = static_cast<std::uint32_t>(number);
  record.semId = set.id;
  record.pid = Ask(set.id, record.semNum, GETPID);
  record.value = Ask(set.id, record.semNum, GETVAL);
  record.nCount = Ask(set.id, record.semNum, GETNCNT);
  record.zCount = Ask(set.id, record.semNum, GETZCNT);
  record.changeTime.seconds = description.sem_ctime;
  record.opTime.seconds = description.sem_otime;
}

}  // namespace

constexpr IPCSide<x_semaphore, ::semid_ds> kSemaphoreSide{
    .kind = kSemaphoreSets,
    // A set that has vanished has no semaphores.
    .rows = [](const ::semid_ds& description) -> std::uint64_t { return description.sem_nsems; },
    .fill = FillSemaphore,
    .constructor = "SemSourceUser::SemSourceUser",
    .read = "SemSourceUser::read",
    .initializeFailed = "An error occured in a function (SemSourceUser::Initialize). (rc=%1)"};
