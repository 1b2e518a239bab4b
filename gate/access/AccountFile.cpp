#include "gate/access/AccountFile.h"

#include <sys/stat.h>

#include <new>
#include <utility>

#include "gate/access/AccessError.h"

namespace {

constexpr std::chrono::seconds kBetweenLooks{1};

}  // namespace

AccountFile::AccountFile(AccountKind kind, std::string path, Report report)
    : m_kind(kind),
      m_path(std::move(path)),
      m_report(std::move(report)),
      m_stamp(StampOf(m_path)),
      m_table(Load()) {}

AccountTable AccountFile::Load() const {
  if (m_path.empty()) {
    return ParseAccounts(m_kind, {}, m_path);
  }
  const CheckedFile file = ReadCheckedFile(m_path);
  if ((file.mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw AccessError(m_path + ": others than its owner may write to it");
  }
  return ParseAccounts(m_kind, file.text, m_path);
}

const AccountTable& AccountFile::Look(std::chrono::steady_clock::time_point now) {
  if (m_path.empty() || now < m_nextLook) {
    return m_table;
  }
  m_nextLook = now + kBetweenLooks;
  // Taken before the file is read: what is written meanwhile shows at the next look.
  const FileStamp stamp = StampOf(m_path);
  if (stamp == m_stamp) {
    return m_table;
  }
  m_stamp = stamp;
  try {
    m_table = Load();
    m_told.clear();
  } catch (const std::bad_alloc&) {
    m_stamp = {};
    throw;
  } catch (const AccessError& error) {
    if (dynamic_cast<const PassingAccessError*>(&error) != nullptr) {
      // What it says now comes into force a little later.
      m_stamp = {};
    }
    if (m_told != error.what()) {
      m_told = error.what();
      m_report(m_told + "; the accounts that were read before stay in force");
    }
  }
  return m_table;
}
