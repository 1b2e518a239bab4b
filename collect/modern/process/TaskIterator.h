#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "collect/modern/process/TaskStream.h"
#include "support/Descriptor.h"

/// Where a helper has pinned the kernel's task iterator; the environment variable
/// QMT_TASK_ITERATOR names another file, which may tell of a tree of files too.
inline constexpr const char* kTaskIteratorPath = "/sys/fs/bpf/qmtdmon/tasks";

/// The kernel's task iterator of the host that runs the agent: all processes by one stream, which
/// costs a small part of a walk over /proc. Which of the two is in use, and why, is published as
/// the facts "process_source" and "process_source_reason", and told where it changes.
class TaskIterator {
 public:
  static TaskIterator& Instance();

  /// The processes of this moment in the order of their numbers, valid until the next call and the
  /// caller's to change; null where /proc is to be walked: the option "Process Source" of "Host"
  /// says so, the iterator is not there or may not be read, the host is a tree of files, or numbers
  /// and times would be other ones than /proc's. A stream of another version, or with the third
  /// fault in a row, is not asked for again until its file is another one.
  [[nodiscard]] std::vector<TaskGroup>* Read();
  /// What the last Read() has given.
  [[nodiscard]] std::vector<TaskGroup>* Groups() { return m_isInUse ? &m_groups : nullptr; }
  /// Streams that had a fault, since the start.
  [[nodiscard]] std::uint64_t Faults() const { return m_faults; }
  /// Processes that the last Read() lacks but /proc has, in the order of their numbers: a host may
  /// hide some from the iterator. /proc is listed for them at the first read of a file and at every
  /// tenth after it; some may have ended.
  [[nodiscard]] const std::vector<std::int32_t>& Missing() const { return m_missing; }
  /// As at the start of the agent, for tests.
  void Reset() { *this = TaskIterator(); }

 private:
  /// What tells one pinned file from the next.
  struct Identity {
    ::dev_t device = 0;
    ::ino_t inode = 0;
    ::time_t seconds = 0;
    long nanoseconds = 0;
    bool operator==(const Identity&) const = default;
  };

  /// Reads the stream; else why not, in words.
  [[nodiscard]] std::string TryToRead();
  [[nodiscard]] std::string ReadFile(const std::string& path);
  [[nodiscard]] static std::string ReadStream(const Descriptor& file, TaskStream& stream);
  void TakeFile(const Identity& identity);
  void FindMissing();
  void PublishReason(const std::string& reason);
  void Tell(const std::string& reason);

  std::vector<TaskGroup> m_groups;
  std::vector<std::int32_t> m_missing;
  int m_readsToList = 0;  ///< until /proc is listed
  bool m_isInUse = false;
  std::uint64_t m_faults = 0;
  int m_faultsInRow = 0;  ///< of the file of m_file
  Identity m_file;
  std::string m_fault;          ///< the last, with the file's path; empty after a stream without
  bool m_hasToldFault = false;  ///< of the file of m_file
  std::optional<std::string> m_reason;
  std::optional<std::string> m_told;
};
