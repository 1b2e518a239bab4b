#include "local/alarm/AlarmHistory.h"

#include <array>
#include <chrono>
#include <new>
#include <utility>

#include "json/JsonText.h"
#include "local/history/HistoryTables.h"

namespace {

constexpr const char* kAlarmTable = "qmt alarms";
constexpr const char* kRowTable = "qmt alarm rows";
constexpr std::size_t kMostActive = 10000;  ///< that a start finds
constexpr std::size_t kAlarmBytes = 1024;   ///< of one that waits, about

void RollBack(SqlDatabase& database) {
  try {
    if (database.IsInTransaction()) {
      database.Execute("ROLLBACK");
    }
  } catch (const SqlError&) {
    // The history finds out by itself what its file is good for.
  }
}

void MakeAlarmTables(SqlDatabase& database) {
  if (HasTable(database, kAlarmTable) && HasTable(database, kRowTable)) {
    return;
  }
  database.Execute(
      "CREATE TABLE IF NOT EXISTS \"qmt alarms\" (id INTEGER PRIMARY KEY, \"Record Time\" INTEGER, "
      "alarm TEXT, record TEXT, severity TEXT, since INTEGER, until INTEGER, text TEXT, "
      "\"key\" TEXT, \"values\" TEXT, captured TEXT)");
  database.Execute(
      "CREATE TABLE IF NOT EXISTS \"qmt alarm rows\" (\"Record Time\" INTEGER, id INTEGER, "
      "record TEXT, time INTEGER, row TEXT)");
  database.Execute(
      "CREATE INDEX IF NOT EXISTS \"qmt alarms time\" ON \"qmt alarms\" (\"Record Time\")");
  database.Execute(
      "CREATE INDEX IF NOT EXISTS \"qmt alarm rows time\" ON \"qmt alarm rows\" (\"Record "
      "Time\")");
  database.Execute("CREATE INDEX IF NOT EXISTS \"qmt alarms until\" ON \"qmt alarms\" (until)");
  database.Execute("CREATE INDEX IF NOT EXISTS \"qmt alarm rows id\" ON \"qmt alarm rows\" (id)");
}

constexpr const char* kAlarmColumns =
    "id, alarm, record, severity, since, until, text, \"key\", \"values\", captured";

/// The file may hold anything at all.
Json ParsedColumn(const SqlStatement& row, int column, Json fallback) {
  constexpr JsonLimits kLimits{4, 1024};
  ParsedJson parsed = ParseJson(row.Text(column), kLimits);
  const bool isRight = parsed.fault == JsonFault::kNone &&
                       parsed.value.IsArray() == fallback.IsArray() &&
                       parsed.value.IsObject() == fallback.IsObject();
  return isRight ? std::move(parsed.value) : std::move(fallback);
}

Json AlarmOfRow(const SqlStatement& row) {
  const bool isOver = !row.IsNull(5);
  return Json{{"id", row.Whole(0)},
              {"alarm", ValidUtf8(row.Text(1))},
              {"record", ValidUtf8(row.Text(2))},
              {"key", ParsedColumn(row, 7, Json::Object())},
              {"severity", ValidUtf8(row.Text(3))},
              {"state", isOver ? "ended" : "active"},
              {"since", row.Whole(4)},
              {"until", isOver ? Json(row.Whole(5)) : Json(nullptr)},
              {"text", ValidUtf8(row.Text(6))},
              {"values", ParsedColumn(row, 8, Json::Object())},
              {"captured", ParsedColumn(row, 9, Json::Array())}};
}

void PutAlarm(SqlStatement& insert, const Json& alarm) {
  const Json& until = alarm["until"];
  const std::array<std::string, 3> structured{JsonText(alarm["key"]), JsonText(alarm["values"]),
                                              JsonText(alarm["captured"])};
  int place = 0;
  insert.Bind(++place, alarm["id"].Whole());
  insert.Bind(++place, until.IsNull() ? alarm["since"].Whole() : until.Whole());
  for (const char* text : {"alarm", "record", "severity"}) {
    insert.Bind(++place, std::string_view(alarm[text].Text()));
  }
  insert.Bind(++place, alarm["since"].Whole());
  until.IsNull() ? insert.Bind(++place, nullptr) : insert.Bind(++place, until.Whole());
  insert.Bind(++place, std::string_view(alarm["text"].Text()));
  for (const std::string& text : structured) {
    insert.Bind(++place, std::string_view(text));
  }
  insert.Run();
}

/// Of one that has ended the record time is its end.
std::int64_t LeastNumber(SqlDatabase& database, const AlarmHistory::Look& look) {
  if (look.isActiveOnly || look.since == INT64_MIN) {
    return INT64_MIN;
  }
  SqlStatement row = database.Prepare(
      "SELECT min(id) FROM (SELECT min(id) AS id FROM \"qmt alarms\" WHERE \"Record Time\" >= ?1 "
      "UNION ALL SELECT min(id) FROM \"qmt alarms\" WHERE until IS NULL)");
  row.Bind(1, look.since);
  return row.Step() && !row.IsNull(0) ? row.Whole(0) : INT64_MAX;
}

}  // namespace

void AlarmHistory::Put(const Json& alarm) {
  m_alarms.push_back(alarm);
  m_bytes += kAlarmBytes;
  Bound();
}

void AlarmHistory::PutRow(CapturedRow row) {
  m_bytes += sizeof row + row.row.size();
  m_rows.push_back(std::move(row));
  Bound();
}

void AlarmHistory::Bound() {
  while (m_bytes > kMostWaiting) {
    // Rows are large, and worth less than the alarm that they were captured for.
    if (!m_rows.empty()) {
      m_bytes -= sizeof(CapturedRow) + m_rows.front().row.size();
      m_rows.pop_front();
    } else {
      m_bytes -= kAlarmBytes;
      m_alarms.pop_front();
    }
    ++m_lost;
  }
}

bool AlarmHistory::Flush() {
  if (!HasWaiting()) {
    return false;
  }
  SqlDatabase* database = m_store.Database();
  if (database == nullptr || database->IsInTransaction()) {
    if (m_store.Settings().file.empty()) {
      m_alarms.clear();
      m_rows.clear();
      m_bytes = 0;
    }
    return false;
  }
  try {
    database->Execute("BEGIN IMMEDIATE");
    MakeAlarmTables(*database);
    Write(*database);
  } catch (const std::bad_alloc&) {
    RollBack(*database);
    throw;
  } catch (const SqlError& error) {
    RollBack(*database);
    if (!error.IsBusy() && m_problem != error.what()) {
      m_problem = error.what();
      m_report("Alarms: " + m_store.Settings().file + " can't be written: " + m_problem);
    }
    return false;
  }
  m_problem.clear();
  return HasWaiting();
}

void AlarmHistory::Write(SqlDatabase& database) {
  const auto end = std::chrono::steady_clock::now() + kTurn;
  std::size_t alarms = 0;
  std::size_t rows = 0;
  std::size_t bytes = 0;
  {
    SqlStatement insert = database.Prepare(
        "INSERT OR REPLACE INTO \"qmt alarms\" (id, \"Record Time\", alarm, record, severity, "
        "since, until, text, \"key\", \"values\", captured) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, "
        "?8, ?9, ?10, ?11)");
    for (; alarms < m_alarms.size() && std::chrono::steady_clock::now() < end; ++alarms) {
      PutAlarm(insert, m_alarms[alarms]);
      bytes += kAlarmBytes;
    }
    SqlStatement add = database.Prepare(
        "INSERT INTO \"qmt alarm rows\" (\"Record Time\", id, record, time, row) VALUES (?1, ?2, "
        "?3, ?4, ?5)");
    const std::int64_t now = std::time(nullptr);
    for (; rows < m_rows.size() && std::chrono::steady_clock::now() < end; ++rows) {
      const CapturedRow& row = m_rows[rows];
      add.Bind(1, now);
      add.Bind(2, row.id);
      add.Bind(3, std::string_view(row.record));
      add.Bind(4, std::int64_t{row.time});
      add.Bind(5, std::string_view(row.row));
      add.Run();
      bytes += sizeof row + row.row.size();
    }
  }
  database.Execute("COMMIT");
  m_alarms.erase(m_alarms.begin(), m_alarms.begin() + static_cast<std::ptrdiff_t>(alarms));
  m_rows.erase(m_rows.begin(), m_rows.begin() + static_cast<std::ptrdiff_t>(rows));
  m_bytes -= bytes;
}

void AlarmHistory::ReadOpen(std::int64_t& lastId, std::vector<Json>& active) {
  SqlDatabase* database = m_store.Database();
  if (database == nullptr) {
    return;
  }
  try {
    if (HasTable(*database, kAlarmTable)) {
      lastId = database->Number("SELECT max(id) FROM \"qmt alarms\"");
      Look look;
      look.isActiveOnly = true;
      look.limit = kMostActive;
      static_cast<void>(Read(*database, look, std::chrono::steady_clock::time_point::max()));
      active = std::move(look.found);
    }
  } catch (const SqlError& error) {
    m_report(std::string("Alarms: those of before can't be read: ") + error.what());
  }
}

std::optional<bool> AlarmHistory::HasEnded(std::int64_t id) {
  SqlDatabase* database = m_store.Database();
  try {
    if (database == nullptr || !HasTable(*database, kAlarmTable)) {
      return std::nullopt;
    }
    SqlStatement row =
        database->Prepare("SELECT until IS NOT NULL FROM \"qmt alarms\" WHERE id = ?1");
    row.Bind(1, id);
    return row.Step() ? std::optional(row.Whole(0) != 0) : std::nullopt;
  } catch (const SqlError&) {
    return std::nullopt;
  }
}

bool AlarmHistory::Read(SqlDatabase& database, Look& look,
                        std::chrono::steady_clock::time_point end) {
  if (!HasTable(database, kAlarmTable)) {
    return false;
  }
  if (!look.least) {
    look.least = LeastNumber(database, look);
  }
  // By number, and each is looked at here: so there is no long way between two steps.
  SqlStatement rows = database.Prepare(
      std::string("SELECT ") + kAlarmColumns + " FROM \"qmt alarms\" WHERE id < ?1 AND id >= ?2" +
      (look.isActiveOnly ? " AND until IS NULL" : "") + " ORDER BY id DESC");
  rows.Bind(1, look.below);
  rows.Bind(2, *look.least);
  constexpr int kStepsBetweenLooks = 16;
  for (int steps = 1; look.found.size() < look.limit && rows.Step(); ++steps) {
    look.below = rows.Whole(0);
    const bool isLater = rows.Whole(4) > look.until;
    const bool isEarlier = !rows.IsNull(5) && rows.Whole(5) < look.since;
    if (!isLater && !isEarlier) {
      look.found.push_back(AlarmOfRow(rows));
    }
    if (steps % kStepsBetweenLooks == 0 && std::chrono::steady_clock::now() >= end) {
      return true;
    }
  }
  return false;
}

std::optional<Json> AlarmHistory::Find(SqlDatabase& database, std::int64_t id) {
  if (!HasTable(database, kAlarmTable)) {
    return std::nullopt;
  }
  SqlStatement row = database.Prepare(std::string("SELECT ") + kAlarmColumns +
                                      " FROM \"qmt alarms\" WHERE id = ?1");
  row.Bind(1, id);
  return row.Step() ? std::optional(AlarmOfRow(row)) : std::nullopt;
}

std::int64_t AlarmHistory::ReadRows(SqlDatabase& database, std::int64_t id, std::int64_t after,
                                    const std::function<bool(const CapturedRow&)>& visit) {
  if (!HasTable(database, kRowTable)) {
    return after;
  }
  SqlStatement rows = database.Prepare(
      "SELECT rowid, record, time, row FROM \"qmt alarm rows\" WHERE id = ?1 AND rowid > ?2 ORDER "
      "BY rowid");
  rows.Bind(1, id);
  rows.Bind(2, after);
  while (rows.Step()) {
    after = rows.Whole(0);
    if (!visit({id, std::string(rows.Text(1)), rows.Whole(2), std::string(rows.Text(3))})) {
      break;
    }
  }
  return after;
}
