#include "collect/ipc/IPCSource.h"

#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/sysinfo.h>

#include <cerrno>

namespace {

template <class Number>
std::uint32_t Low(Number figure) {
  return static_cast<std::uint32_t>(figure);
}

void AskSharedMemory(x_ipc& record) {
  struct ::shminfo info {};
  if (Os().shmctl(0, IPC_INFO, reinterpret_cast<struct ::shmid_ds*>(&info)) < 0) {
    Trace(20, kError, "The error occured by OS API(shmctl). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, 0, IPC_INFO, AddressOf(&info));
    return;
  }
  record.shmMax = info.shmmax;
  record.shmMin = Low(info.shmmin);
  record.shmMni = Low(info.shmmni);
  record.shmSeg = Low(info.shmseg);
}

void AskSemaphores(x_ipc& record) {
  struct ::seminfo info {};
  if (Os().semctl(0, 0, IPC_INFO, &info) < 0) {
    Trace(20, kError, "The error occured by OS API(semctl). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, 0, 0, IPC_INFO);
    return;
  }
  record.semMap = Low(info.semmap);
  record.semMni = Low(info.semmni);
  record.semMns = Low(info.semmns);
  record.semMnu = Low(info.semmnu);
  record.semMsl = Low(info.semmsl);
  record.semOpm = Low(info.semopm);
  record.semUme = Low(info.semume);
  record.semUsz = Low(info.semusz);
  record.semVmx = Low(info.semvmx);
  record.semAem = Low(info.semaem);
}

void AskMessageQueues(x_ipc& record) {
  struct ::msginfo info {};
  if (Os().msgctl(0, IPC_INFO, reinterpret_cast<struct ::msqid_ds*>(&info)) < 0) {
    Trace(20, kError, "The error occured by OS API(msgctl). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          errno, 0, IPC_INFO, AddressOf(&info));
    return;
  }
  record.msgMap = Low(info.msgmap);
  record.msgMax = Low(info.msgmax);
  record.msgMnb = Low(info.msgmnb);
  record.msgMni = Low(info.msgmni);
  record.msgSsz = Low(info.msgssz);
  record.msgTql = Low(info.msgtql);
  record.msgSeg = info.msgseg;
}

void AskSwap(x_ipc& record) {
  struct ::sysinfo info {};
  if (Os().sysinfo(&info) < 0) {
    record.swapFailed = true;
    Trace(20, kError, "The error occured by OS API(sysinfo). (en=%1, arg1=%2)", errno,
          AddressOf(&info));
    return;
  }
  record.totalSwap = Low(info.totalswap * info.mem_unit);
}

}  // namespace

IPCSourceUser::IPCSourceUser() {
  TraceEntry("IPCSourceUser::IPCSourceUser");
  ++s_statistics.constructed;
  TraceExit("IPCSourceUser::IPCSourceUser");
}

void IPCSourceUser::read(x_ipc* record) {
  TraceEntry("IPCSourceUser::read", AddressOf(record));
  m_more = false;
  AskSharedMemory(*record);
  AskSemaphores(*record);
  AskMessageQueues(*record);
  AskSwap(*record);
  TraceExit("IPCSourceUser::read");
}
