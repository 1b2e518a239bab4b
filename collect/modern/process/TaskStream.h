#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "support/TaskFigures.h"

/// One process as the stream of its threads tells it. Times, faults and the figures of its calls
/// are those of the process, of all threads with those that have ended; `dead...` are added
/// already. Switches and `runDelay` are those of the leader alone, as the kernel's files of a
/// process have them. Where the leader has ended before other threads, its state and memory are
/// those of `live`.
struct TaskGroup {
  TaskFigures task;       ///< of the leader, but for the above
  std::int32_t live = 0;  ///< the first thread that lives where the leader doesn't; 0 otherwise
};

/// Whether a thread has ended, by `TaskFigures::state`.
[[nodiscard]] bool HasTaskEnded(std::uint32_t state);
/// The letter of a thread's state in its stat line.
[[nodiscard]] char TaskStateLetter(std::uint32_t state);

/// Makes processes of the stream of the kernel's task iterator, which comes in pieces that may cut
/// a structure. The threads may come in any order: the kernel goes by their numbers, so that those
/// of a process stand among others. A thread without a number was reaped while it was looked at and
/// is left out. The stream holds as a whole or not at all.
class TaskStream {
 public:
  /// Fills `groups` anew; it outlives the stream.
  explicit TaskStream(std::vector<TaskGroup>& groups) : m_groups(groups) { m_groups.clear(); }

  /// Takes the next piece; false for a fault, after which nothing more is to be taken.
  [[nodiscard]] bool Take(std::span<const std::byte> piece);
  /// The end of the stream: the groups are in the order of their numbers then. One whose leader the
  /// stream lacks has ended during the walk and is left out. False for a fault.
  [[nodiscard]] bool Finish();
  /// What is wrong with the stream, in words.
  [[nodiscard]] const std::string& Fault() const { return m_fault; }
  /// Whether that is its version, which stays as long as the file does.
  [[nodiscard]] bool IsOfOtherVersion() const { return m_isOfOtherVersion; }

 private:
  [[nodiscard]] bool TakeTask(std::span<const std::byte> bytes);
  [[nodiscard]] bool CheckVersion(const TaskFigures& task);
  [[nodiscard]] bool Fail(std::string fault);
  void TakeLeader(const TaskFigures& leader);
  /// Adds a thread to its group; false where that is not known.
  bool AddThread(const TaskFigures& thread);
  [[nodiscard]] bool HasRepeatedTask();

  std::vector<TaskGroup>& m_groups;
  bool m_isSorted = true;                              ///< m_groups, so far
  std::vector<std::int32_t> m_threads;                 ///< the numbers of those that are no leaders
  std::vector<TaskFigures> m_waiting;                  ///< those whose group is not known yet
  std::map<std::int32_t, std::size_t> m_firstWaiting;  ///< by group its first one's place there
  std::array<std::byte, sizeof(TaskFigures)> m_rest{};
  std::size_t m_restSize = 0;
  std::string m_fault;
  bool m_isOfOtherVersion = false;
};
