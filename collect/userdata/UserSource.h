#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "collect/Source.h"
#include "collect/userdata/UserFile.h"
#include "support/TraceLog.h"
#include "support/UserFileFormat.h"

/// One user record of a kind: its bytes as they stand in the file.
template <std::size_t kind>
struct x_user_record {
  std::array<char, kUserRecordSizes[kind]> bytes{};
};

/// A user record as builders see it.
template <std::size_t kind>
class UserRecord : public x_user_record<kind> {
 public:
  [[nodiscard]] static const char* name() { return UserFileKinds()[kind].name; }
};

using x_upi = x_user_record<kUPI>;
using x_upib = x_user_record<kUPIB>;
using x_upd = x_user_record<kUPD>;
using x_updb = x_user_record<kUPDB>;
using UPI = UserRecord<kUPI>;
using UPIB = UserRecord<kUPIB>;
using UPD = UserRecord<kUPD>;
using UPDB = UserRecord<kUPDB>;

/// Reads the records of one file of user records, one a call. The first call loads the file; a file
/// that can't be taken yields nothing and is no failure of the category.
template <std::size_t kind>
class UserRecordSource
    : public PtrSource<x_user_record<kind>, UserRecord<kind>, std::vector<UserRecord<kind>>> {
 public:
  UserRecordSource() {
    const std::string name = std::string(UserFileKinds()[kind].name) + "SourceUser";
    TraceEntry((name + "::" + name).c_str());
    ++s_statistics.constructed;
    TraceExit((name + "::" + name).c_str());
  }
  ~UserRecordSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }

  void read(x_user_record<kind>* record) override {
    if (m_firstRead) {
      dowork();
    }
    this->m_more = m_cursor < m_records.size();
    if (this->m_more) {
      loaddata(*record, m_records.data() + m_cursor);
      m_cursor += kUserRecordSizes[kind];
    } else {
      m_records = {};
      m_cursor = 0;
    }
  }

 private:
  void dowork() {
    m_firstRead = false;
    UserFile file(UserFileKinds()[kind]);
    if (!file.Load(m_records)) {
      m_records.clear();
    }
  }

  static void loaddata(x_user_record<kind>& out, const char* record) {
    std::memcpy(out.bytes.data(), record, out.bytes.size());
  }

  inline static SourceStatistics s_statistics;

  bool m_firstRead = true;
  std::vector<char> m_records;  ///< one behind the other
  std::size_t m_cursor = 0;     ///< bytes
};

using UPISourceUser = UserRecordSource<kUPI>;
using UPIBSourceUser = UserRecordSource<kUPIB>;
using UPDSourceUser = UserRecordSource<kUPD>;
using UPDBSourceUser = UserRecordSource<kUPDB>;
