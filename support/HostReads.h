#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/Directory.h"

/// What was heard in answer to one question over netlink.
struct HeardTalk {
  std::vector<std::string> datagrams;
  int error = 0;  ///< errno of what ended it, 0 for its good end
};

/// What stands between the sources and the monitored host while a capture is made or replayed.
/// `folder` is AT_FDCWD with a place from HostPath(), or a descriptor that came from here. Errors
/// are those of the calls: -1 and `errno`.
class HostReads {
 public:
  virtual ~HostReads() = default;

  /// As openat(2), for reading. The descriptor is the caller's.
  virtual int Open(int folder, const char* name, int flags) = 0;
  virtual ssize_t ReadLink(int folder, const char* name, char* target, std::size_t size) = 0;
  /// As fstatat(2).
  virtual int Stat(int folder, const char* name, struct ::stat* status, int flags) = 0;
  /// The entries of an open folder but "." and "..", in the kernel's order: of each the name and
  /// the type.
  virtual bool List(int folder, std::vector<::dirent>& entries) = 0;
  /// Whether the kernel need not be asked this question; fills `heard` then.
  virtual bool FindTalk(int protocol, std::string_view question, HeardTalk& heard) = 0;
  virtual void KeepTalk(int protocol, std::string_view question, const HeardTalk& heard) = 0;

  /// Whether the host is, or was, the one that ran the agent, rather than a tree of files.
  [[nodiscard]] virtual bool IsRunningHost() const = 0;
  /// All reads between these two belong together.
  virtual void BeginBatch() = 0;
  virtual void EndBatch() = 0;
};

/// Null but in a capture and in its replay, where it lives as long as the process.
inline HostReads* g_hostReads = nullptr;

/// Holds the reads of its scope together.
class HostBatch {
 public:
  HostBatch() {
    if (g_hostReads != nullptr) {
      g_hostReads->BeginBatch();
    }
  }
  HostBatch(const HostBatch&) = delete;
  HostBatch& operator=(const HostBatch&) = delete;
  ~HostBatch() {
    if (g_hostReads != nullptr) {
      g_hostReads->EndBatch();
    }
  }
};

/// The error of what opens the host's files in this thread that was for want of a descriptor
/// (EMFILE, ENFILE), which tells nothing of the host; 0 for none. Whoever wants to know sets it to
/// 0 before.
inline thread_local int g_lackOfDescriptors = 0;

/// Whether an error of a call that makes a descriptor was for want of one.
[[nodiscard]] inline bool IsLackOfDescriptors(int code) { return code == EMFILE || code == ENFILE; }

/// Notes such an error, and no other.
inline void NoteLackOfDescriptors(int code) {
  if (IsLackOfDescriptors(code)) {
    g_lackOfDescriptors = code;
  }
}

// The calls that sources read the host with.

[[nodiscard]] inline int OpenHost(int folder, const char* name, int flags) {
  const int descriptor = g_hostReads == nullptr ? ::openat(folder, name, flags)
                                                : g_hostReads->Open(folder, name, flags);
  if (descriptor < 0) {
    NoteLackOfDescriptors(errno);
  }
  return descriptor;
}
[[nodiscard]] inline ssize_t ReadHostLink(int folder, const char* name, char* target,
                                          std::size_t size) {
  return g_hostReads == nullptr ? ::readlinkat(folder, name, target, size)
                                : g_hostReads->ReadLink(folder, name, target, size);
}
[[nodiscard]] inline int StatHost(int folder, const char* name, struct ::stat* status,
                                  int flags = 0) {
  return g_hostReads == nullptr ? ::fstatat(folder, name, status, flags)
                                : g_hostReads->Stat(folder, name, status, flags);
}

/// The entries of a folder of the host.
class HostEntries {
 public:
  /// One that is not open.
  HostEntries() = default;
  /// Of the folder behind a descriptor from OpenHost(), which it takes, open or not.
  explicit HostEntries(int folder);
  /// Of the folder at a place from HostPath(); not open, with `errno`, if it can't be.
  explicit HostEntries(const std::string& place)
      : HostEntries(OpenHost(AT_FDCWD, place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

  [[nodiscard]] bool IsOpen() const { return m_directory != nullptr; }
  /// For OpenHost() and its like; the folder wants to be open.
  [[nodiscard]] int Folder() const { return ::dirfd(m_directory.get()); }
  /// The next one, which lives until the next call; null at the end and, with `errno`, for a
  /// failure. "." and ".." may be among them.
  [[nodiscard]] const ::dirent* Next();
  void Rewind();
  /// What closedir(3) says; it is not open then.
  int Close() { return ::closedir(m_directory.release()); }

 private:
  DirectoryPtr m_directory;
  std::unique_ptr<std::vector<::dirent>> m_listed;  ///< null where the kernel is asked
  std::size_t m_place = 0;
};
