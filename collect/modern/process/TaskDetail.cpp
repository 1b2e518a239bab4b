#include "collect/modern/process/TaskDetail.h"

#include <algorithm>
#include <cstdint>

#include "collect/modern/process/KeptParts.h"
#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/modern/process/TaskTimes.h"
#include "support/OsCalls.h"
#include "support/TimeValues.h"

namespace {

double SecondsOf(std::uint64_t nanoseconds) {
  return static_cast<double>(nanoseconds / kNanosecondsPerTick) / TicksPerSecond();
}

void TakeTaskMemory(const TaskFigures& task, ProcessDetail& detail) {
  const auto bytes = [page = Os().getpagesize()](std::uint64_t pages) {
    return static_cast<double>(pages) * page;
  };
  detail.anonBytes = bytes(task.anonymousPages);
  detail.fileBytes = bytes(task.filePages);
  detail.sharedBytes = bytes(task.sharedPages);
  detail.swapBytes = bytes(task.swapPages);
  // The kernel notes the most when it falls.
  detail.peakBytes =
      bytes(std::max(task.peakPages, task.anonymousPages + task.filePages + task.sharedPages));
}

void TakeTaskIo(const TaskFigures& task, ProcessDetail& detail) {
  if ((task.present & kTaskHasCharacters) != 0) {
    detail.callReadBytes = static_cast<double>(task.readChars);
    detail.callWriteBytes = static_cast<double>(task.writeChars);
    detail.readCalls = static_cast<double>(task.readCalls);
    detail.writeCalls = static_cast<double>(task.writeCalls);
  }
  if ((task.present & kTaskHasBytes) != 0) {
    detail.storageReadBytes = static_cast<double>(task.readBytes);
    detail.storageWriteBytes = static_cast<double>(task.writeBytes);
  }
}

}  // namespace

void TakeTaskDetail(const TaskGroup& group, const KeptPart& part, double bootTime,
                    ProcessDetail& detail) {
  const TaskFigures& task = group.task;
  detail.pid = task.tgid;
  detail.startTicks = task.startTime / kNanosecondsPerTick;
  detail.startTime = bootTime + SecondsOf(task.startTime);
  detail.name = NameOfTask(task, part);
  detail.name.resize(TidyArguments(detail.name));
  // The files of a process tell its leader alone.
  const bool hasEnded = group.live != 0;
  detail.state = hasEnded ? 'Z' : TaskStateLetter(task.state);
  detail.isOfKernel = task.isKernel != 0;
  detail.threads = task.threads;
  detail.userSeconds = SecondsOf(part.times.user);
  detail.systemSeconds = SecondsOf(part.times.system);
  detail.lastCpu = task.lastCpu;
  detail.uid = task.uid;
  detail.voluntarySwitches = static_cast<double>(task.voluntarySwitches);
  detail.otherSwitches = static_cast<double>(task.otherSwitches);
  if ((task.present & kTaskHasRunDelay) != 0) {
    detail.runDelaySeconds = static_cast<double>(task.runDelay) * 1e-9;
  }
  TakeTaskIo(task, detail);
  if (task.virtualPages != 0 && !hasEnded) {
    TakeTaskMemory(task, detail);
    detail.commandLine = part.commandLine;
  }
}
