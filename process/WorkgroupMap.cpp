#include "process/WorkgroupMap.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "collect/process/NameCache.h"
#include "process/ProcessComparison.h"
#include "process/ProcessTrace.h"
#include "support/OsCalls.h"

namespace {

/// The processes of the last pass, in its order.
class LastPass {
 public:
  LastPass(std::span<const Process> old, const ProcessRules& rules) : m_rules(rules) {
    m_byPid.reserve(old.size());
    for (const Process& process : old) {
      if (process.pid >= 0) {
        m_byPid.try_emplace(process.pid, &process);
      } else {
        m_ended[process.startTime.seconds].push_back(&process);
      }
    }
  }

  /// The first one in the list; null if there is none.
  [[nodiscard]] const Process* Find(const Process& process) const {
    const auto place = m_byPid.find(process.pid);
    const bool isSame = place != m_byPid.end() &&
                        m_rules.isSameInWorkgroups(StartOf(*place->second), StartOf(process));
    const Process* const same = isSame ? place->second : nullptr;
    return Earlier(same, FindEnded(process));
  }

 private:
  [[nodiscard]] const Process* FindEnded(const Process& process) const {
    if (m_ended.empty()) {
      return nullptr;
    }
    const auto place = m_ended.find(process.startTime.seconds);
    if (place == m_ended.end()) {
      return nullptr;
    }
    const auto found = std::find_if(place->second.begin(), place->second.end(),
                                    [&](const Process* old) { return IsSameEnded(*old, process); });
    return found == place->second.end() ? nullptr : *found;
  }

  /// Ended processes have no number any more.
  [[nodiscard]] static bool IsSameEnded(const Process& old, const Process& process) {
    const std::string_view name = old.GetName();
    const tagUTIME zero;
    if (name.starts_with(kDefunct) && (old.GetStartTime() == zero || old.GetUserTime() == zero ||
                                       !(old.GetUserTime() == process.GetUserTime()))) {
      return false;
    }
    return old.GetStartTime() == process.GetStartTime() &&
           AcctName(name) == AcctName(process.GetName()) && old.egid == process.egid &&
           old.euid == process.euid;
  }

  const ProcessRules& m_rules;
  std::unordered_map<std::int32_t, const Process*> m_byPid;
  std::unordered_map<std::int32_t, std::vector<const Process*>> m_ended;  ///< by start second
};

WorkgroupDelta DeltaOf(const Process& process, const Process* old, const ProcessRules& rules,
                       std::int32_t now) {
  static const Process kNothing;
  const Process& before = old == nullptr ? kNothing : *old;
  WorkgroupDelta delta;
  delta.contextSwitches = rules.growth(process.contextSwitches, before.contextSwitches);
  delta.majorFaults = rules.growth(process.majorFaults, before.majorFaults);
  delta.realMemKbytes = rules.realKbytes(process);
  delta.virtualMemKbytes = rules.virtualKbytes(process);
  delta.swaps = rules.growth(process.swaps, before.swaps);
  delta.systemCpu = Hundredths(process.GetSystemTime() - before.GetSystemTime());
  delta.userCpu = Hundredths(process.GetUserTime() - before.GetUserTime());
  delta.startTime = static_cast<std::uint32_t>(rules.countsFrom(process.startTime.seconds, now));
  if (IsComparable(rules.ioTotal(process), rules.ioTotal(before))) {
    delta.ioKbytes = rules.growth(process.ioKbytes, before.ioKbytes);
    delta.blockOps = rules.growth(process.blockOps, before.blockOps);
    delta.reads = rules.growth(process.reads, before.reads);
    delta.writes = rules.growth(process.writes, before.writes);
  }
  return delta;
}

/// A name that the batch's field may have cut is asked for again; the system's answer is kept.
const char* WholeName(const BatchNames::Name& name, const char* (*lookUp)(int), int identity) {
  return name.view().size() + 1 < sizeof name ? name.c_str() : lookUp(identity);
}

}  // namespace

ProcessSubject::ProcessSubject(const Process& process, BatchNames& names)
    : userName(WholeName(
          names.User(process.euid), [](int uid) { return UserName(nullptr, uid); }, process.euid)),
      groupName(WholeName(
          names.Group(process.egid), [](int gid) { return GroupName(nullptr, gid); },
          process.egid)),
      program(process.GetName()) {
  const std::string_view text = process.GetCmdline();
  std::copy(text.begin(), text.end(), arguments.begin());
}

void UpdateWgMap(std::span<const Process* const> current, std::span<const Process> old, WgMap& map,
                 BatchNames& names, const ProcessRules& rules) {
  TraceEntry("RecordBuilder::UpdateWgMap", current.size(), old.size(), map.size());
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  const LastPass lastPass(old, rules);
  WorkGroup* other = nullptr;
  std::vector<WorkGroup*> groups;
  for (const auto& [name, group] : map) {
    if (name == kOtherWorkgroup) {
      other = group.get();
    } else {
      groups.push_back(group.get());
    }
  }
  for (const Process* process : current) {
    const WorkgroupDelta delta = DeltaOf(*process, lastPass.Find(*process), rules, now);
    const ProcessSubject subject(*process, names);
    bool isTaken = false;
    for (WorkGroup* group : groups) {
      if (subject.IsIn(*group)) {
        group->Add(delta);
        PrintProcessTrace("workgroup \"%s\" takes process %d", group->Name().c_str(), process->pid);
        isTaken = true;
      }
    }
    if (!isTaken && other != nullptr) {
      other->Add(delta);
      PrintProcessTrace("workgroup \"%s\" takes process %d", kOtherWorkgroup, process->pid);
    }
  }
  TraceExit("RecordBuilder::UpdateWgMap", 0);
}
