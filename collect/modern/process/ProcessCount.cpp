#include "collect/modern/process/ProcessCount.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

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

void CountOne(const ProcessWalk& walk, const char* pid, LineReader& reader, ProcessCount& count,
              UserIds& users) {
  const Descriptor status(walk.IsOpen() ? walk.Open(ProcessFolder(pid).PathOf("status")) : -1);
  if (!status.IsOpen()) {
    count.processes += errno == ENOENT || errno == ESRCH ? 0 : 1;
  } else if (const std::optional<std::uint32_t> user = RealUser(reader, status.Get())) {
    ++count.processes;
    users.push_back(*user);
  }
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

ProcessCount CountPresent() {
  const std::vector<TaskGroup>* const groups = TaskIterator::Instance().Read();
  if (groups == nullptr) {
    return CountInProc();
  }
  ProcessCount count{static_cast<std::uint32_t>(groups->size()), 0};
  UserIds users;
  users.reserve(groups->size());
  for (const TaskGroup& group : *groups) {
    users.push_back(group.task.uid);
  }
  const std::vector<std::int32_t>& missing = TaskIterator::Instance().Missing();
  if (!missing.empty()) {
    const ProcessWalk walk(20);
    LineReader reader;
    for (const std::int32_t pid : missing) {
      CountOne(walk, std::to_string(pid).c_str(), reader, count, users);
    }
  }
  count.users = CountDistinct(users);
  return count;
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
    CountOne(walk, pid, reader, count, users);
  }
  count.users = CountDistinct(users);
  return count;
}
