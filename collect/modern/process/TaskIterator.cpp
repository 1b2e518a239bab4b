#include "collect/modern/process/TaskIterator.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "collect/ProcessWalk.h"
#include "collect/TextScanner.h"
#include "collect/modern/HostFolder.h"
#include "node/FigureRegistry.h"
#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kIteratorVariable = "QMT_TASK_ITERATOR";
constexpr const char* kOwnProcess = "/proc/self";
constexpr std::size_t kPieceOfStream = 64 * 1024;
constexpr int kReadsOfAList = 10;
/// The kernel asks for a further read after so many tasks without a word.
constexpr int kMostEmptyReads = 100;

std::string_view ChosenSource() {
  const char* const chosen = ProductOptions::Instance().Get("Host", "Process Source");
  return chosen == nullptr ? "auto" : chosen;
}

/// Whether user ids are those of the host, which the iterator tells.
bool HasUsersOfHost() {
  std::string text;
  if (!HostFolder(kOwnProcess).Read("uid_map", text)) {
    return true;  // a kernel without name spaces of users
  }
  TextScanner scanner(text);
  std::uint64_t inside = 1;
  std::uint64_t outside = 1;
  std::uint64_t count = 0;
  scanner.Unsigned(inside);
  scanner.Unsigned(outside);
  return scanner.Unsigned(count) && inside == 0 && outside == 0 && count == 4294967295;
}

/// Whether start times are those since the host's start, which the iterator tells.
bool HasClockOfHost() {
  std::string text;
  if (!HostFolder(kOwnProcess).Read("timens_offsets", text)) {
    return true;
  }
  const std::size_t place = text.find("boottime");
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  if (place != std::string::npos) {
    TextScanner scanner(std::string_view(text).substr(place));
    scanner.SkipWord();
    scanner.Signed(seconds);
    scanner.Signed(nanoseconds);
  }
  return seconds == 0 && nanoseconds == 0;
}

/// Why the iterator of this host is not that of the monitored one; empty if it is.
std::string ReasonOfHost() {
  if (g_hostReads != nullptr) {
    return "a capture is made or replayed";
  }
  if (!IsRunningHost()) {
    return "the host is a tree of files";
  }
  if (!HasUsersOfHost()) {
    return "the agent has a user name space of its own";
  }
  return HasClockOfHost() ? "" : "the agent has a time name space of its own";
}

/// The processes that /proc lists, in the order of their numbers.
std::vector<std::int32_t> NumbersInProc() {
  std::vector<std::int32_t> numbers;
  ProcessWalk walk(20);
  while (const char* name = walk.IsOpen() ? walk.Next() : nullptr) {
    std::int32_t number = 0;
    const char* const end = name + std::strlen(name);
    if (const auto [stop, code] = std::from_chars(name, end, number);
        code == std::errc{} && stop == end && number > 0) {
      numbers.push_back(number);
    }
  }
  std::ranges::sort(numbers);
  return numbers;
}

void PublishFaults() {
  FigureRegistry::Instance().Add(
      {"collect_process_iterator_faults",
       "Streams of the kernel's task iterator that had a fault, so that /proc was walked.",
       FigureKind::kCounter,
       [] { return static_cast<double>(TaskIterator::Instance().Faults()); },
       {}});
}

}  // namespace

TaskIterator& TaskIterator::Instance() {
  static TaskIterator iterator;
  return iterator;
}

std::vector<TaskGroup>* TaskIterator::Read() {
  const std::string reason = TryToRead();
  Tell(reason);
  m_isInUse = reason.empty();
  if (m_isInUse) {
    FindMissing();
  }
  return Groups();
}

std::string TaskIterator::TryToRead() {
  if (ChosenSource() == "proc") {
    return "the setting Process Source is proc";
  }
  if (const char* other = std::getenv(kIteratorVariable); other != nullptr && *other != '\0') {
    return ReadFile(other);
  }
  const std::string reason = ReasonOfHost();
  return reason.empty() ? ReadFile(HostPath(kTaskIteratorPath)) : reason;
}

std::string TaskIterator::ReadFile(const std::string& path) {
  const Descriptor file(
      OpenHost(AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct ::stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    m_isFaulty = false;
    return path + ": " + std::strerror(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    m_isFaulty = false;
    return path + ": is no regular file";
  }
  const Identity identity{status.st_dev, status.st_ino, status.st_ctim.tv_sec,
                          status.st_ctim.tv_nsec};
  if (m_isFaulty && identity == m_file) {
    return m_fault;
  }
  const std::string fault = ReadStream(file);
  m_isFaulty = !fault.empty();
  m_faults += m_isFaulty ? 1 : 0;
  m_readsToList = identity == m_file ? m_readsToList : 0;
  m_file = identity;
  m_fault = m_isFaulty ? path + ": " + fault : "";
  return m_fault;
}

std::string TaskIterator::ReadStream(const Descriptor& file) {
  TaskStream stream(m_groups);
  std::vector<std::byte> piece(kPieceOfStream);
  for (int empty = 0; empty < kMostEmptyReads;) {
    const ssize_t count = ::read(file.Get(), piece.data(), piece.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
      ++empty;
    } else if (count < 0) {
      return std::strerror(errno);
    } else if (count == 0) {
      return stream.Finish() ? "" : stream.Fault();
    } else if (!stream.Take(std::span(piece).first(static_cast<std::size_t>(count)))) {
      return stream.Fault();
    }
  }
  return "it does not end";
}

void TaskIterator::FindMissing() {
  if (m_readsToList-- == 0) {
    m_readsToList = kReadsOfAList - 1;
    m_missing = NumbersInProc();
  }
  std::erase_if(m_missing, [&](std::int32_t pid) {
    return std::ranges::binary_search(m_groups, pid, {},
                                      [](const TaskGroup& group) { return group.task.tgid; });
  });
}

void TaskIterator::Tell(const std::string& reason) {
  if (m_hasTold && reason == m_told) {
    return;
  }
  if (!m_hasTold) {
    PublishFaults();
  }
  const bool wasThere = m_hasTold && m_told.empty();
  m_hasTold = true;
  m_told = reason;
  FigureRegistry& registry = FigureRegistry::Instance();
  registry.SetFact("process_source", reason.empty() ? "iterator" : "proc");
  registry.SetFact("process_source_reason", reason);
  if (reason.empty()) {
    Trace(20, kInformation, "Processes are read from the kernel's task iterator.");
    return;
  }
  // That there is none is news where it was asked for, or was there.
  const bool isNews = m_isFaulty || wasThere || ChosenSource() == "iterator";
  Trace(isNews ? 10 : 20, isNews ? kWarning : kInformation,
        "Processes are read from /proc and not from the kernel's task iterator. (%1)", reason);
}
