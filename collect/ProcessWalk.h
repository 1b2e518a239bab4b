#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "support/HostReads.h"

/// "/proc/", a directory name of the longest kind, 255 bytes, a slash and the file's name.
using ProcessPath = std::array<char, 288>;

/// Puts texts one behind another, as many characters as there is room for. Returns how many.
inline std::size_t FormPath(ProcessPath& path, std::initializer_list<std::string_view> parts) {
  std::size_t length = 0;
  for (const std::string_view part : parts) {
    length += part.copy(path.data() + length, path.size() - 1 - length);
  }
  path[length] = '\0';
  return length;
}

/// The folder of one process, whose part of the paths is formed once.
class ProcessFolder {
 public:
  explicit ProcessFolder(const char* pid) : m_length(FormPath(m_path, {"/proc/", pid, "/"})) {}

  /// The path of one of its files, which have short names; valid until the next one is asked for.
  [[nodiscard]] const char* PathOf(std::string_view leaf) {
    leaf.copy(m_path.data() + m_length, leaf.size());
    m_path[m_length + leaf.size()] = '\0';
    return m_path.data();
  }

 private:
  ProcessPath m_path;
  std::size_t m_length;
};

/// The processes in /proc of the monitored host, one after another. It takes no memory for them.
class ProcessWalk {
 public:
  /// One that is not open.
  ProcessWalk() = default;
  /// Opens /proc. A failure is traced at `level`, and one to close it at 20.
  explicit ProcessWalk(int level);
  ProcessWalk(ProcessWalk&&) = default;
  ProcessWalk& operator=(ProcessWalk&& other) noexcept {
    std::swap(m_entries, other.m_entries);
    return *this;
  }
  ~ProcessWalk();

  /// Whether /proc is open; all the rest wants that.
  [[nodiscard]] bool IsOpen() const { return m_entries.IsOpen(); }
  /// The number of the next process, as text that lives until the next call; null at the end.
  [[nodiscard]] const char* Next();
  void Rewind() { m_entries.Rewind(); }

  // These take paths that begin with "/proc/".

  /// Opens a file for reading; -1 with `errno` on failure. The descriptor is the caller's.
  [[nodiscard]] int Open(const char* path) const;
  /// As readlink(2).
  [[nodiscard]] ssize_t ReadLink(const char* path, char* target, std::size_t size) const;
  /// A walk over the numbers in another folder, as the threads of a process; of it only Next() and
  /// IsOpen() can be used. Not open, with `errno`, if the folder can't be.
  [[nodiscard]] ProcessWalk Below(const char* path) const;

 private:
  HostEntries m_entries;
};
