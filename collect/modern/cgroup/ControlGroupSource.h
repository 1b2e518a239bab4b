#pragma once

#include <cstddef>
#include <vector>

#include "collect/modern/cgroup/ControlGroup.h"

/// How far control groups become rows.
struct ControlGroupWalk {
  /// Down to this many levels below the root each group is a row; below them those that
  /// IsNotableGroup() tells.
  int depth = 3;
  /// The first ones of the order are kept. Groups count in the processes of those above them all
  /// the same.
  std::size_t mostGroups = 20000;
};

/// Reads the control groups of the host into `groups`, in place of what was there: those of all
/// hierarchies with figures that are mounted where this process can reach them, joined by their
/// paths. Where version 1 and version 2 tell the same figure, it is that of version 1. Groups stand
/// before those below them, those of one folder in the order of their bytes. Groups more than 64
/// levels below the root, and those beyond 200,000, are not looked at; where that leaves groups out
/// of a sum of processes or threads, it is kNotTold. None if no hierarchy is mounted.
void ReadControlGroups(std::vector<ControlGroup>& groups, const ControlGroupWalk& walk = {});
