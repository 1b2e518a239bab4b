#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "collect/Collector.h"
#include "process/ExpandProcessList.h"
#include "process/ProcessRow.h"
#include "process/ProcessRules.h"
#include "records/RecordBuilder.h"

/// The processes of one collection, kept by all who compare with them at the next interval.
using ProcessSnapshot = std::shared_ptr<const std::vector<Process>>;

/// Copies the collector's processes once for all scheduled requests of a batch. The copy goes with
/// the last one who keeps it.
class BatchSnapshot : public FamilyState {
 public:
  /// `cycle` tells one batch from the next.
  [[nodiscard]] ProcessSnapshot Take(std::uint32_t cycle, const std::vector<Process>& processes);

 private:
  std::uint32_t m_cycle = 0;
  std::weak_ptr<const std::vector<Process>> m_snapshot;
};

/// What a record family, or one of its requests, keeps of its last scheduled interval.
struct PastProcesses {
  ProcessSnapshot snapshot;  ///< null before the first interval
  std::int32_t time = 0;     ///< of the snapshot, in seconds since 1970
  tagUTIME lastEnd;          ///< of the last ended process taken in

  [[nodiscard]] std::span<const Process> Processes() const {
    return snapshot ? std::span<const Process>(*snapshot) : std::span<const Process>{};
  }
};

/// What the builders of records of processes work on.
struct ProcessInput {
  const Collector& collector;
  int getDiedProcess;  ///< 0: the site does not want the ended processes that accounting tells of
  std::uint32_t processors;
  std::uint32_t cycle;  ///< tells one batch from the next
  BatchSnapshot& snapshot;
  BatchNames& names;
  const ProcessRules& rules;

  [[nodiscard]] const std::vector<Process>& Processes() const { return *collector.GetProcess(); }
  /// Adds to `current` what has ended since `past`. Returns what takes the place of that once the
  /// rows of the interval are made.
  [[nodiscard]] PastProcesses Advance(const PastProcesses& past, ProcessList& current,
                                      std::int32_t now) const;
};
