#include "collect/modern/process/ProcessCount.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "collect/LineReader.h"
#include "collect/ProcessStatus.h"
#include "collect/ProcessWalk.h"
#include "collect/modern/process/TaskIterator.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/Descriptor.h"

namespace {

using UserIds = std::vector<std::uint32_t>;

std::uint32_t CountDistinct(UserIds& users) {
  std::sort(users.begin(), users.end());
  return static_cast<std::uint32_t>(std::unique(users.begin(), users.end()) - users.begin());
}

std::optional<std::uint32_t> RealUser(LineReader& reader, int descriptor) {
  reader.Start(descriptor);
  for (ProcLine line; reader.Next(line);) {
    std::uint32_t user = 0;
    if (HasStatusKey(line.data(), kStatusUid) &&
        StatusValues(line.data(), kStatusUid).Unsigned(user)) {
      return user;
    }
  }
  return std::nullopt;
}

}  // namespace

ProcessCount CountRows(const std::vector<Process>& rows) {
  UserIds users;
  users.reserve(rows.size());
  for (const Process& process : rows) {
    users.push_back(static_cast<std::uint32_t>(process.ruid));
  }
  return {static_cast<std::uint32_t>(rows.size()), CountDistinct(users)};
}

ProcessCount CountTasks(const std::vector<TaskGroup>& groups) {
  UserIds users;
  users.reserve(groups.size());
  for (const TaskGroup& group : groups) {
    users.push_back(group.task.uid);
  }
  return {static_cast<std::uint32_t>(groups.size()), CountDistinct(users)};
}

ProcessCount CountPresent() {
  const std::vector<TaskGroup>* const groups = TaskIterator::Instance().Read();
  return groups == nullptr ? CountInProc() : CountTasks(*groups);
}

ProcessCount CountInProc() {
  ProcessWalk walk(20);
  ProcessCount count;
  if (!walk.IsOpen()) {
    return count;
  }
  UserIds users;
  LineReader reader;
  while (const char* pid = walk.Next()) {
    const Descriptor status(walk.Open(ProcessFolder(pid).PathOf("status")));
    if (!status.IsOpen()) {
      count.processes += errno == ENOENT || errno == ESRCH ? 0 : 1;
    } else if (const std::optional<std::uint32_t> user = RealUser(reader, status.Get())) {
      ++count.processes;
      users.push_back(*user);
    }
  }
  count.users = CountDistinct(users);
  return count;
}
