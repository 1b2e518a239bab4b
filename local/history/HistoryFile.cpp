#include "local/history/HistoryFile.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace {

/// The loop waits no longer for a reader of the file.
constexpr int kBusyMilliseconds = 20;

}  // namespace

std::unique_ptr<SqlDatabase> OpenHistoryFile(const std::string& file) {
  constexpr std::int64_t kIncremental = 2;
  std::error_code ignored;
  const auto kind = std::filesystem::status(file, ignored).type();
  if (kind != std::filesystem::file_type::not_found &&
      kind != std::filesystem::file_type::regular) {
    // A library that opens a pipe would wait for its other end.
    throw SqlError(0, "it is no regular file");
  }
  auto database = std::make_unique<SqlDatabase>(file, kBusyMilliseconds);
  // Where it is set already setting it would write, which nobody can while somebody reads.
  if (database->Number("PRAGMA auto_vacuum") != kIncremental) {
    database->Execute("PRAGMA auto_vacuum = INCREMENTAL");
  }
  database->Execute("PRAGMA journal_mode = DELETE");
  database->Execute("PRAGMA synchronous = NORMAL");
  return database;
}

bool IsWholeHistory(const std::string& file) {
  try {
    SqlDatabase database(file, kBusyMilliseconds);
    SqlStatement check = database.Prepare("PRAGMA quick_check(1)");
    return check.Step() && check.Text(0) == "ok";
  } catch (const SqlError& error) {
    return !error.IsBroken();
  }
}

std::string SetHistoryAside(const std::string& file) {
  std::array<char, 32> stamp{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::strftime(stamp.data(), stamp.size(), ".broken-%Y%m%d-%H%M%S", &parts);
  const std::string place = file + stamp.data();
  std::string free = place;
  std::error_code ignored;
  for (int number = 2; std::filesystem::exists(free, ignored); ++number) {
    free = place + "-" + std::to_string(number);
  }
  if (std::rename(file.c_str(), free.c_str()) != 0) {
    return std::strerror(errno);
  }
  // A journal belongs to the file that it was made for.
  std::rename((file + "-journal").c_str(), (free + "-journal").c_str());
  return "";
}

std::int64_t PageBytes(SqlDatabase& database, std::int64_t pages) {
  return pages * database.Number("PRAGMA page_size");
}

std::int64_t UsedFileBytes(SqlDatabase& database) {
  return PageBytes(database,
                   database.Number("PRAGMA page_count") - database.Number("PRAGMA freelist_count"));
}
