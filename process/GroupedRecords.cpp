#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_map>

#include "process/PastProcesses.h"
#include "process/ProcessRow.h"
#include "records/RecordClasses.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

// Programs, terminals and users: the same sums over processes, grouped by another key.

namespace {

/// What the three records group by.
template <class Row>
struct Grouping {
  bool (*less)(const Process& a, const Process& b);
  void (*putKey)(Row& row, const Process& process, BatchNames& names);
};

constexpr Grouping<recordPD_PGM> kByProgram{
    [](const Process& a, const Process& b) { return std::strcmp(a.GetName(), b.GetName()) < 0; },
    [](recordPD_PGM& row, const Process& process, BatchNames&) {
      row.program = process.GetName();
    }};
constexpr Grouping<recordPD_TERM> kByTerminal{
    [](const Process& a, const Process& b) { return a.tty < b.tty; },
    [](recordPD_TERM& row, const Process& process, BatchNames& names) {
      row.terminal = names.Terminal(process.tty);
    }};
constexpr Grouping<recordPD_USER> kByUser{
    [](const Process& a, const Process& b) { return a.euid < b.euid; },
    [](recordPD_USER& row, const Process& process, BatchNames& names) {
      row.userId = process.euid;
      row.user = names.User(process.euid);
    }};

/// The counters of a process that a previous look is subtracted from.
constexpr std::array<std::uint32_t Process::*, 9> kProcessCounters{
    &Process::majorFaults,     &Process::minorFaults, &Process::swaps,
    &Process::contextSwitches, &Process::signals,     &Process::reads,
    &Process::writes,          &Process::blockOps,    &Process::ioKbytes};
/// Those from here on are of what it read and wrote.
constexpr std::size_t kFirstIoCounter = 5;
static_assert(kProcessCounters[kFirstIoCounter] == &Process::reads);

/// The fields of a row that kProcessCounters feeds, in that order.
template <class Row>
constexpr std::array<Ulong Row::*, kProcessCounters.size()> kRowCounters{
    &Row::majorFaults,     &Row::minorFaults, &Row::swaps,
    &Row::contextSwitches, &Row::signalsRcvd, &Row::reads,
    &Row::writes,          &Row::totalIoOps,  &Row::totalIoKbytes};

template <class Row>
struct GroupState : FamilyState {
  PastProcesses past;
};

/// The processes of a previous list by their number.
class PreviousIndex {
 public:
  PreviousIndex(std::span<const Process> previous, const ProcessRules& rules) : m_rules(rules) {
    m_byPid.reserve(previous.size());
    for (const Process& process : previous) {
      m_byPid.try_emplace(process.pid, &process);
    }
  }

  /// Null too if the number now belongs to another process, which the start time tells.
  [[nodiscard]] const Process* Find(const Process& process) const {
    const auto found = process.pid < 0 ? m_byPid.end() : m_byPid.find(process.pid);
    return found != m_byPid.end() && m_rules.isSame(StartOf(*found->second), StartOf(process))
               ? found->second
               : nullptr;
  }

 private:
  const ProcessRules& m_rules;
  std::unordered_map<std::int32_t, const Process*> m_byPid;
};

double Seconds(const tagUTIME& time) { return time.seconds + time.microseconds / 1e6; }

/// Zero if the time went backwards.
tagUTIME Elapsed(const tagNTIME& current, const tagNTIME& previous) {
  const tagUTIME now = ToUTIME(current);
  const tagUTIME before = ToUTIME(previous);
  return now < before ? tagUTIME{} : now - before;
}

/// The sums over one group.
class GroupTotals {
 public:
  explicit GroupTotals(const ProcessRules& rules) : m_rules(rules) {}

  /// `previous` is the same process at the last interval, at `previousTime`, or null. Times are in
  /// seconds since 1970.
  void Add(const Process& process, const Process* previous, std::int32_t previousTime,
           std::int32_t now) {
    const bool isKnown = previous != nullptr;
    const tagUTIME user = Elapsed(process.userTime, isKnown ? previous->userTime : tagNTIME{});
    const tagUTIME system =
        Elapsed(process.systemTime, isKnown ? previous->systemTime : tagNTIME{});
    const std::int64_t seconds = SecondsBetween(
        isKnown ? previousTime : m_rules.countsFrom(process.startTime.seconds, now), now);
    if (seconds > 0) {
      m_cpuPercent += 100 * Seconds(user + system) / static_cast<double>(seconds);
    }
    const bool hasIo = AddIo(process, previous, seconds);
    m_userCpu = m_userCpu + user;
    m_systemCpu = m_systemCpu + system;
    const std::size_t counted = hasIo ? m_counters.size() : kFirstIoCounter;
    for (std::size_t index = 0; index < counted; ++index) {
      m_counters[index] += m_rules.growth(process.*kProcessCounters[index],
                                          isKnown ? previous->*kProcessCounters[index] : 0);
    }
    m_realKbytes += m_rules.realKbytes(process);
    m_virtualKbytes += m_rules.virtualKbytes(process);
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
    if (m_rules.hasGroupRates) {
      PutIo(row);
    }
  }

 private:
  /// The sum over processes of what each did in a second of its own time.
  struct IoRates {
    double reads = 0;
    double writes = 0;
    double ops = 0;
    double kbytes = 0;
  };

  /// Whether it can be told what the process read and wrote.
  bool AddIo(const Process& process, const Process* previous, std::int64_t seconds) {
    static const Process kNothing;
    const Process& before = previous == nullptr ? kNothing : *previous;
    const ProcessIoTotal total = m_rules.ioTotal(process);
    const ProcessIoTotal totalBefore = m_rules.ioTotal(before);
    if (!IsComparable(total, totalBefore)) {
      return false;
    }
    const double kbytes = m_rules.ioGrowth(total, totalBefore);
    m_ioKbytes += kbytes;
    if (seconds > 0) {
      const auto rate = [&](double amount) { return amount / static_cast<double>(seconds); };
      m_rates.reads += rate(m_rules.growth(process.reads, before.reads));
      m_rates.writes += rate(m_rules.growth(process.writes, before.writes));
      m_rates.ops += rate(m_rules.growth(process.blockOps, before.blockOps));
      m_rates.kbytes += rate(kbytes);
    }
    return true;
  }

  template <class Row>
  void PutIo(Row& row) const {
    if (const std::uint32_t ops = row.totalIoOps; ops != 0) {
      row.avgIoKbytes = static_cast<float>(m_ioKbytes / ops);
    }
    row.readsPerSec = static_cast<float>(m_rates.reads);
    row.writesPerSec = static_cast<float>(m_rates.writes);
    row.totalIoOpsPerSec = static_cast<float>(m_rates.ops);
    row.throughputPerSec = static_cast<float>(m_rates.kbytes);
  }

  void Put(Ulong& field, std::uint64_t kbytes) const { field = m_rules.sizeWord(kbytes); }
  void Put(Float& field, std::uint64_t kbytes) const { field = static_cast<float>(kbytes); }

  const ProcessRules& m_rules;

  std::uint32_t m_count = 0;
  tagUTIME m_userCpu;
  tagUTIME m_systemCpu;
  double m_cpuPercent = 0;
  std::array<std::uint32_t, kProcessCounters.size()> m_counters{};
  std::uint64_t m_realKbytes = 0;
  std::uint64_t m_virtualKbytes = 0;
  double m_ioKbytes = 0;
  IoRates m_rates;
};

/// Delivers a row for each group. Returns how many.
template <class Row>
int BuildGroups(const Grouping<Row>& grouping, PastProcesses& past, const ProcessInput& input,
                CMBRecordRequestEvent& event) {
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const bool realtime = event.IsRealtime() != 0;
  ProcessList list(input.Processes());
  PastProcesses next;
  if (!realtime) {
    next = input.Advance(past, list, now);
  }
  const PreviousIndex previous(realtime ? std::span<const Process>{} : past.Processes(),
                               input.rules);
  input.names.Begin(input.cycle);
  std::sort(list.rows.begin(), list.rows.end(),
            [&](const Process* a, const Process* b) { return grouping.less(*a, *b); });
  int rows = 0;
  for (auto member = list.rows.begin(); member != list.rows.end(); ++rows) {
    const Process& first = **member;
    GroupTotals totals(input.rules);
    for (; member != list.rows.end() && !grouping.less(first, **member); ++member) {
      totals.Add(**member, previous.Find(**member), past.time, now);
    }
    Row row = NewRow<Row>(now);
    grouping.putKey(row, first, input.names);
    totals.PutInto(row, input.processors);
    DeliverRow(row, event, rows);
  }
  if (!realtime) {
    past = std::move(next);
  }
  return rows;
}

/// The body of each of the builders; `builder` is its name, and its place that of the traces.
template <class Row>
UtlError* BuildGrouped(const TraceFormat& builder, const Grouping<Row>& grouping,
                       PastProcesses& past, const ProcessInput& input, CMBRecordRequestEvent* event,
                       const CMBRecordRequest* request) {
  TraceEntry(builder, AddressOf(event), AddressOf(request));
  const int rows = BuildGroups(grouping, past, input, *event);
  RecordBuilder::TraceCreated(builder.m_file, builder.m_line, RecordTraits<Row>::kName, rows);
  TraceExit(builder, 0);
  return nullptr;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_PGM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrouped("RecordBuilder::BuildPD_PGM", kByProgram,
                      StateOf<GroupState<recordPD_PGM>>().past, InputOfProcesses(), pEvent,
                      pRequest);
}

UtlError* RecordBuilder::BuildPD_TERM(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrouped("RecordBuilder::BuildPD_TERM", kByTerminal,
                      StateOf<GroupState<recordPD_TERM>>().past, InputOfProcesses(), pEvent,
                      pRequest);
}

UtlError* RecordBuilder::BuildPD_USER(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  return BuildGrouped("RecordBuilder::BuildPD_USER", kByUser,
                      StateOf<GroupState<recordPD_USER>>().past, InputOfProcesses(), pEvent,
                      pRequest);
}
