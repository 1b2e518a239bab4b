#include "process/ExpandProcessList.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

#include "process/ProcessComparison.h"
#include "process/ProcessTrace.h"
#include "support/TraceLog.h"

namespace {

/// Start in seconds, user and group.
using AcctKey = std::tuple<std::int32_t, std::int32_t, std::int32_t>;

AcctKey KeyOf(const Process& old) { return {old.startTime.seconds, old.euid, old.egid}; }
AcctKey KeyOf(const Acct& acct) {
  return {acct.GetStartTime().seconds, static_cast<std::int32_t>(acct.uid),
          static_cast<std::int32_t>(acct.gid)};
}

tagNTIME ToNTIME(const tagUTIME& time) { return {time.seconds, time.microseconds * 1000}; }

std::string_view ShortName(const Process& process) { return AcctName(process.GetName()); }

/// An old list by what accounting tells of a process that has ended. Of the entries with the same
/// key a zombie must have the same user time; any other one may also have been renamed since.
class EndedIndex {
 public:
  explicit EndedIndex(std::span<const Process> old) {
    for (const Process& process : old) {
      const AcctKey key = KeyOf(process);
      m_byUserTime.try_emplace({key, Hundredths(process.GetUserTime())}, &process);
      if (ShortName(process) == AcctName(kDefunct)) {
        continue;
      }
      TwoNames& names = m_byName[key];
      if (names.first == nullptr) {
        names.first = &process;
      } else if (names.other == nullptr && ShortName(process) != ShortName(*names.first)) {
        names.other = &process;
      }
    }
  }

  /// The first one in the list; null if there is none.
  [[nodiscard]] const Process* Find(const Acct& acct) const {
    const AcctKey key = KeyOf(acct);
    const auto place = m_byUserTime.find({key, Hundredths(acct.userTime)});
    const Process* const same = place == m_byUserTime.end() ? nullptr : place->second;
    return Earlier(same, FindRenamed(key, acct.GetComm()));
  }

 private:
  /// The first process of a key, and the first one of another name: one of the two does not have
  /// a name sought.
  struct TwoNames {
    const Process* first = nullptr;
    const Process* other = nullptr;
  };

  [[nodiscard]] const Process* FindRenamed(const AcctKey& key, std::string_view name) const {
    const auto place = m_byName.find(key);
    if (place == m_byName.end()) {
      return nullptr;
    }
    return ShortName(*place->second.first) != name ? place->second.first : place->second.other;
  }

  std::map<std::pair<AcctKey, std::int64_t>, const Process*> m_byUserTime;
  std::map<AcctKey, TwoNames> m_byName;
};

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

ProcessList::ProcessList(const std::vector<Process>& snapshot) {
  rows.reserve(snapshot.size());
  for (const Process& process : snapshot) {
    rows.push_back(&process);
  }
  PrintProcessTrace("process list of %zu taken", rows.size());
}

void ProcessList::AddEnded(const Process& process) {
  rows.push_back(&m_ended.emplace_back(process));
}

void ExpandProcessList(ProcessList& current, std::span<const Process> old,
                       std::span<const Acct> acctList, tagUTIME& lastEndTime) {
  TraceEntry("RecordBuilder::ExpandProcessList", current.rows.size(), old.size(), acctList.size());
  Trace(30, kInformation,
        "ExpandProcList()::%1 processes in current list, %2 items in Acct List, %3items in old "
        "List.",
        current.rows.size(), acctList.size(), old.size());
  const EndedIndex oldProcesses(old);
  const std::size_t sizeAtStart = current.rows.size();
  std::size_t matches = 0;
  std::size_t misses = 0;
  for (const Acct& acct : acctList) {
    if (!(lastEndTime < acct.GetEndTime())) {
      break;
    }
    lastEndTime = acct.GetEndTime();
    const Process* known = oldProcesses.Find(acct);
    ++(known == nullptr ? misses : matches);
    Process process = known == nullptr ? Unseen(acct) : *known;
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
          "ExpandProc()::%1 items from %2 inserted to map, total insert operations=%3.", old.size(),
          old.size(), old.size());
  }
  TraceExit("RecordBuilder::ExpandProcessList", current.rows.size());
}
