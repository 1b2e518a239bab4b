#include "local/alarm/AlarmPast.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "json/JsonText.h"
#include "local/history/HistoryTables.h"
#include "local/history/RowFields.h"

namespace {

Json PastValue(const SqlStatement& row, int column) {
  if (row.IsNull(column)) {
    return nullptr;
  }
  if (row.IsWhole(column)) {
    return row.Whole(column);
  }
  return row.IsReal(column) ? Json(row.Real(column)) : Json(ValidUtf8(row.Text(column)));
}

}  // namespace

AlarmPast::AlarmPast(AlarmWatch& watch, std::time_t now)
    : m_watch(watch), m_time(now - watch.Definition().over.count()), m_end(now) {}

bool AlarmPast::GoOn(SqlDatabase& database) {
  const AlarmDefinition& definition = m_watch.Definition();
  const std::string record = definition.layout->name;
  const auto columns = ColumnsOf(database, record);
  std::vector<std::size_t> places = definition.keys;
  for (const RowCondition& condition : definition.where) {
    places.push_back(condition.Field().place);
  }
  places.insert(places.end(), definition.predicted.begin(), definition.predicted.end());
  const std::string time = QuotedName(kTimeLabel);
  std::string text = "SELECT rowid, " + time;
  for (const std::size_t place : places) {
    const char* label = definition.layout->fields[place].label;
    if (!columns.contains(label)) {
      return false;
    }
    text += ", " + QuotedName(label);
  }
  SqlStatement rows = database.Prepare(
      text + " FROM " + QuotedName(record) + " WHERE " + time + " >= ?1 AND " + time +
      " <= ?2 AND (" + time + " > ?1 OR rowid > ?3) ORDER BY " + time + ", rowid LIMIT ?4");
  rows.Bind(1, m_time);
  rows.Bind(2, m_end);
  rows.Bind(3, m_row);
  rows.Bind(4, std::int64_t{kRowsAtOnce});
  int count = 0;
  for (; rows.Step(); ++count) {
    m_row = rows.Whole(0);
    m_time = rows.Whole(1);
    int column = 2;
    Json key = Json::Object();
    for (const std::size_t place : definition.keys) {
      key.Members().push_back({definition.layout->fields[place].label, PastValue(rows, column++)});
    }
    bool isWanted = true;
    for (const RowCondition& condition : definition.where) {
      isWanted = condition.Holds(PastValue(rows, column++)) && isWanted;
    }
    for (std::size_t i = 0; isWanted && i < definition.predicted.size(); ++i, ++column) {
      const Json value = PastValue(rows, column);
      if (value.IsNumber() && std::isfinite(value.Number())) {
        m_watch.AddPast(JsonText(key), i, m_time, value.Number());
      }
    }
  }
  return count == kRowsAtOnce;
}
