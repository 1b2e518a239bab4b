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
/// Processes that change their numbers meanwhile, or memory that is short, spoil one stream and not
/// the next.
constexpr int kMostFaultsInRow = 3;

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

/// Another file that the environment names instead of the pinned one; empty if it does not.
std::string OtherFile() {
  const char* const other = std::getenv(kIteratorVariable);
  return other == nullptr ? "" : other;
}

/// Why the iterator of this host is not that of the monitored one; empty if it is.
std::string ReasonOfHost(bool hasOtherFile) {
  if (g_hostReads != nullptr) {
    return "a capture is made or replayed";
  }
  if (!IsRunningHost() && !hasOtherFile) {
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
  PublishReason(reason);
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
  const std::string other = OtherFile();
  if (std::string reason = ReasonOfHost(!other.empty()); !reason.empty()) {
    return reason;
  }
  return ReadFile(other.empty() ? HostPath(kTaskIteratorPath) : other);
}

void TaskIterator::TakeFile(const Identity& identity) {
  if (identity != m_file) {
    m_file = identity;
    m_faultsInRow = 0;
    m_hasToldFault = false;
    m_readsToList = 0;
  }
}

std::string TaskIterator::ReadFile(const std::string& path) {
  const Descriptor file(
      OpenHost(AT_FDCWD, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct ::stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    m_faultsInRow = 0;
    return path + ": " + std::strerror(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    m_faultsInRow = 0;
    return path + ": is no regular file";
  }
  TakeFile({status.st_dev, status.st_ino, status.st_ctim.tv_sec, status.st_ctim.tv_nsec});
  if (m_faultsInRow == kMostFaultsInRow) {
    return m_fault;
  }
  TaskStream stream(m_groups);
  const std::string fault = ReadStream(file, stream);
  m_fault = fault.empty() ? "" : path + ": " + fault;
  if (fault.empty()) {
    m_faultsInRow = 0;
  } else {
    ++m_faults;
    m_faultsInRow = stream.IsOfOtherVersion() ? kMostFaultsInRow : m_faultsInRow + 1;
  }
  return m_fault;
}

std::string TaskIterator::ReadStream(const Descriptor& file, TaskStream& stream) {
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

void TaskIterator::PublishReason(const std::string& reason) {
  if (m_reason == reason) {
    return;
  }
  if (!m_reason.has_value()) {
    PublishFaults();
  }
  m_reason = reason;
  FigureRegistry& registry = FigureRegistry::Instance();
  registry.SetFact("process_source", reason.empty() ? "iterator" : "proc");
  registry.SetFact("process_source_reason", reason);
}

void TaskIterator::Tell(const std::string& reason) {
  const bool isFault = !reason.empty() && reason == m_fault;
  // One that comes and goes would fill the log.
  const bool isToldAlready = isFault && m_hasToldFault && m_faultsInRow < kMostFaultsInRow;
  if (m_told == reason || isToldAlready) {
    return;
  }
  const bool wasThere = m_told.has_value() && m_told->empty();
  m_hasToldFault = m_hasToldFault || isFault;
  m_told = reason;
  if (reason.empty()) {
    Trace(20, kInformation, "Processes are read from the kernel's task iterator.");
    return;
  }
  // That there is none is news where it was asked for, or was there.
  const bool isNews = isFault || wasThere || ChosenSource() == "iterator";
  Trace(isNews ? 10 : 20, isNews ? kWarning : kInformation,
        "Processes are read from /proc and not from the kernel's task iterator. (%1)", reason);
}
