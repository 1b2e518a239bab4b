#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// A failed call of the SQL library.
class SqlError : public std::runtime_error {
 public:
  SqlError(int code, const std::string& reason) : std::runtime_error(reason), m_code(code) {}
  /// The library's primary result code.
  [[nodiscard]] int Code() const { return m_code; }
  /// The file is no database, or a damaged one.
  [[nodiscard]] bool IsBroken() const;
  /// Somebody else holds the file for a moment.
  [[nodiscard]] bool IsBusy() const;

 private:
  int m_code;
};

/// A prepared statement. Values are bound, never pasted in; those that are bound as views are read
/// by the next Step. Everything that fails throws SqlError.
class SqlStatement {
 public:
  SqlStatement(sqlite3* database, const std::string& text);

  /// Places count from 1.
  void Bind(int place, std::int64_t value);
  void Bind(int place, double value);
  void Bind(int place, std::string_view text);
  void Bind(int place, std::span<const unsigned char> bytes);
  void Bind(int place, std::nullptr_t);
  /// True for a row, false at the end; the statement is then ready to be bound and run anew.
  bool Step();
  /// Runs to the end.
  void Run();
  /// Forgets the rest of the rows.
  void Reset();

  /// Columns count from 0. A view is valid until the next step.
  [[nodiscard]] bool IsNull(int column) const;
  [[nodiscard]] bool IsWhole(int column) const;
  [[nodiscard]] bool IsReal(int column) const;
  [[nodiscard]] std::int64_t Whole(int column) const;
  [[nodiscard]] double Real(int column) const;
  [[nodiscard]] std::string_view Text(int column) const;
  [[nodiscard]] std::span<const unsigned char> Bytes(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  void Check(int code) const;
  /// Throws if there was no memory for the value that was asked for.
  void CheckMemory() const;

  std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
};

/// One database file. Triggers, views and CHECK constraints that it brings along are not run, and a
/// value or a row is at most 1 Mbyte. Everything that fails throws SqlError. Its end rolls back
/// what is not committed, also while somebody has a statement of it.
class SqlDatabase {
 public:
  /// Opens the file or makes it; a statement waits `busyMilliseconds` for others.
  SqlDatabase(const std::string& path, int busyMilliseconds);

  void Execute(const std::string& text) { Prepare(text).Run(); }
  [[nodiscard]] SqlStatement Prepare(const std::string& text) {
    return SqlStatement(m_database.get(), text);
  }
  /// The first value of the first row, 0 if there is none.
  [[nodiscard]] std::int64_t Number(const std::string& text);
  /// Rows that the last statement has inserted, changed or deleted.
  [[nodiscard]] int Changes() const;
  [[nodiscard]] bool IsInTransaction() const;
  /// Frees the pages that it has read and keeps, if they are more than so many bytes.
  void TrimPages(int bytes);

 private:
  struct Close {
    void operator()(sqlite3* database) const;
  };
  std::unique_ptr<sqlite3, Close> m_database;
};

/// A name of a table or a column between double quotes.
[[nodiscard]] std::string QuotedName(std::string_view name);
