#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/TaskFigures.h"

/// The figures of a process by names of the tests' own, in the units of /proc. One that the kernel
/// does not tell of it is missing.
struct ProcessFigures {
  std::map<std::string, std::int64_t> numbers;
  std::string name;
};

/// As /proc tells of the process, its threads included; without numbers if there is none.
ProcessFigures FiguresFromProc(pid_t process);
/// As the stream does.
ProcessFigures FiguresFromStream(const std::vector<TaskFigures>& tasks, pid_t process);

/// What of `now` lies outside `before` and `after`, a line each; empty if it agrees.
std::string Differences(const ProcessFigures& before, const ProcessFigures& now,
                        const ProcessFigures& after);
