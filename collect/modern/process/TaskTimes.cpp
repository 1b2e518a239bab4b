#include "collect/modern/process/TaskTimes.h"

#include <algorithm>

namespace {

__extension__ typedef unsigned __int128 WideTime;

/// The part of the run time that is the system's.
std::uint64_t SystemPart(std::uint64_t user, std::uint64_t system, std::uint64_t runTime) {
  if (system == 0) {
    return 0;
  }
  return user == 0
             ? runTime
             : static_cast<std::uint64_t>(WideTime{system} * runTime / (WideTime{user} + system));
}

}  // namespace

void ScaleTaskTimes(std::uint64_t user, std::uint64_t system, std::uint64_t runTime,
                    TaskTimes& last) {
  if (last.user + last.system >= runTime) {
    return;
  }
  TaskTimes now;
  now.system = std::max(SystemPart(user, system, runTime), last.system);
  now.user = runTime - now.system;
  if (now.user < last.user) {
    now.user = last.user;
    now.system = runTime - now.user;
  }
  last = now;
}
