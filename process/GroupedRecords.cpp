#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "collect/Collector.h"
#include "collect/DeviceMap.h"
#include "collect/NameCache.h"
#include "process/ExpandProcessList.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

// Programs, terminals and users: the same sums over processes, grouped by another key.

namespace {

/// What the three records group by.
template <class Row>
struct Grouping {
  bool (*less)(const Process& a, const Process& b);
  void (*putKey)(Row& row, const Process& process);
};

constexpr Grouping<recordPD_PGM> kByProgram{
    [](const Process& a, const Process& b) { return std::strcmp(a.GetName(), b.GetName()) < 0; },
    [](recordPD_PGM& row, const Process& process) { row.program = process.GetName(); }};
constexpr Grouping<recordPD_TERM> kByTerminal{
    [](const Process& a, const Process& b) { return a.tty < b.tty; },
    [](recordPD_TERM& row, const Process& process) {
      row.terminal = DeviceMap::Instance().Name(process.tty);
    }};
constexpr Grouping<recordPD_USER> kByUser{
    [](const Process& a, const Process& b) { return a.euid < b.euid; },
    [](recordPD_USER& row, const Process& process) {
      row.userId = process.euid;
      row.user = UserName(nullptr, process.euid);
    }};

/// The fields of a row that kProcessCounters feeds, in that order.
template <class Row>
constexpr std::array<Ulong Row::*, kProcessCounters.size()> kRowCounters{
    &Row::majorFaults,     &Row::minorFaults, &Row::swaps,
    &Row::contextSwitches, &Row::signalsRcvd, &Row::reads,
    &Row::writes,          &Row::totalIoOps,  &Row::totalIoKbytes};

template <class Row>
struct GroupState : FamilyState {
  std::vector<PreviousProcess> previous;
  tagUTIME lastEnd;
};

/// The processes of a previous list by their number.
class PreviousIndex {
 public:
  explicit PreviousIndex(std::span<const PreviousProcess> previous) {
    m_byPid.reserve(previous.size());
    for (const PreviousProcess& process : previous) {
      m_byPid.try_emplace(process.pid, &process);
    }
  }

  /// Null too if the number now belongs to another process, which the start time tells.
  [[nodiscard]] const PreviousProcess* Find(const Process& process) const {
    const auto found = process.pid < 0 ? m_byPid.end() : m_byPid.find(process.pid);
    return found != m_byPid.end() && found->second->startTime.seconds == process.startTime.seconds
               ? found->second
               : nullptr;
  }

 private:
  std::unordered_map<std::int32_t, const PreviousProcess*> m_byPid;
};

double Seconds(const tagUTIME& time) { return time.seconds + time.microseconds / 1e6; }

/// Zero if the time went backwards.
tagUTIME Elapsed(const tagNTIME& current, const tagNTIME& previous) {
  const tagUTIME now = ToUTIME(current);
  const tagUTIME before = ToUTIME(previous);
  return now < before ? tagUTIME{} : now - before;
}

std::uint64_t Kbytes(std::uint32_t bytes) {
  return static_cast<std::uint64_t>(std::llround(bytes / 1024.0));
}

/// The sums over one group.
class GroupTotals {
 public:
  /// `previous` is the same process at the last interval, or null; `now` in seconds since 1970.
  void Add(const Process& process, const PreviousProcess* previous, std::int32_t now) {
    const bool isKnown = previous != nullptr;
    const tagUTIME user = Elapsed(process.userTime, isKnown ? previous->userTime : tagNTIME{});
    const tagUTIME system =
        Elapsed(process.systemTime, isKnown ? previous->systemTime : tagNTIME{});
    const std::int64_t seconds =
        std::int64_t{now} - (isKnown ? previous->snapshotTime : process.startTime.seconds);
    if (seconds > 0) {
      m_cpuPercent += 100 * Seconds(user + system) / static_cast<double>(seconds);
    }
    m_userCpu = m_userCpu + user;
    m_systemCpu = m_systemCpu + system;
    for (std::size_t index = 0; index < m_counters.size(); ++index) {
      m_counters[index] +=
          process.*kProcessCounters[index] - (isKnown ? previous->counters[index] : 0);
    }
    m_realKbytes += Kbytes(process.residentBytes);
    m_virtualKbytes += Kbytes(process.virtualSize);
    ++m_count;
  }

  /// Puts the sums into a row.
  template <class Row>
  void PutInto(Row& row, std::uint32_t processors) const {
    row.processCount = m_count;
    row.userCpu = m_userCpu;
    row.systemCpu = m_systemCpu;
    row.cpuPercent = static_cast<float>(processors > 0 ? m_cpuPercent / processors : m_cpuPercent);
    for (std::size_t index = 0; index < m_counters.size(); ++index) {
      row.*kRowCounters<Row>[index] = m_counters[index];
    }
    Put(row.realMemKbytes, m_realKbytes);
    Put(row.virtualMemKbytes, m_virtualKbytes);
  }

 private:
  static void Put(Ulong& field, std::uint64_t value) { field = static_cast<std::uint32_t>(value); }
  static void Put(Float& field, std::uint64_t value) { field = static_cast<float>(value); }

  std::uint32_t m_count = 0;
  tagUTIME m_userCpu;
  tagUTIME m_systemCpu;
  double m_cpuPercent = 0;
  std::array<std::uint32_t, kProcessCounters.size()> m_counters{};
  std::uint64_t m_realKbytes = 0;
  std::uint64_t m_virtualKbytes = 0;
};

/// What one build works on.
struct GroupInput {
  const std::vector<Process>& snapshot;
  std::span<const Acct> ended;
  std::uint32_t processors;
};

/// Brings the list of a scheduled request up to date: adds what has ended, keeps it for the next
/// interval. Returns the list that was kept so far.
template <class Row>
std::vector<PreviousProcess> Advance(GroupState<Row>& state, ProcessList& list,
                                     std::span<const Acct> ended, std::int32_t now) {
  std::vector<PreviousProcess> old = std::move(state.previous);
  state.previous.clear();
  if (!ended.empty()) {
    ExpandProcessList(list, old, ended, state.lastEnd);
  }
  state.previous.reserve(list.rows.size());
  for (const Process* process : list.rows) {
    state.previous.emplace_back(*process, now);
  }
  return old;
}

template <class Row>
void Deliver(const Row& row, CMBRecordRequestEvent& event, int index) {
  DumpRecord(row, index);
  event.m_records.push_back(new typename RecordTraits<Row>::Class(&row));
}

/// Ended processes are taken in only where the site wants them.
GroupInput InputOf(const Collector& collector, int getDiedProcess, std::uint32_t processors) {
  return {
      *collector.GetProcess(),
      getDiedProcess != 0 ? std::span<const Acct>(*collector.GetAcct()) : std::span<const Acct>{},
      processors};
}

/// Delivers a row for each group.
template <class Row>
void BuildGroups(const Grouping<Row>& grouping, GroupState<Row>& state, const GroupInput& input,
                 CMBRecordRequestEvent& event) {
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  ProcessList list(input.snapshot);
  std::vector<PreviousProcess> old;
  if (event.IsRealtime() == 0) {
    old = Advance(state, list, input.ended, now);
  }
  const PreviousIndex previous(old);
  std::sort(list.rows.begin(), list.rows.end(),
            [&](const Process* a, const Process* b) { return grouping.less(*a, *b); });
  int rows = 0;
  for (auto next = list.rows.begin(); next != list.rows.end(); ++rows) {
    const Process& first = **next;
    GroupTotals totals;
    for (; next != list.rows.end() && !grouping.less(first, **next); ++next) {
      totals.Add(**next, previous.Find(**next), now);
    }
    Row row = NewRow<Row>(now);
    grouping.putKey(row, first);
    totals.PutInto(row, input.processors);
    Deliver(row, event, rows);
  }
  RecordBuilder::TraceCreated(__FILE__, __LINE__, RecordTraits<Row>::kName, rows);
}

}  // namespace

UtlError* RecordBuilder::BuildPD_PGM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_PGM", AddressOf(pEvent), AddressOf(pRequest));
  BuildGroups(kByProgram, StateOf<GroupState<recordPD_PGM>>(),
              InputOf(*m_pCollector, m_bGetDiedProcess, m_numCPUs), *pEvent);
  TraceExit("RecordBuilder::BuildPD_PGM", 0);
  return nullptr;
}

UtlError* RecordBuilder::BuildPD_TERM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_TERM", AddressOf(pEvent), AddressOf(pRequest));
  BuildGroups(kByTerminal, StateOf<GroupState<recordPD_TERM>>(),
              InputOf(*m_pCollector, m_bGetDiedProcess, m_numCPUs), *pEvent);
  TraceExit("RecordBuilder::BuildPD_TERM", 0);
  return nullptr;
}

UtlError* RecordBuilder::BuildPD_USER(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_USER", AddressOf(pEvent), AddressOf(pRequest));
  BuildGroups(kByUser, StateOf<GroupState<recordPD_USER>>(),
              InputOf(*m_pCollector, m_bGetDiedProcess, m_numCPUs), *pEvent);
  TraceExit("RecordBuilder::BuildPD_USER", 0);
  return nullptr;
}
