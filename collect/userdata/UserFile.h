#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "support/UserFileFormat.h"
#include "support/UserFileSemaphore.h"

/// One load of a file of user records, under the guard that it shares with those who write it. The
/// guard is given back at the latest when the object goes; a failure of that is traced.
class UserFile {
 public:
  explicit UserFile(const UserFileKind& kind);
  ~UserFile();
  UserFile(const UserFile&) = delete;
  UserFile& operator=(const UserFile&) = delete;

  /// Replaces `records` by the file's, one behind the other as they stand in the file, without
  /// those that have the keys of the one before, and only as many as the option "DataMaxCount" of
  /// section "User" says. False, with a trace, if there are none to take. Waits for the guard no
  /// longer than a writer that came just now may need; see AwaitUserFiles.
  [[nodiscard]] bool Load(std::vector<char>& records);

 private:
  [[nodiscard]] bool Lock();
  [[nodiscard]] int Open();
  [[nodiscard]] bool CheckSize(int descriptor) const;
  [[nodiscard]] bool ValidateHeader(int descriptor) const;
  [[nodiscard]] std::size_t Limit() const;
  void Read(int descriptor, std::vector<char>& records) const;
  void RemoveDupRecords(std::vector<char>& records) const;
  void Release();

  const UserFileKind& m_kind;
  const std::string m_path;
  std::unique_ptr<UserFileSemaphore> m_semaphore;
};

/// Waits until nobody holds the guard of one of the files, in six tries for all of them together.
/// `wait` passes the second between two tries; false from it ends the waiting. What stands in the
/// way of a guard otherwise is left to the load that follows.
void AwaitUserFiles(std::span<const UserFileKind* const> kinds, const std::function<bool()>& wait);
