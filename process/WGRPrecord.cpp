#include <array>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "process/PastProcesses.h"
#include "process/ProcessComparison.h"
#include "process/WorkgroupMap.h"
#include "process/WorkgroupReport.h"
#include "records/IntervalEngine.h"
#include "records/UserObjects.h"
#include "support/OsCalls.h"

namespace {

using WorkgroupRow = recordPI_WGRP;

/// What the field of a list can show.
constexpr std::size_t kShown = sizeof(WorkgroupRow::users) - 1;

struct WorkgroupState : FamilyState {
  bool isReady = false;
  WgMap map;
  PastProcesses past;
  /// The cumulative figures of the last interval by the whole name, of which a row shows a part.
  std::map<std::string, WorkgroupRow> rawRows;
  std::optional<WorkgroupReport> report;  // refers to the map
};

constexpr std::array kCounters{
    CounterField<WorkgroupRow>{&WorkgroupRow::majorFaults, "major_faults"},
    CounterField<WorkgroupRow>{&WorkgroupRow::swaps, "swaps"},
    CounterField<WorkgroupRow>{&WorkgroupRow::contextSwitches, "context_switches"},
    CounterField<WorkgroupRow>{&WorkgroupRow::reads, "reads"},
    CounterField<WorkgroupRow>{&WorkgroupRow::writes, "writes"},
    CounterField<WorkgroupRow>{&WorkgroupRow::totalIoOps, "total_io_ops"},
    CounterField<WorkgroupRow>{&WorkgroupRow::totalIoKbytes, "total_io_kbytes"}};

/// CPU times of processes don't wrap: a sum that fell lost a process to another workgroup.
void AmendCpu(WorkgroupRow& row, WorkgroupRow& /*raw*/, const WorkgroupRow& previous) {
  SubtractCpu(row, previous);
}

constexpr IntervalFamily<WorkgroupRow> kFamily{.counters = kCounters, .amend = AmendCpu};

/// The figures of all workgroups as they were, put back at the end unless they are to change.
class SavedFigures {
 public:
  explicit SavedFigures(WgMap& map) {
    m_figures.reserve(map.size());
    for (const auto& [name, group] : map) {
      m_figures.push_back({group.get(), group->count, group->totals});
    }
  }
  ~SavedFigures() {
    for (const Figures& figures : m_figures) {
      figures.group->count = figures.count;
      figures.group->totals = figures.totals;
    }
  }
  SavedFigures(const SavedFigures&) = delete;
  SavedFigures& operator=(const SavedFigures&) = delete;
  void Drop() { m_figures.clear(); }

 private:
  struct Figures {
    WorkGroup* group;
    std::uint32_t count;
    WorkgroupTotals totals;
  };
  std::vector<Figures> m_figures;
};

/// Counts and levels are those of one pass; the other figures grow for the life of the map.
void ClearLevels(WgMap& map) {
  for (const auto& [name, group] : map) {
    group->count = 0;
    group->totals.elapsed = 0;
    group->totals.realMemKbytes = 0;
    group->totals.virtualMemKbytes = 0;
  }
}

/// Two texts of a list, as one field shows them; ">" ends what is cut.
std::string JoinLists(const char* first, const char* second) {
  std::string text = first;
  if (text.size() >= kShown) {
    return text;
  }
  if (!text.empty() && *second != '\0') {
    text += ',';
  }
  text += second;
  if (text.size() > kShown) {
    text.resize(kShown - 1);
    text += '>';
  }
  return text;
}

tagUTIME CpuTime(std::int64_t hundredths) {
  return {static_cast<std::int32_t>(hundredths / 100),
          static_cast<std::int32_t>(hundredths % 100 * 10000)};
}

/// A row with the workgroup's figures, cumulative but for the levels.
WorkgroupRow WorkgroupRowOf(const WorkGroup& group, std::int32_t now, const ProcessRules& rules) {
  const WorkgroupTotals& totals = group.totals;
  WorkgroupRow row = NewRow<WorkgroupRow>(now);
  row.workgroup = group.Name();
  row.users = JoinLists(group.Users(), group.Users02());
  row.groups = JoinLists(group.Groups(), group.Groups02());
  row.programs = JoinLists(group.Programs(), group.Programs02());
  row.arguments = group.Arguments02();
  row.processCount = group.count;
  row.reads = totals.reads;
  row.writes = totals.writes;
  row.swaps = totals.swaps;
  row.contextSwitches = totals.contextSwitches;
  row.majorFaults = totals.majorFaults;
  row.realMemKbytes = rules.sizeWord(totals.realMemKbytes);
  row.virtualMemKbytes = rules.sizeWord(totals.virtualMemKbytes);
  row.totalIoKbytes = totals.ioKbytes;
  row.totalIoOps = totals.reads + totals.writes;
  row.userCpu = CpuTime(totals.userCpu);
  row.systemCpu = CpuTime(totals.systemCpu);
  return row;
}

/// Leaves the field as it is without I/O.
void PutAverageIo(WorkgroupRow& row, const WorkgroupRow& from) {
  if (const std::uint32_t ops = from.totalIoOps; ops != 0) {
    const std::uint32_t kbytes = from.totalIoKbytes;
    row.avgIoKbytes = static_cast<float>(kbytes) / static_cast<float>(ops);
  }
}

void PutCpuPercent(WorkgroupRow& row, const WorkgroupRow& from, float seconds) {
  row.cpuPercent = 100.0F * ToFloat(from.userCpu + from.systemCpu) / seconds;
}

float SecondsOf(const WorkgroupRow& row) { return static_cast<float>(std::uint32_t{row.interval}); }

/// `raw` is the workgroup's row of the last interval, or a zero one, and becomes that of this one.
void FinishInterval(WorkgroupRow& raw, WorkgroupRow& row) {
  PutAverageIo(row, row);
  const WorkgroupRow previous = std::exchange(raw, row);
  row = DeltaPI(kFamily, row, previous);
  if (row.interval != 0U) {
    PutCpuPercent(row, row, SecondsOf(row));
    PutRates(row, SecondsOf(row));
  }
  PutAverageIo(row, row);
}

/// `former` is null for a look with rates.
void FinishLook(const FormerRows<WorkgroupRow>* former, WorkgroupRow& row, std::uint32_t elapsed) {
  if (former == nullptr) {
    row.interval = elapsed;
    const float seconds = elapsed == 0 ? 1.0F : SecondsOf(row);
    PutAverageIo(row, row);
    PutRates(row, seconds);
    PutCpuPercent(row, row, seconds);
    return;
  }
  row.interval = static_cast<std::uint32_t>(row.recordTime);
  PutRates(row, 1.0F);
  if (const WorkgroupRow* previous = former->Find(row)) {
    const WorkgroupRow delta = DeltaPI(kFamily, row, *previous);
    if (delta.interval != 0U) {
      PutCpuPercent(row, delta, SecondsOf(delta));
    }
    PutAverageIo(row, row);
    PutAverageIo(row, delta);
  }
}

/// Moves the workgroups on by an interval; on failure nothing has changed.
void CountInterval(WorkgroupState& state, const ProcessInput& input, std::int32_t now) {
  ProcessList list(input.Processes());
  PastProcesses next = input.Advance(state.past, list, now);
  if (list.rows.size() > input.Processes().size()) {
    // The next interval must know the ended ones too.
    auto all = std::make_shared<std::vector<Process>>();
    all->reserve(list.rows.size());
    for (const Process* process : list.rows) {
      all->push_back(*process);
    }
    next.snapshot = std::move(all);
  }
  SavedFigures saved(state.map);
  ClearLevels(state.map);
  UpdateWgMap(list.rows, state.past.Processes(), state.map, input.names, input.rules);
  saved.Drop();
  state.past = std::move(next);
}

/// Gives a row for each workgroup; returns how many there are.
int BuildRows(WorkgroupState& state, CMBRecordRequestEvent& event, bool first, std::int32_t now,
              std::uint32_t processors, const ProcessRules& rules) {
  const bool realtime = event.IsRealtime() != 0;
  std::optional<FormerRows<WorkgroupRow>> former;
  if (realtime && event.ShouldCalcRates() == 0) {
    former.emplace(event);
  }
  int rows = 0;
  for (const auto& [name, group] : state.map) {
    WorkgroupRow row = WorkgroupRowOf(*group, now, rules);
    if (realtime) {
      FinishLook(former ? &*former : nullptr, row, group->totals.elapsed);
    } else {
      FinishInterval(state.rawRows[name], row);
    }
    row.cpuPercentCopy = row.cpuPercent;
    if (processors > 0) {
      row.cpuPercent = row.cpuPercent / static_cast<float>(processors);
    }
    if (realtime || !first) {
      DeliverRow(row, event, rows);
    }
    ++rows;
  }
  return rows;
}

}  // namespace

void RecordBuilder::InitWorkgroups() {
  try {
    auto& state = StateOf<WorkgroupState>();
    state.map.clear();
    state.isReady = WorkGroup::GetIniFile(state.map, m_workgroupFile.c_str()) == 0;
    if (!state.isReady) {
      Message(10552);
      return;
    }
    state.report.emplace(state.map, *m_pCollector);
  } catch (const std::bad_alloc&) {
    Trace(30, kWarning, "wgmap not built.");
  }
}

UtlError* RecordBuilder::Build_WGRP(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_WGRP", AddressOf(pEvent), AddressOf(pRequest));
  auto& state = StateOf<WorkgroupState>();
  if (!state.isReady) {
    TraceExit("RecordBuilder::Build_WGRP", 0);
    return nullptr;
  }
  const bool first = ClaimUserObject<MyUserObject>(*pRequest).first;
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const ProcessInput input = InputOfProcesses();
  input.names.Begin(m_cycle);
  int rows = 0;
  if (pEvent->IsRealtime() == 0) {
    CountInterval(state, input, now);
    rows = BuildRows(state, *pEvent, first, now, m_numCPUs, input.rules);
  } else {
    // A look counts on from the last interval and leaves no trace.
    const SavedFigures saved(state.map);
    ClearLevels(state.map);
    UpdateWgMap(ProcessList(input.Processes()).rows, state.past.Processes(), state.map, input.names,
                input.rules);
    rows = BuildRows(state, *pEvent, first, now, m_numCPUs, input.rules);
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<WorkgroupRow>::kName, rows);
  TraceExit("RecordBuilder::Build_WGRP", 0);
  return nullptr;
}
