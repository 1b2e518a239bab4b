#include "local/control/HistoryQueries.h"

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "local/control/RecordQueries.h"
#include "local/history/HistoryTables.h"
#include "node/LayoutRegistry.h"

namespace {

using Number = std::int64_t;

/// A place in a table's order: the time, and the number of the row among those of one time.
struct RowPlace {
  Number time = std::numeric_limits<Number>::min();
  Number row = std::numeric_limits<Number>::min();
};

struct WantedHistory {
  const RecordLayout* layout = nullptr;
  Number since = std::numeric_limits<Number>::min();
  Number until = std::numeric_limits<Number>::max();
  RowPlace after;
  std::optional<Number> at;
};

/// A whole number that `Number` holds: one beyond it would turn into another.
bool IsNumber(const Json& value) {
  return value.IsWhole() &&
         (!value.IsUnsigned() ||
          value.Unsigned() <= static_cast<std::uint64_t>(std::numeric_limits<Number>::max()));
}

std::optional<ControlError> ReadNumber(const Json& message, const char* name, Number& target) {
  const Json* member = message.Find(name);
  if (member == nullptr) {
    return std::nullopt;
  }
  if (!IsNumber(*member)) {
    return ControlError{"bad-field", std::string(name) + " must be a whole number of 64 bits",
                        name};
  }
  target = member->Whole();
  return std::nullopt;
}

std::optional<ControlError> ReadAfter(const Json& message, RowPlace& place) {
  const Json* after = message.Find("after");
  if (after == nullptr) {
    return std::nullopt;
  }
  if (!after->IsArray() || after->Size() != 2 || !IsNumber((*after)[0]) || !IsNumber((*after)[1])) {
    return ControlError{"bad-field", "after must be the \"next\" of an answer", "after"};
  }
  place = {(*after)[0].Whole(), (*after)[1].Whole()};
  return std::nullopt;
}

std::variant<WantedHistory, ControlError> ReadWantedHistory(const Json& message) {
  const Json* record = message.Find("record");
  if (record == nullptr || !record->IsString()) {
    return ControlError{"bad-field", "record must be the name of a record", "record"};
  }
  auto category = ReadCategory(message);
  if (auto* error = std::get_if<ControlError>(&category)) {
    return std::move(*error);
  }
  WantedHistory wanted;
  const auto& name = record->Text();
  wanted.layout = LayoutRegistry::Instance().Find(name, std::get<unsigned char>(category));
  if (wanted.layout == nullptr) {
    return ControlError{"unknown-record", "no record \"" + name + "\"", "record"};
  }
  Number at = 0;
  for (auto& error :
       {ReadNumber(message, "since", wanted.since), ReadNumber(message, "until", wanted.until),
        ReadNumber(message, "at", at), ReadAfter(message, wanted.after)}) {
    if (error) {
      return *error;
    }
  }
  if (message.Find("at") != nullptr) {
    wanted.at = at;
  }
  return wanted;
}

/// The time among the rows that is nearest to `at`; of two as near as each other the earlier one.
std::optional<Number> NearestTime(SqlDatabase& database, const std::string& record, Number at) {
  const std::string table = QuotedName(record);
  const std::string time = QuotedName(kTimeLabel);
  const auto ask = [&](const std::string& text) -> std::optional<Number> {
    SqlStatement statement = database.Prepare(text);
    statement.Bind(1, at);
    return statement.Step() && !statement.IsNull(0) ? std::optional(statement.Whole(0))
                                                    : std::nullopt;
  };
  const auto before = ask("SELECT max(" + time + ") FROM " + table + " WHERE " + time + " <= ?1");
  const auto behind = ask("SELECT min(" + time + ") FROM " + table + " WHERE " + time + " > ?1");
  // Of numbers that a client gives no difference is taken: it may not fit.
  const auto distance = [at](Number other) {
    const auto wide = static_cast<std::uint64_t>(other) - static_cast<std::uint64_t>(at);
    return other < at ? std::uint64_t{0} - wide : wide;
  };
  if (before && behind) {
    return distance(*behind) < distance(*before) ? behind : before;
  }
  return before ? before : behind;
}

Json ColumnJson(const SqlStatement& statement, int column) {
  if (statement.IsNull(column)) {
    return nullptr;
  }
  if (statement.IsWhole(column)) {
    return statement.Whole(column);
  }
  return statement.IsReal(column) ? Json(statement.Real(column))
                                  : Json(std::string(statement.Text(column)));
}

std::string SelectText(const RecordLayout& layout) {
  const std::string time = QuotedName(kTimeLabel);
  std::string text = "SELECT rowid, " + time;
  for (const FieldLayout& field : layout.fields) {
    text += ", " + QuotedName(field.label);
  }
  return text + " FROM " + QuotedName(layout.name) + " WHERE " + time + " BETWEEN ?1 AND ?2 AND (" +
         time + ", rowid) > (?3, ?4) ORDER BY " + time + ", rowid";
}

/// One page of rows, and where the next one begins.
struct Page {
  Json rows = Json::Array();
  Json next = nullptr;
};

Page ReadPage(SqlDatabase& database, const WantedHistory& wanted) {
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::milliseconds(HistoryQueries::kPageMilliseconds);
  SqlStatement statement = database.Prepare(SelectText(*wanted.layout));
  statement.Bind(1, wanted.since);
  statement.Bind(2, wanted.until);
  statement.Bind(3, wanted.after.time);
  statement.Bind(4, wanted.after.row);
  Page page;
  while (statement.Step()) {
    Json row = Json::Object();
    auto& members = row.Members();
    int column = 1;
    for (const FieldLayout& field : wanted.layout->fields) {
      ++column;
      members.push_back(
          {field.label, field.hasSource ? ColumnJson(statement, column) : Json(nullptr)});
    }
    page.rows.PushBack(std::move(row));
    if (page.rows.Size() == HistoryQueries::kPageRows || std::chrono::steady_clock::now() >= end) {
      page.next = Json::Array({statement.Whole(1), statement.Whole(0)});
      break;
    }
  }
  return page;
}

}  // namespace

void HistoryQueries::History(const std::shared_ptr<ControlRequest>& request) {
  auto read = ReadWantedHistory(request->Message());
  if (const auto* error = std::get_if<ControlError>(&read)) {
    request->Fail(*error);
    return;
  }
  auto& wanted = std::get<WantedHistory>(read);
  if (m_store.Settings().file.empty()) {
    request->Fail({"no-history", "the daemon keeps no history", ""});
    return;
  }
  SqlDatabase* database = m_store.Database();
  if (database == nullptr) {
    request->Fail({"no-history", "the history can't be read: " + m_store.Problem(), ""});
    return;
  }
  Page page;
  try {
    const bool isKept = HasTable(*database, wanted.layout->name);
    const auto nearest = isKept && wanted.at
                             ? NearestTime(*database, wanted.layout->name, *wanted.at)
                             : std::nullopt;
    if (nearest) {
      wanted.since = wanted.until = *nearest;
    }
    if (isKept && (nearest || !wanted.at)) {
      page = ReadPage(*database, wanted);
    }
  } catch (const SqlError& error) {
    request->Fail({"no-history", std::string("the history can't be read: ") + error.what(), ""});
    return;
  }
  request->Succeed("history",
                   Json{{"record", wanted.layout->name},
                        {"category", std::string(1, static_cast<char>(wanted.layout->category))},
                        {"rows", std::move(page.rows)},
                        {"next", std::move(page.next)}});
}
