#pragma once

#include <functional>
#include <string>

#include "support/UserFileFormat.h"

/// The agent's file of one kind of user records, read and written under the guard that the agent
/// takes too. Throws ClientError, naming the file, for whatever fails.
class UserStore {
 public:
  /// Waits up to `waitSeconds` for the guard.
  UserStore(const UserFileKind& kind, int waitSeconds);

  /// The records in the file, without its header; empty if there is no file.
  [[nodiscard]] std::string Read() const;
  /// Replaces the records by what `make` makes of the present ones, all under one guard. The file
  /// is the old or the new one at any moment, and no link: the group may write to its folder. What
  /// `make` throws leaves the file as it is.
  void Change(const std::function<std::string(const std::string& records)>& make) const;

  [[nodiscard]] const std::string& Path() const { return m_path; }

 private:
  void Guarded(const std::function<void()>& work) const;
  [[nodiscard]] std::string Load() const;
  void Replace(const std::string& records) const;

  const UserFileKind& m_kind;
  const int m_waitSeconds;
  const std::string m_path;
};

/// A whole file or, for "-", the standard input; 256 Mbytes at most, a regular file or a pipe.
[[nodiscard]] std::string ReadInput(const std::string& path);
