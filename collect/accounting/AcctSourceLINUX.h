#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/accounting/AcctRecord.h"

/// Reads one row per ended process from the kernel's accounting file, turns accounting on where the
/// option Acct/UseAcct wants it, and truncates a file that outgrows Acct/Size. The place in the
/// file outlives the object. No category runs it.
class AcctSourceUser : public PtrSource<x_acct, Acct, std::vector<Acct>> {
 public:
  /// Opens the file of the option Acct/FileName, else /var/log/pacct.
  AcctSourceUser();
  ~AcctSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_acct* record) override;

  /// Opens the file. One that differs from the last is created if there is none, and accounting is
  /// switched to it. Sets the pending error if it cannot be opened.
  void initialize(const char* file);
  /// Switches accounting to the file, or finds it on, and opens the file; whether that succeeded.
  bool checkacct();
  /// Begins an empty file and has the kernel go on in it.
  void truncatefile();
  /// acct(2); a null file turns accounting off. Keeps errno, or 0. Whether it succeeded.
  bool doacct(const char* file);
  /// 1 if the record in front of the place in the file is not the one that was read there.
  int acctchanged();
  /// Appends the names of the flags to `out`, parted by commas; 48 bytes take them all.
  static void bit2flags(char* out, unsigned int flags);

  /// errno of the last switch, or 0.
  [[nodiscard]] int LastErrno() const { return m_lastErrno; }
  /// Whether accounting was on before this process came.
  [[nodiscard]] static bool AccountingWasOn();
  /// Forgets file, place and counts, for a process that changes its host root.
  static void ResetState();

 private:
  void ReadRecord(x_acct& record);
  bool OpenFile(struct ::stat& status);
  bool CreateFile() const;
  void CloseFile();
  bool Seek(std::int64_t place, bool tell);
  void EndOfFile();

  inline static SourceStatistics s_statistics;

  int m_fd = -1;
  int m_lastErrno = 0;
  bool m_useAcct = true;
  bool m_updatePtr = true;
};
