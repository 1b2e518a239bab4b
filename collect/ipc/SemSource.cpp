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

void Fill(x_semaphore& record, const IPCWalk<::semid_ds>::Object& set, std::uint64_t number) {
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

SemSourceUser::SemSourceUser() {
  TraceEntry("SemSourceUser::SemSourceUser");
  ++s_statistics.constructed;
  m_pendingError.reset(Initialize());
  if (m_pendingError != nullptr) {
    Trace(20, kError, "An error occured in a function (SemSourceUser::Initialize). (rc=%1)",
          AddressOf(m_pendingError.get()));
  }
  TraceExit("SemSourceUser::SemSourceUser");
}

UtlError* SemSourceUser::Initialize() { return m_sets.Take(kSemaphoreSets); }

void SemSourceUser::read(x_semaphore* record) {
  TraceEntry("SemSourceUser::read", AddressOf(record));
  m_more = false;
  const auto* set = m_pendingError == nullptr ? m_sets.Current() : nullptr;
  // A set that has vanished has no semaphores.
  while (set != nullptr && m_semNum >= set->description.sem_nsems) {
    m_semNum = 0;
    m_sets.Advance();
    set = m_sets.Current();
  }
  if (set != nullptr) {
    Fill(*record, *set, m_semNum++);
    m_more = true;
  }
  TraceExit("SemSourceUser::read");
}
