#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "gate/access/Accounts.h"
#include "gate/access/CheckedFile.h"

/// A file of users or of tokens, read again when it has changed.
class AccountFile {
 public:
  using Report = std::function<void(const std::string& text)>;

  /// Without a path there are no accounts. Throws AccessError if the file is broken, or writable by
  /// others than its owner. `report` is told what is wrong with the file later on.
  AccountFile(AccountKind kind, std::string path, Report report);

  /// The accounts as they are now; valid until the next call. The file is looked at once a second
  /// at most. While it is broken or gone, those read last stay in force, and that is told once.
  [[nodiscard]] const AccountTable& Look(std::chrono::steady_clock::time_point now);

 private:
  [[nodiscard]] AccountTable Load() const;

  const AccountKind m_kind;
  const std::string m_path;
  const Report m_report;
  FileStamp m_stamp;
  std::chrono::steady_clock::time_point m_nextLook;
  AccountTable m_table;
  std::string m_told;  ///< what was last found wrong, empty if nothing is
};
