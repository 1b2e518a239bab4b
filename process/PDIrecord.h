#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "process/ProcessRules.h"
#include "records/RecordStructures.h"

/// The figures of a PDI row that the row of the next interval subtracts; a zero one stands for a
/// process before its birth.
struct PDIFigures {
  static constexpr std::array kCounters{&recordPD_PDI::signalsRcvd,     &recordPD_PDI::majorFaults,
                                        &recordPD_PDI::minorFaults,     &recordPD_PDI::swaps,
                                        &recordPD_PDI::contextSwitches, &recordPD_PDI::reads,
                                        &recordPD_PDI::writes,          &recordPD_PDI::totalIoOps};

  PDIFigures() = default;
  /// `modern` is of the same process.
  PDIFigures(const recordPD_PDI& row, const ModernProcessFigures& modern);

  std::int32_t pid = 0;
  ProcessStart start;
  std::int32_t recordTime = 0;
  tagUTIME userCpu;
  tagUTIME systemCpu;
  std::array<std::uint32_t, kCounters.size()> counters{};
  ProcessIoTotal io;
};

/// The cumulative figures of the processes of one interval.
class PDIRows {
 public:
  /// Keeps the row's figures. Rows come by ascending process number.
  void Add(const recordPD_PDI& row, const ModernProcessFigures& modern = {}) {
    m_rows.emplace_back(row, modern);
  }
  /// Takes the first row of the process out that `isSame` knows by its start; nothing if there is
  /// none.
  [[nodiscard]] std::optional<PDIFigures> Take(std::int32_t pid, const ProcessStart& start,
                                               bool (*isSame)(const ProcessStart&,
                                                              const ProcessStart&));
  /// Rows not taken.
  [[nodiscard]] std::size_t Size() const { return m_rows.size() - m_taken; }
  void Reserve(std::size_t count) { m_rows.reserve(count); }

 private:
  struct Entry : PDIFigures {
    using PDIFigures::PDIFigures;
    bool taken = false;
  };
  std::vector<Entry> m_rows;
  std::size_t m_taken = 0;
};

/// The difference of `row`, which holds cumulative figures, to the row of the same process in
/// `oldRows`, or to its birth. The old row is taken out; `row` goes to `newRows` unless its process
/// has ended. Where the rules have them, a row named "<defunct>" goes by its process number alone,
/// and, unless ended processes are told of by accounting (`diedProcesses`), takes the old start
/// time and drops CPU and I/O. `modern` is what the row doesn't hold of its process.
[[nodiscard]] recordPD_PDI DeltaPD_PDI(
    recordPD_PDI& row, PDIRows& oldRows, PDIRows& newRows, bool diedProcesses,
    const ProcessRules& rules = ProcessRulesOf(HostProfile::kClassic),
    const ModernProcessFigures& modern = {});
