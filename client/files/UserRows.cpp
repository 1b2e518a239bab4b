#include "client/files/UserRows.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <optional>

#include "client/show/TimeText.h"
#include "json/JsonText.h"

namespace {

using Faults = std::vector<UserFault>;

void AddFault(Faults& faults, std::size_t line, const std::string& text) {
  if (faults.size() < kMaxUserFaults) {
    faults.push_back({line, text});
  } else if (faults.size() == kMaxUserFaults) {
    faults.push_back({line, "there are further faults, which are not listed"});
  }
}

/// Takes comma-separated values apart.
class CsvReader {
 public:
  explicit CsvReader(std::string_view text) : m_text(text) {}

  /// The next line with anything in it; false at the end.
  bool Next(UserTable::Row& row, Faults& faults) {
    while (m_at < m_text.size()) {
      row = {m_line, {}};
      ReadLine(row, faults);
      if (row.cells.size() != 1 || !row.cells[0].empty()) {
        return true;
      }
    }
    return false;
  }

 private:
  void ReadLine(UserTable::Row& row, Faults& faults) {
    std::string cell;
    bool isQuoted = false;
    for (; m_at < m_text.size(); ++m_at) {
      const char c = m_text[m_at];
      if (isQuoted) {
        isQuoted = TakeQuoted(c, cell);
      } else if (c == '"' && cell.empty()) {
        isQuoted = true;
      } else if (c == ',') {
        row.cells.push_back(std::exchange(cell, {}));
      } else if (c == '\n' || (c == '\r' && m_text.substr(m_at + 1).starts_with('\n'))) {
        m_at += c == '\r' ? 2 : 1;
        ++m_line;
        row.cells.push_back(std::move(cell));
        return;
      } else {
        cell += c;
      }
    }
    if (isQuoted) {
      AddFault(faults, row.line, "a quote is not closed");
    }
    row.cells.push_back(std::move(cell));
  }
  /// Whether the quote goes on.
  bool TakeQuoted(char c, std::string& cell) {
    if (c != '"') {
      m_line += c == '\n' ? 1 : 0;
      cell += c;
      return true;
    }
    if (m_text.substr(m_at + 1).starts_with('"')) {
      ++m_at;
      cell += '"';
      return true;
    }
    return false;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::size_t m_line = 1;
};

UserTable ReadCsv(std::string_view text, Faults& faults) {
  constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
  text.remove_prefix(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  CsvReader reader(text);
  UserTable table;
  UserTable::Row row;
  if (!reader.Next(row, faults)) {
    AddFault(faults, 1, "there is no line of labels");
    return table;
  }
  table.labels = std::move(row.cells);
  while (reader.Next(row, faults)) {
    if (row.cells.size() != table.labels.size()) {
      AddFault(faults, row.line,
               std::to_string(row.cells.size()) + " values under " +
                   std::to_string(table.labels.size()) + " labels");
      row.cells.resize(table.labels.size());
    }
    table.rows.push_back(std::move(row));
  }
  return table;
}

std::string CellOf(const Json& value, std::size_t line, const std::string& label, Faults& faults) {
  if (value.IsString()) {
    return value.Text();
  }
  if (value.IsNumber()) {
    return JsonText(value);
  }
  if (!value.IsNull()) {
    AddFault(faults, line, "\"" + label + "\" is neither a text nor a number");
  }
  return {};
}

void AddObject(const Json& object, std::size_t line, UserTable& table, Faults& faults) {
  if (!object.IsObject()) {
    AddFault(faults, line, "this is no object");
    return;
  }
  UserTable::Row row{line, std::vector<std::string>(table.labels.size())};
  for (const auto& [label, value] : object.Members()) {
    const auto place = std::ranges::find(table.labels, label);
    const auto index = static_cast<std::size_t>(place - table.labels.begin());
    if (place == table.labels.end()) {
      table.labels.push_back(label);
      row.cells.emplace_back();
    }
    row.cells[index] = CellOf(value, line, label, faults);
  }
  table.rows.push_back(std::move(row));
}

/// `line`: that of the text's begin.
UserTable ReadJson(std::string_view text, std::size_t line, Faults& faults) {
  UserTable table;
  const bool isArray = text.starts_with('[');
  while (!text.empty()) {
    const std::size_t end = isArray ? text.size() : std::min(text.find('\n'), text.size());
    const std::string_view part = text.substr(0, end);
    if (part.find_first_not_of(" \t\r\n") != std::string_view::npos) {
      const auto [value, fault, words] = ParseJson(part);
      if (fault != JsonFault::kNone) {
        AddFault(faults, line, "this is no JSON");
      } else if (!isArray) {
        AddObject(value, line, table, faults);
      } else {
        // Elements have no lines of their own: they are counted.
        for (std::size_t i = 0; i < value.Size(); ++i) {
          AddObject(value[i], i + 1, table, faults);
        }
      }
    }
    text.remove_prefix(std::min(end + 1, text.size()));
    ++line;
  }
  for (UserTable::Row& row : table.rows) {
    row.cells.resize(table.labels.size());
  }
  return table;
}

template <class T>
std::optional<T> ParseNumber(const std::string& text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? std::optional(value)
                                                                  : std::nullopt;
}

std::optional<std::int32_t> ParseSeconds(const std::string& text) {
  auto seconds = ParseNumber<std::int64_t>(text);
  if (!seconds) {
    seconds = ParseDate(text);
  }
  using Limits = std::numeric_limits<std::int32_t>;
  return seconds && *seconds >= Limits::min() && *seconds <= Limits::max()
             ? std::optional(static_cast<std::int32_t>(*seconds))
             : std::nullopt;
}

template <class T>
void Put(std::string& record, const UserField& field, const T& value) {
  std::memcpy(record.data() + field.offset, &value, sizeof value);
}

/// Puts one cell into its field; what is wrong with it, empty if nothing.
std::string PutCell(const UserField& field, const std::string& cell, std::string& record) {
  const bool isEmpty = cell.empty();
  switch (field.type) {
    case UserFieldType::kText:
      if (cell.find('\0') != std::string::npos) {
        return "holds a zero byte";
      }
      if (cell.size() > field.size) {
        return "has " + std::to_string(cell.size()) + " bytes, more than " +
               std::to_string(field.size);
      }
      cell.copy(record.data() + field.offset, field.size);
      return {};
    case UserFieldType::kSigned:
      if (const auto value = ParseNumber<std::int32_t>(isEmpty ? "0" : cell)) {
        Put(record, field, *value);
        return {};
      }
      return "must be a whole number from -2147483648 to 2147483647, not \"" + cell + "\"";
    case UserFieldType::kUnsigned:
      if (const auto value = ParseNumber<std::uint32_t>(isEmpty ? "0" : cell)) {
        Put(record, field, *value);
        return {};
      }
      return "must be a whole number from 0 to 4294967295, not \"" + cell + "\"";
    case UserFieldType::kTime:
      if (const auto value = ParseSeconds(isEmpty ? "0" : cell)) {
        Put(record, field, *value);
        return {};
      }
      return "must be a time such as 2026-11-25T07:30:00Z or seconds since 1970, of 32 bits, not "
             "\"" +
             cell + "\"";
    case UserFieldType::kDouble:
      if (const auto value = ParseNumber<double>(isEmpty ? "0" : cell);
          value && std::isfinite(*value)) {
        Put(record, field, *value);
        return {};
      }
      return "must be a finite number, not \"" + cell + "\"";
  }
  return {};
}

/// The field of each column; null for one that there is not.
std::vector<const UserField*> MatchLabels(const UserFileKind& kind, const UserTable& table,
                                          Faults& faults) {
  std::vector<const UserField*> fields;
  for (const std::string& label : table.labels) {
    const auto found = std::ranges::find(kind.fields, label, &UserField::label);
    fields.push_back(found == kind.fields.end() ? nullptr : &*found);
    if (fields.back() == nullptr) {
      AddFault(faults, 1, "no column \"" + label + "\" in " + kind.name);
    } else if (std::count(fields.begin(), fields.end(), fields.back()) > 1) {
      AddFault(faults, 1, "the column \"" + label + "\" stands twice");
    }
  }
  return fields;
}

constexpr const char* kCollectTime = "Collect Time";

std::string MakeRecord(const UserFileKind& kind, const std::vector<const UserField*>& fields,
                       const UserTable::Row& row, std::int64_t now, UserRecords& made) {
  std::string record(kind.recordSize, '\0');
  bool hasTime = false;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i] == nullptr) {
      continue;
    }
    const UserField& field = *fields[i];
    const std::string& cell = row.cells[i];
    hasTime = hasTime || (field.label == kCollectTime && !cell.empty());
    if (const std::string fault = PutCell(field, cell, record); !fault.empty()) {
      AddFault(made.faults, row.line, "\"" + field.label + "\" " + fault);
    } else if (field.type == UserFieldType::kText && cell.size() == field.size) {
      AddFault(made.warnings, row.line,
               "\"" + field.label + "\" fills its field: the record shows one byte less");
    }
  }
  if (!hasTime) {
    Put(record, *std::ranges::find(kind.fields, kCollectTime, &UserField::label),
        static_cast<std::int32_t>(now));
  }
  return record;
}

Json FieldJson(const UserField& field, const char* record) {
  const char* bytes = record + field.offset;
  const auto number = [bytes]<class T>(T value) {
    std::memcpy(&value, bytes, sizeof value);
    return value;
  };
  switch (field.type) {
    case UserFieldType::kText:
      return std::string(bytes, ::strnlen(bytes, field.size));
    case UserFieldType::kUnsigned:
      return number(std::uint32_t{});
    case UserFieldType::kSigned:
    case UserFieldType::kTime:
      return number(std::int32_t{});
    case UserFieldType::kDouble:
      break;
  }
  return number(double{});
}

}  // namespace

UserTable ReadUserTable(std::string_view text, Faults& faults) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  const bool isJson = begin != std::string_view::npos && (text[begin] == '[' || text[begin] == '{');
  if (!isJson) {
    return ReadCsv(text, faults);
  }
  const auto linesBefore = std::ranges::count(text.substr(0, begin), '\n');
  return ReadJson(text.substr(begin), 1 + static_cast<std::size_t>(linesBefore), faults);
}

UserRecords MakeUserRecords(const UserFileKind& kind, const UserTable& table, std::int64_t now) {
  UserRecords made;
  const std::vector<const UserField*> fields = MatchLabels(kind, table, made.faults);
  made.bytes.reserve(table.rows.size() * kind.recordSize);
  for (const UserTable::Row& row : table.rows) {
    made.bytes += MakeRecord(kind, fields, row, now, made);
    made.lines.push_back(row.line);
  }
  return made;
}

Json UserRowsJson(const UserFileKind& kind, std::string_view records) {
  Json rows = Json::Array();
  for (; records.size() >= kind.recordSize; records.remove_prefix(kind.recordSize)) {
    Json row = Json::Object();
    for (const UserField& field : kind.fields) {
      row[field.label] = FieldJson(field, records.data());
    }
    rows.PushBack(std::move(row));
  }
  return rows;
}
