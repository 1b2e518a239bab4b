#include "collect/modern/process/KeptParts.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "collect/modern/process/ExecWait.h"
#include "collect/modern/process/KeptArguments.h"
#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessFiles.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/HostReads.h"
#include "support/ProductOptions.h"

/// Tells whether a process has run between two looks, or has been moved.
struct TaskMoment {
  std::uint64_t runTime;
  std::uint64_t switches;
  std::uint64_t controlGroup;
  std::uint32_t state;
  std::uint32_t threads;
  bool operator==(const TaskMoment&) const = default;
};

/// See KeptParts::Surroundings().
struct KeptSurroundings : ProcessSurroundings {
  KeptSurroundings(ProcessSurroundings read, const TaskMoment& moment)
      : ProcessSurroundings(std::move(read)), of(moment) {}
  TaskMoment of;
};

namespace {

TaskMoment MomentOf(const TaskGroup& group) {
  const TaskFigures& task = group.task;
  return {task.runTime, task.voluntarySwitches + task.otherSwitches, task.controlGroup, task.state,
          task.threads};
}

constexpr std::uint64_t kUsualPace = 10;
constexpr std::size_t kMostKeptArguments = 1023;
using PartText = std::array<char, 8192>;

std::uint64_t ChosenPace() {
  std::uint64_t pace = 0;
  if (const char* chosen = ProductOptions::Instance().Get("Host", "Process Refresh")) {
    std::from_chars(chosen, chosen + std::strlen(chosen), pace);
  }
  return pace == 0 ? kUsualPace : pace;
}

/// Makes the part that of the process's present image.
void FitPart(const TaskFigures& task, KeptPart& part) {
  if (part.execId == task.selfExecId && part.startTime == task.startTime) {
    return;
  }
  if (part.startTime != task.startTime) {
    part.times = {};
    part.hasTimes = false;
    part.grown = {};
  }
  part.pid = task.tgid;
  part.startTime = task.startTime;
  part.execId = task.selfExecId;
  part.isRead = false;
  part.folderMark.reset();
  part.limits.reset();
  part.surroundings.reset();
}

/// Threads come and go while the kernel is asked, so that a sum of them may lack one that is in the
/// next one again.
void HoldGrown(TaskFigures& task, KeptPart& part) {
  for (std::size_t index = 0; index < kGrowingTaskFigures.size(); ++index) {
    part.grown[index] = std::max(part.grown[index], task.*kGrowingTaskFigures[index]);
    task.*kGrowingTaskFigures[index] = part.grown[index];
  }
  ScaleTaskTimes(task.utime, task.stime, task.runTime, part.times);
}

/// The kernel scales times by what it has told before, to whomever, which its stat alone shows.
void BeginTimes(const ProcessStat& stat, KeptPart& part) {
  part.times = {stat.userTicks * kNanosecondsPerTick, stat.systemTicks * kNanosecondsPerTick};
  part.hasTimes = true;
}

/// The folder that tells the program of a process: of a live thread where its leader is none.
void FormFolder(const TaskGroup& group, ProcessPath& name) {
  const std::string process = std::to_string(group.task.tgid);
  if (group.live == 0) {
    FormPath(name, {process});
  } else {
    FormPath(name, {process, "/task/", std::to_string(group.live)});
  }
}

bool IsHeld(const ProcessWalk& walk, ProcessFolder& folder, const KeptPart& part) {
  PartText text;
  return StaysInExec(part.pid,
                     [&](const char* name) { return ReadText(walk, folder.PathOf(name), text); });
}

void ReadCommandLine(const ProcessWalk& walk, ProcessFolder& folder, KeptPart& part) {
  std::array<char, kMostKeptArguments> text;
  ReadArguments(walk, folder, text);
  // The program before is the one that is told of.
  if (text.front() == '\0' && !part.commandLine.empty() && IsHeld(walk, folder, part)) {
    part.lacksCommandLine = true;
    return;
  }
  part.commandLine.assign(text.data(), ::strnlen(text.data(), text.size()));
  part.commandLine.shrink_to_fit();
}

void ReadPartLimits(const ProcessWalk& walk, ProcessFolder& folder, KeptPart& part) {
  if (part.limits == nullptr) {
    part.limits = std::make_unique<ProcessLimits>();
  }
  PartText text;
  static_cast<void>(
      ParseProcessLimits(ReadText(walk, folder.PathOf("limits"), text), *part.limits));
}

std::size_t HeapOf(const std::string& text) {
  const bool isWithin = text.capacity() <= std::string().capacity();
  return isWithin ? 0 : text.capacity() + 1;
}

std::size_t BytesOf(const std::unique_ptr<KeptSurroundings>& kept) {
  return kept == nullptr ? 0
                         : sizeof *kept + HeapOf(kept->blockedIn) + HeapOf(kept->controlGroup) +
                               HeapOf(kept->executable);
}

}  // namespace

KeptPart::KeptPart() = default;
KeptPart::~KeptPart() = default;

std::string_view NameOfTask(const TaskFigures& task, const KeptPart& part) {
  const std::string_view own(task.name);
  return task.isKernel != 0 && part.kernelName.starts_with(own) ? part.kernelName : own;
}

KeptParts& KeptParts::Instance() {
  static KeptParts parts;
  return parts;
}

void KeptParts::Match(std::vector<TaskGroup>& groups, std::span<const std::string> named) {
  ++m_batch;
  m_pace = ChosenPace();
  // What can fail for want of memory comes before anything is moved.
  m_named.assign(named.begin(), named.end());
  std::vector<std::unique_ptr<KeptPart>> parts(groups.size());
  auto old = m_parts.begin();
  const auto isKnown = [&](const TaskGroup& group) {
    while (old != m_parts.end() && (*old)->pid < group.task.tgid) {
      ++old;
    }
    return old != m_parts.end() && (*old)->pid == group.task.tgid;
  };
  for (std::size_t index = 0; index < groups.size(); ++index) {
    if (!isKnown(groups[index])) {
      parts[index] = std::make_unique<KeptPart>();
    }
  }
  old = m_parts.begin();
  for (std::size_t index = 0; index < groups.size(); ++index) {
    TaskGroup& group = groups[index];
    if (parts[index] == nullptr && isKnown(group)) {
      parts[index] = std::move(*old++);
    }
    FitPart(group.task, *parts[index]);
    parts[index]->pid = group.task.tgid;
    HoldGrown(group.task, *parts[index]);
  }
  m_parts = std::move(parts);
}

bool KeptParts::Read(const ProcessWalk& walk, const TaskGroup& group, std::size_t index,
                     PartWishes wishes) {
  KeptPart& part = *m_parts[index];
  const int lackBefore = std::exchange(g_lackOfDescriptors, 0);
  const bool isThere = ReadDue(walk, group, part, wishes);
  // What could not be read is not what the process has.
  part.lacksParts = g_lackOfDescriptors != 0 || (part.lacksParts && !isThere);
  if (g_lackOfDescriptors != 0) {
    part.folderMark.reset();
    part.limits.reset();
  } else {
    g_lackOfDescriptors = lackBefore;
  }
  return isThere;
}

bool KeptParts::ReadDue(const ProcessWalk& walk, const TaskGroup& group, KeptPart& part,
                        PartWishes wishes) {
  const bool isNew = !part.isRead || part.lacksParts;
  const bool isDue = IsItsTurn(kArguments, group.task, part) || isNew || part.lacksCommandLine;
  const bool wantsFolder =
      wishes.folder && (IsItsTurn(kFolder, group.task, part) || !part.folderMark);
  const bool wantsLimits =
      wishes.limits && (IsItsTurn(kLimits, group.task, part) || part.limits == nullptr);
  if (!isDue && !wantsFolder && !wantsLimits) {
    return true;
  }
  // The name of a thread of the kernel changes with its work.
  if ((isNew || (isDue && group.task.isKernel != 0)) && !ReadImage(walk, group, part)) {
    return false;
  }
  ProcessPath name;
  FormFolder(group, name);
  ProcessFolder folder(name.data());
  if (isDue && group.task.virtualPages != 0) {
    std::array<char, 64> wchan;
    part.lacksCommandLine = MayHoldItsReader(TaskStateLetter(group.task.state)) &&
                            (!part.commandLine.empty() || IsHeld(walk, folder, part) ||
                             !IsHarmlessWait(ReadText(walk, folder.PathOf("wchan"), wchan)));
    if (!part.lacksCommandLine) {
      ReadCommandLine(walk, folder, part);
    }
  }
  if (wantsFolder && !IsHeld(walk, folder, part)) {
    part.folderMark = ReadFolderMark(walk, folder);
  }
  if (wantsLimits) {
    ReadPartLimits(walk, folder, part);
  }
  return true;
}

bool KeptParts::IsItsTurn(Kind kind, const TaskFigures& task, const KeptPart& part) {
  Turns& turns = m_turns[kind];
  if (std::exchange(turns.last, m_batch) != m_batch) {
    ++turns.batches;
  }
  if ((static_cast<std::uint64_t>(part.pid) + turns.batches) % m_pace == 0) {
    return true;
  }
  if (m_named.empty()) {
    return false;
  }
  const std::string pid = std::to_string(part.pid);
  return std::ranges::any_of(m_named, [&](const std::string& name) {
    return name == pid || name == NameOfTask(task, part);
  });
}

const ProcessSurroundings* KeptParts::Surroundings(const TaskGroup& group, std::size_t index) {
  const KeptPart& part = *m_parts[index];
  // First of all, as it counts the batch.
  if (IsItsTurn(kSurroundings, group.task, part)) {
    return nullptr;
  }
  const KeptSurroundings* const kept = part.surroundings.get();
  return kept == nullptr || kept->of != MomentOf(group) ? nullptr : kept;
}

void KeptParts::KeepSurroundings(const TaskGroup& group, std::size_t index,
                                 ProcessSurroundings read) {
  if (g_lackOfDescriptors != 0) {
    return;
  }
  m_parts[index]->surroundings =
      std::make_unique<KeptSurroundings>(std::move(read), MomentOf(group));
}

bool KeptParts::ReadImage(const ProcessWalk& walk, const TaskGroup& group, KeptPart& part) {
  PartText text;
  ProcessFolder process(std::to_string(part.pid).c_str());
  part.staysInExec = IsHeld(walk, process, part);
  if (part.staysInExec) {
    return false;
  }
  const std::string_view line = ReadText(walk, process.PathOf("stat"), text);
  ProcessStat stat;
  if (line.empty() ? errno == ENOENT || errno == ESRCH
                   : !ParseProcessStat(line, stat) ||
                         stat.startTicks != part.startTime / kNanosecondsPerTick) {
    return false;
  }
  if (!part.hasTimes && !line.empty()) {
    BeginTimes(stat, part);
  }
  part.isRead = true;
  part.codeKB = 0;
  part.commandLine.clear();
  if (group.task.isKernel != 0) {
    part.kernelName = stat.name;
    return true;
  }
  ProcessPath name;
  FormFolder(group, name);
  ProcessStatus status;
  std::string more;
  static_cast<void>(ParseProcessStatus(
      ReadText(walk, ProcessFolder(name.data()).PathOf("status"), text, &more), status));
  part.codeKB = status.codeKB;
  return true;
}

std::size_t KeptParts::Bytes() const {
  std::size_t bytes = m_parts.capacity() * sizeof m_parts.front();
  for (const auto& part : m_parts) {
    bytes += sizeof *part + HeapOf(part->commandLine) + HeapOf(part->kernelName) +
             (part->limits == nullptr ? 0 : sizeof *part->limits) + BytesOf(part->surroundings);
  }
  return bytes;
}
