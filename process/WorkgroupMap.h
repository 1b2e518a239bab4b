#pragma once

#include <array>
#include <span>

#include "collect/process/ProcessSourceLINUX.h"
#include "process/ProcessRow.h"
#include "process/ProcessRules.h"
#include "userdata/WorkGroup.h"

/// What workgroups know a process by. The texts live as long as the process and the names.
struct ProcessSubject {
  ProcessSubject(const Process& process, BatchNames& names);

  [[nodiscard]] bool IsIn(const WorkGroup& group) const {
    return group.Matches(userName, groupName, program, arguments.data());
  }
  [[nodiscard]] std::optional<WorkGroup::Rule> RuleOf(const WorkGroup& group) const {
    return group.FindRule(userName, groupName, program, arguments.data());
  }

  const char* userName;  ///< of the effective identity, as the group is
  const char* groupName;
  const char* program;
  std::array<char, sizeof(x_proc::cmdline) + 1> arguments{};
};

/// Adds each process of `current` to all workgroups that take it, else to "Other". It counts with
/// what its figures have grown by since `old`, the list of the last pass, and with its memory as it
/// is now; a process that `old` does not hold counts since its start.
void UpdateWgMap(std::span<const Process* const> current, std::span<const Process> old, WgMap& map,
                 BatchNames& names, const ProcessRules& rules);
