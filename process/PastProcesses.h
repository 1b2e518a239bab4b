#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "collect/Collector.h"
#include "collect/accounting/AcctRecord.h"
#include "process/ExpandProcessList.h"
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
  /// Adds to `current` what of `ended` has ended since. Returns what takes the place of this one
  /// once the rows of the interval are made.
  [[nodiscard]] PastProcesses Advance(ProcessList& current, std::span<const Acct> ended,
                                      ProcessSnapshot newSnapshot, std::int32_t now) const;
};

/// The ended processes that accounting tells of; none if the site does not want them.
[[nodiscard]] std::span<const Acct> EndedProcesses(const Collector& collector, int getDiedProcess);
