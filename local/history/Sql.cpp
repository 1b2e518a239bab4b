#include "local/history/Sql.h"

#include <sqlite3.h>

namespace {

constexpr int kPrimaryCode = 0xff;
/// The most of a text, of a blob and of a row.
constexpr int kMostValueBytes = 1 << 20;

[[noreturn]] void Throw(sqlite3* database, int code) {
  const int primary = code & kPrimaryCode;
  throw SqlError(primary,
                 database == nullptr ? ::sqlite3_errstr(primary) : ::sqlite3_errmsg(database));
}

}  // namespace

bool SqlError::IsBroken() const { return m_code == SQLITE_CORRUPT || m_code == SQLITE_NOTADB; }
bool SqlError::IsBusy() const { return m_code == SQLITE_BUSY || m_code == SQLITE_LOCKED; }

void SqlStatement::Finalize::operator()(sqlite3_stmt* statement) const {
  ::sqlite3_finalize(statement);
}

SqlStatement::SqlStatement(sqlite3* database, const std::string& text) {
  sqlite3_stmt* statement = nullptr;
  const int code = ::sqlite3_prepare_v2(database, text.c_str(), static_cast<int>(text.size()),
                                        &statement, nullptr);
  m_statement.reset(statement);
  if (code != SQLITE_OK) {
    Throw(database, code);
  }
}

void SqlStatement::Check(int code) const {
  if (code != SQLITE_OK) {
    Throw(::sqlite3_db_handle(m_statement.get()), code);
  }
}

void SqlStatement::Bind(int place, std::int64_t value) {
  Check(::sqlite3_bind_int64(m_statement.get(), place, value));
}
void SqlStatement::Bind(int place, double value) {
  Check(::sqlite3_bind_double(m_statement.get(), place, value));
}
void SqlStatement::Bind(int place, std::string_view text) {
  Check(::sqlite3_bind_text(m_statement.get(), place, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC));
}
void SqlStatement::Bind(int place, std::span<const unsigned char> bytes) {
  Check(::sqlite3_bind_blob(m_statement.get(), place, bytes.data(), static_cast<int>(bytes.size()),
                            SQLITE_STATIC));
}
void SqlStatement::Bind(int place, std::nullptr_t) {
  Check(::sqlite3_bind_null(m_statement.get(), place));
}

bool SqlStatement::Step() {
  const int code = ::sqlite3_step(m_statement.get());
  if (code == SQLITE_ROW) {
    return true;
  }
  // The reset gives the reason of a failed step, too.
  const int reset = ::sqlite3_reset(m_statement.get());
  if (code != SQLITE_DONE) {
    Throw(::sqlite3_db_handle(m_statement.get()), reset == SQLITE_OK ? code : reset);
  }
  return false;
}

void SqlStatement::Run() {
  while (Step()) {
  }
}

void SqlStatement::Reset() { ::sqlite3_reset(m_statement.get()); }

bool SqlStatement::IsNull(int column) const {
  return ::sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL;
}
bool SqlStatement::IsWhole(int column) const {
  return ::sqlite3_column_type(m_statement.get(), column) == SQLITE_INTEGER;
}
bool SqlStatement::IsReal(int column) const {
  return ::sqlite3_column_type(m_statement.get(), column) == SQLITE_FLOAT;
}
std::int64_t SqlStatement::Whole(int column) const {
  return ::sqlite3_column_int64(m_statement.get(), column);
}
double SqlStatement::Real(int column) const {
  return ::sqlite3_column_double(m_statement.get(), column);
}
std::string_view SqlStatement::Text(int column) const {
  const auto* text =
      reinterpret_cast<const char*>(::sqlite3_column_text(m_statement.get(), column));
  const int size = ::sqlite3_column_bytes(m_statement.get(), column);
  if (text == nullptr) {
    CheckMemory();
    return {};
  }
  return {text, static_cast<std::size_t>(size)};
}
std::span<const unsigned char> SqlStatement::Bytes(int column) const {
  const auto* bytes =
      static_cast<const unsigned char*>(::sqlite3_column_blob(m_statement.get(), column));
  const int size = ::sqlite3_column_bytes(m_statement.get(), column);
  if (bytes == nullptr) {
    CheckMemory();
    return {};
  }
  return {bytes, static_cast<std::size_t>(size)};
}

void SqlStatement::CheckMemory() const {
  // Nothing else tells it from a value that is null or empty.
  sqlite3* const database = ::sqlite3_db_handle(m_statement.get());
  if (::sqlite3_errcode(database) == SQLITE_NOMEM) {
    Throw(database, SQLITE_NOMEM);
  }
}

void SqlDatabase::Close::operator()(sqlite3* database) const {
  if (::sqlite3_get_autocommit(database) == 0) {
    // The library closes it behind its last statement only, and would keep the lock until then.
    ::sqlite3_exec(database, "ROLLBACK", nullptr, nullptr, nullptr);
  }
  ::sqlite3_close_v2(database);
}

SqlDatabase::SqlDatabase(const std::string& path, int busyMilliseconds) {
  sqlite3* database = nullptr;
  const int code =
      ::sqlite3_open_v2(path.c_str(), &database,
                        // One thread works with it, which needs no locks for that.
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  m_database.reset(database);
  if (code != SQLITE_OK) {
    Throw(database, code);
  }
  ::sqlite3_busy_timeout(database, busyMilliseconds);
  // Nothing that a file brings along is run: a trigger or a view may have no end, and what is left
  // (a column or an index that is computed) makes no large values.
  for (const int option : {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW,
                           SQLITE_DBCONFIG_TRUSTED_SCHEMA}) {
    int state = -1;
    const int refused = ::sqlite3_db_config(database, option, 0, &state);
    if (refused != SQLITE_OK || state != 0) {
      throw SqlError(refused & kPrimaryCode,
                     "the library does not take option " + std::to_string(option));
    }
  }
  Execute("PRAGMA ignore_check_constraints = ON");
  ::sqlite3_limit(database, SQLITE_LIMIT_LENGTH, kMostValueBytes);
}

std::int64_t SqlDatabase::Number(const std::string& text) {
  SqlStatement statement = Prepare(text);
  return statement.Step() ? statement.Whole(0) : 0;
}

int SqlDatabase::Changes() const { return ::sqlite3_changes(m_database.get()); }
bool SqlDatabase::IsInTransaction() const {
  return ::sqlite3_get_autocommit(m_database.get()) == 0;
}

void SqlDatabase::TrimPages(int bytes) {
  int used = 0;
  int most = 0;
  if (::sqlite3_db_status(m_database.get(), SQLITE_DBSTATUS_CACHE_USED, &used, &most, 0) ==
          SQLITE_OK &&
      used > bytes) {
    ::sqlite3_db_release_memory(m_database.get());
  }
}

std::string QuotedName(std::string_view name) {
  std::string quoted = "\"";
  for (const char c : name) {
    quoted += c == '"' ? "\"\"" : std::string(1, c);
  }
  return quoted + '"';
}
