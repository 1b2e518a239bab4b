#include "client/show/RowChoice.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "client/ask/Errors.h"
#include "client/show/Labels.h"
#include "client/show/RowValues.h"

namespace {

// What the daemon takes.
constexpr std::size_t kMostNames = 16;
constexpr std::size_t kMostNameBytes = 256;

RowField NeedRowField(const Schema& schema, std::string_view label) {
  const Field& field = NeedField(schema, label);
  return {field.label, static_cast<std::size_t>(&field - schema.fields.data()), IsNumeric(field),
          IsTime(field)};
}

const Json& ValueOf(const Json& row, const RowField& field) {
  return ValueOf(row, field.place, field.label);
}

}  // namespace

RowChoice::RowChoice(const ChoiceOptions& options, const Schema& schema) {
  const auto find = [&](std::string_view label) { return NeedRowField(schema, label); };
  const auto has = [&](std::string_view label) { return FindField(schema, label) != nullptr; };
  try {
    for (const std::string& text : options.where) {
      m_where.emplace_back(text, find);
    }
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  }
  NameRows(schema);
  for (const std::string& text : options.sort) {
    m_sort.emplace_back(text, find, has);
  }
  for (const std::string& text : options.columns) {
    ParseColumns(text, schema);
  }
}

RowChoice::Column RowChoice::ColumnOf(const Field& field, const Schema& schema) {
  return {field.label, static_cast<std::size_t>(&field - schema.fields.data())};
}

void RowChoice::ParseColumns(std::string_view text, const Schema& schema) {
  if (Trimmed(text) == "*") {
    for (const Field& field : schema.fields) {
      m_columns.push_back(ColumnOf(field, schema));
    }
    return;
  }
  // A label that holds a comma can be named alone.
  if (const Field* whole = FindField(schema, Trimmed(text)); whole != nullptr) {
    m_columns.push_back(ColumnOf(*whole, schema));
    return;
  }
  for (std::size_t comma = 0; comma != std::string_view::npos;) {
    comma = text.find(',');
    m_columns.push_back(ColumnOf(NeedField(schema, Trimmed(text.substr(0, comma))), schema));
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
  }
}

bool RowChoice::ComesBefore(const Json& a, const Json& b) const {
  for (const RowOrder& key : m_sort) {
    const auto order = key.Compare(ValueOf(a, key.Field()), ValueOf(b, key.Field()));
    if (order != 0) {
      return order < 0;
    }
  }
  return false;
}

bool RowChoice::Holds(const Json& row) const {
  return std::ranges::all_of(m_where, [&](const RowCondition& condition) {
    return condition.Holds(ValueOf(row, condition.Field()));
  });
}

void RowChoice::Sort(Json& rows) const {
  std::ranges::stable_sort(rows.Elements(),
                           [this](const Json& a, const Json& b) { return ComesBefore(a, b); });
}

Json RowChoice::Narrowed(Json row) const {
  if (!HasColumns()) {
    return row;
  }
  Json out = Json::Object();
  for (const Column& column : m_columns) {
    out[column.label] = ValueOf(row, column.place, column.label);
  }
  return out;
}

void RowChoice::NameRows(const Schema& schema) {
  for (const RowCondition& condition : m_where) {
    const std::string& meaning = schema.fields[condition.Field().place].meaning;
    if (condition.Sign() == "=" && (meaning == "key" || meaning == "text") &&
        m_namedRows.size() < kMostNames && condition.Operand().size() <= kMostNameBytes) {
      m_namedRows.push_back(condition.Operand());
    }
  }
}

void RowChoice::Apply(Json& rows) const {
  std::erase_if(rows.Elements(), [this](const Json& row) { return !Holds(row); });
  Sort(rows);
  for (Json& row : rows.Elements()) {
    row = Narrowed(std::move(row));
  }
}
