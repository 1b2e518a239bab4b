#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "collect/ProcessWalk.h"
#include "collect/Source.h"
#include "collect/modern/process/KeptParts.h"
#include "collect/modern/process/ProcessSource.h"
#include "collect/modern/process/TaskStream.h"
#include "collect/process/ProcessSourceLINUX.h"

/// Gives the rows that ModernProcessSource gives, of the task iterator's figures and of kept parts,
/// in the order of their numbers. The category fails only if /proc cannot be opened, or /proc/stat
/// goes beyond its limit.
class TaskSource : public PtrSource<Process, Process, std::vector<Process>> {
 public:
  /// The processes of this moment, and the numbers of those that are to be read from /proc besides;
  /// both outlive it. The source changes the former as KeptParts::Match() does.
  TaskSource(std::vector<TaskGroup>& groups, std::span<const std::int32_t> missing);
  ~TaskSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(Process* record) override;

 private:
  void Begin();
  [[nodiscard]] bool ReadNextGroup(Process& record);
  [[nodiscard]] bool ReadNextMissing(Process& record);
  void Fill(const TaskGroup& group, const KeptPart& part, Process& record) const;
  void FillMemory(const TaskFigures& task, const KeptPart& part, Process& record) const;

  inline static SourceStatistics s_statistics;

  std::vector<TaskGroup>& m_groups;
  std::size_t m_next = 0;
  std::span<const std::int32_t> m_missing;
  ModernProcessSource m_single;
  ProcessWalk m_walk;
  std::int32_t m_bootTime = 0;  ///< 0 if unknown
  std::uint64_t m_pageBytes = 0;
  std::vector<ProcessLimits>* m_limits = nullptr;  ///< null where they are not asked for
  PartWishes m_wishes;
  bool m_hasBegun = false;
};
