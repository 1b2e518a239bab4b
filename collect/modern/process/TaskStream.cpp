#include "collect/modern/process/TaskStream.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace {

/// As many as the kernel has numbers for.
constexpr std::size_t kMostTasks = 4'194'304;

// Bits of the kernel's states.
constexpr std::uint32_t kTaskUninterruptible = 0x02;
constexpr std::uint32_t kTaskEnded = 0x10 | 0x20;
/// Those that have a letter, each the letter of its place below.
constexpr std::uint32_t kTaskReported = 0x7f;
constexpr std::uint32_t kTaskReportedIdle = 0x80;
/// Uninterruptible, but no load.
constexpr std::uint32_t kTaskIdle = kTaskUninterruptible | 0x400;
/// A wait for a lock of the kernel, and a task that is frozen, which count as uninterruptible.
constexpr std::uint32_t kTaskWaitsForLock = 0x1000;
constexpr std::uint32_t kTaskFrozen = 0x8000;
constexpr char kTaskLetters[] = "RSDTtXZPI";

/// The figures of a thread that are summed over its group, and those of the threads that have
/// ended.
struct SummedFigure {
  std::uint64_t TaskFigures::*own;
  std::uint64_t TaskFigures::*dead;
};
constexpr SummedFigure kSummedFigures[]{
    {&TaskFigures::utime, &TaskFigures::deadUtime},
    {&TaskFigures::stime, &TaskFigures::deadStime},
    {&TaskFigures::runTime, &TaskFigures::deadRunTime},
    {&TaskFigures::minorFaults, &TaskFigures::deadMinorFaults},
    {&TaskFigures::majorFaults, &TaskFigures::deadMajorFaults},
    {&TaskFigures::readChars, &TaskFigures::deadReadChars},
    {&TaskFigures::writeChars, &TaskFigures::deadWriteChars},
    {&TaskFigures::readCalls, &TaskFigures::deadReadCalls},
    {&TaskFigures::writeCalls, &TaskFigures::deadWriteCalls},
    {&TaskFigures::readBytes, &TaskFigures::deadReadBytes},
    {&TaskFigures::writeBytes, &TaskFigures::deadWriteBytes},
    {&TaskFigures::cancelledBytes, &TaskFigures::deadCancelledBytes},
};

/// What a group has of its first live thread.
constexpr std::uint64_t TaskFigures::*kTaskMemory[]{
    &TaskFigures::virtualPages, &TaskFigures::anonymousPages, &TaskFigures::filePages,
    &TaskFigures::sharedPages,  &TaskFigures::swapPages,      &TaskFigures::peakPages,
    &TaskFigures::dataPages,    &TaskFigures::stackPages,     &TaskFigures::execPages};

/// The threads that have ended are those of the moment at which the first of the group was seen:
/// one that ends between two looks must not be in the sums twice.
TaskGroup GroupOfLeader(const TaskFigures& leader, const TaskFigures& first) {
  TaskGroup group{leader, 0};
  for (const SummedFigure& figure : kSummedFigures) {
    group.task.*figure.own += first.*figure.dead;
  }
  return group;
}

void AddToGroup(const TaskFigures& thread, TaskGroup& group) {
  for (const SummedFigure& figure : kSummedFigures) {
    group.task.*figure.own += thread.*figure.own;
  }
  if (group.live == 0 && HasTaskEnded(group.task.state) && !HasTaskEnded(thread.state)) {
    group.live = thread.pid;
    group.task.state = thread.state;
    for (const auto figure : kTaskMemory) {
      group.task.*figure = thread.*figure;
    }
  }
}

std::int32_t NumberOfGroup(const TaskGroup& group) { return group.task.tgid; }

}  // namespace

bool HasTaskEnded(std::uint32_t state) { return (state & kTaskEnded) != 0; }

char TaskStateLetter(std::uint32_t state) {
  std::uint32_t reported = state & kTaskReported;
  if ((state & kTaskIdle) == kTaskIdle) {
    reported = kTaskReportedIdle;
  }
  if ((state & (kTaskWaitsForLock | kTaskFrozen)) != 0) {
    reported = kTaskUninterruptible;
  }
  return kTaskLetters[std::bit_width(reported)];
}

bool TaskStream::Fail(std::string fault) {
  m_fault = std::move(fault);
  m_groups.clear();
  return false;
}

bool TaskStream::Take(std::span<const std::byte> piece) {
  while (!piece.empty()) {
    const bool isCut = m_restSize != 0 || piece.size() < sizeof(TaskFigures);
    if (!isCut) {
      if (!TakeTask(piece.first(sizeof(TaskFigures)))) {
        return false;
      }
      piece = piece.subspan(sizeof(TaskFigures));
      continue;
    }
    const std::size_t count = std::min(piece.size(), m_rest.size() - m_restSize);
    std::copy_n(piece.begin(), count, m_rest.begin() + static_cast<std::ptrdiff_t>(m_restSize));
    m_restSize += count;
    piece = piece.subspan(count);
    if (m_restSize == m_rest.size()) {
      m_restSize = 0;
      if (!TakeTask(m_rest)) {
        return false;
      }
    }
  }
  return true;
}

bool TaskStream::CheckVersion(const TaskFigures& task) {
  m_isOfOtherVersion = task.size != sizeof task || task.version != QMT_TASK_FIGURES_VERSION;
  if (task.size != sizeof task) {
    return Fail("its structures have " + std::to_string(task.size) + " bytes instead of " +
                std::to_string(sizeof task) + ", so the helper is of another version");
  }
  if (task.version != QMT_TASK_FIGURES_VERSION) {
    return Fail("its structures are of version " + std::to_string(task.version) + " instead of " +
                std::to_string(QMT_TASK_FIGURES_VERSION) + ", so the helper is of another version");
  }
  return true;
}

void TaskStream::TakeLeader(const TaskFigures& leader) {
  m_isSorted = m_isSorted && (m_groups.empty() || NumberOfGroup(m_groups.back()) < leader.tgid);
  const auto first = m_firstWaiting.find(leader.tgid);
  m_groups.push_back(
      GroupOfLeader(leader, first == m_firstWaiting.end() ? leader : m_waiting[first->second]));
}

bool TaskStream::TakeTask(std::span<const std::byte> bytes) {
  TaskFigures task;
  std::memcpy(&task, bytes.data(), sizeof task);
  if (!CheckVersion(task)) {
    return false;
  }
  if (task.pid == 0 || task.tgid == 0) {
    return true;
  }
  if (task.pid < 0 || task.tgid < 0) {
    return Fail("it has a task of the number " + std::to_string(task.pid) + " in the process " +
                std::to_string(task.tgid));
  }
  if (m_groups.size() + m_threads.size() >= kMostTasks) {
    return Fail("it has more than " + std::to_string(kMostTasks) + " tasks");
  }
  task.name[sizeof task.name - 1] = '\0';
  if (task.pid == task.tgid) {
    TakeLeader(task);
    return true;
  }
  m_threads.push_back(task.pid);
  if (!m_isSorted || !AddThread(task)) {
    m_firstWaiting.try_emplace(task.tgid, m_waiting.size());
    m_waiting.push_back(task);
  }
  return true;
}

bool TaskStream::AddThread(const TaskFigures& thread) {
  const auto group = std::ranges::lower_bound(m_groups, thread.tgid, {}, NumberOfGroup);
  if (group == m_groups.end() || NumberOfGroup(*group) != thread.tgid) {
    return false;
  }
  AddToGroup(thread, *group);
  return true;
}

bool TaskStream::HasRepeatedTask() {
  std::ranges::sort(m_threads);
  return std::ranges::adjacent_find(m_threads) != m_threads.end() ||
         std::ranges::adjacent_find(m_groups, {}, NumberOfGroup) != m_groups.end() ||
         std::ranges::any_of(m_threads, [&](std::int32_t thread) {
           return std::ranges::binary_search(m_groups, thread, {}, NumberOfGroup);
         });
}

bool TaskStream::Finish() {
  if (m_restSize != 0) {
    return Fail("it ends within a structure");
  }
  if (!m_isSorted) {
    std::ranges::sort(m_groups, {}, NumberOfGroup);
  }
  if (HasRepeatedTask()) {
    return Fail("it has a task twice");
  }
  for (const TaskFigures& thread : m_waiting) {
    AddThread(thread);
  }
  return true;
}
