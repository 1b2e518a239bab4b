#include "process/ExpandProcessList.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <tuple>

#include "support/TraceLog.h"

namespace {

constexpr std::size_t kAcctNameSize = 8;
constexpr std::string_view kDefunct = std::string_view("<defunct>").substr(0, kAcctNameSize);
constexpr std::uint64_t kNoTerminal = ~std::uint64_t{0};

/// Start in seconds, user and group.
using Key = std::tuple<std::int32_t, std::int32_t, std::int32_t>;
/// Entries of one key stay in the order of their list.
using OldEntries = std::multimap<Key, const PreviousProcess*>;

Key KeyOf(const PreviousProcess& old) { return {old.startTime.seconds, old.euid, old.egid}; }
Key KeyOf(const Acct& acct) {
  return {acct.GetStartTime().seconds, static_cast<std::int32_t>(acct.uid),
          static_cast<std::int32_t>(acct.gid)};
}

std::int64_t Hundredths(const tagUTIME& time) {
  return std::int64_t{time.seconds} * 100 + time.microseconds / 10000;
}

tagNTIME ToNTIME(const tagUTIME& time) { return {time.seconds, time.microseconds * 1000}; }

/// Of the entries with the same key a zombie must have the same user time; any other one may also
/// have been renamed since.
bool Matches(const PreviousProcess& old, const Acct& acct) {
  if (Hundredths(ToUTIME(old.userTime)) == Hundredths(acct.userTime)) {
    return true;
  }
  const std::string_view oldName = std::string_view(old.name).substr(0, kAcctNameSize);
  return oldName != kDefunct && oldName != acct.GetComm();
}

const PreviousProcess* Find(const OldEntries& entries, const Acct& acct) {
  const auto [begin, end] = entries.equal_range(KeyOf(acct));
  const auto found =
      std::find_if(begin, end, [&](const auto& entry) { return Matches(*entry.second, acct); });
  return found == end ? nullptr : found->second;
}

/// A process that no list has seen alive.
Process Unseen(const Acct& acct) {
  Process process;
  const std::string_view name = acct.GetComm();
  std::copy(name.begin(), name.end(), process.x_proc::name.begin());
  process.pid = -1;
  process.euid = process.ruid = process.suid = static_cast<std::int32_t>(acct.uid);
  process.egid = process.rgid = process.sgid = static_cast<std::int32_t>(acct.gid);
  return process;
}

/// Accounting rows have no flags and no exit status: both are 0.
void PutEnd(Process& process, const Acct& acct) {
  process.ioKbytes = static_cast<std::uint32_t>(std::lround(acct.io / 1024.0));
  process.blockOps = acct.rw;
  process.userTime = ToNTIME(acct.userTime);
  process.systemTime = ToNTIME(acct.systemTime);
  process.cpuTime = ToNTIME(acct.userTime + acct.systemTime);
  process.startTime = ToNTIME(acct.GetStartTime());
  process.died = 1;
  process.endTime = acct.GetEndTime();
  process.memCharge = acct.mem;
  process.tty = acct.tty == 0 ? kNoTerminal : acct.tty;
  process.accountingCommand = acct.comm;
}

}  // namespace

PreviousProcess::PreviousProcess(const Process& process, std::int32_t snapshot)
    : pid(process.pid),
      euid(process.euid),
      egid(process.egid),
      state(process.state),
      tty(process.tty),
      startTime(process.startTime),
      userTime(process.userTime),
      systemTime(process.systemTime),
      residentBytes(process.residentBytes),
      virtualSize(process.virtualSize),
      counters{},
      snapshotTime(snapshot),
      name(process.GetName()) {
  for (std::size_t index = 0; index < counters.size(); ++index) {
    counters[index] = process.*kProcessCounters[index];
  }
}

Process PreviousProcess::Recall() const {
  Process process;
  process.pid = pid;
  process.euid = euid;
  process.egid = egid;
  process.state = state;
  process.tty = tty;
  process.startTime = startTime;
  process.userTime = userTime;
  process.systemTime = systemTime;
  process.residentBytes = residentBytes;
  process.virtualSize = virtualSize;
  for (std::size_t index = 0; index < counters.size(); ++index) {
    process.*kProcessCounters[index] = counters[index];
  }
  process.snapshotTime = snapshotTime;
  const std::size_t length = std::min(name.size(), process.x_proc::name.size() - 1);
  std::copy_n(name.begin(), length, process.x_proc::name.begin());
  return process;
}

ProcessList::ProcessList(const std::vector<Process>& snapshot) {
  rows.reserve(snapshot.size());
  for (const Process& process : snapshot) {
    rows.push_back(&process);
  }
}

void ProcessList::AddEnded(const Process& process) {
  rows.push_back(&m_ended.emplace_back(process));
}

void ExpandProcessList(ProcessList& current, std::span<const PreviousProcess> old,
                       std::span<const Acct> acctList, tagUTIME& lastEndTime) {
  Trace(30, kInformation,
        "ExpandProcList()::%1 processes in current list, %2 items in Acct List, %3items in old "
        "List.",
        current.rows.size(), acctList.size(), old.size());
  OldEntries entries;
  for (const PreviousProcess& process : old) {
    entries.emplace(KeyOf(process), &process);
  }
  const std::size_t sizeAtStart = current.rows.size();
  std::size_t matches = 0;
  std::size_t misses = 0;
  for (const Acct& acct : acctList) {
    if (!(lastEndTime < acct.GetEndTime())) {
      break;
    }
    lastEndTime = acct.GetEndTime();
    const PreviousProcess* known = Find(entries, acct);
    ++(known == nullptr ? misses : matches);
    Process process = known == nullptr ? Unseen(acct) : known->Recall();
    process.snapshotTime = 0;
    PutEnd(process, acct);
    current.AddEnded(process);
  }
  // The current list itself is not searched, so it has neither.
  Trace(30, kInformation,
        "ExpandProc()::Misses(Matches) %1 (%2) in old_list %3 (%4) from current list.", misses,
        matches, 0, 0);
  if (current.rows.size() < sizeAtStart) {
    current.rows.resize(current.rows.size() - std::min(current.rows.size(), misses + matches));
    Trace(30, kWarning,
          "ExpandProc()::%1 items from %2 inserted to map, total insert operations=%3.",
          entries.size(), old.size(), old.size());
  }
}
