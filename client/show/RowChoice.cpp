#include "client/show/RowChoice.h"

#include <algorithm>
#include <utility>

#include "client/ask/Errors.h"
#include "client/show/Labels.h"
#include "client/show/RowValues.h"

namespace {

/// Where values of a kind stand among those of other kinds.
int KindRank(const Json& value) { return value.IsBool() ? 0 : value.IsNumber() ? 1 : 2; }

/// The order of two plain values, neither null.
bool IsLess(const Json& left, const Json& right) {
  if (KindRank(left) != KindRank(right)) {
    return KindRank(left) < KindRank(right);
  }
  if (left.IsString()) {
    return left.Text() < right.Text();
  }
  if (left.IsBool()) {
    return left.Bool() < right.Bool();
  }
  if (left.IsUnsigned() && right.IsUnsigned()) {
    return left.Unsigned() < right.Unsigned();
  }
  return left.Number() < right.Number();
}

}  // namespace

RowChoice::RowChoice(const ChoiceOptions& options, const Schema& schema) {
  for (const std::string& text : options.where) {
    m_where.emplace_back(text, schema);
  }
  for (const std::string& text : options.sort) {
    m_sort.push_back(ParseSortKey(text, schema));
  }
  for (const std::string& text : options.columns) {
    ParseColumns(text, schema);
  }
}

RowChoice::Column RowChoice::ColumnOf(const Field& field, const Schema& schema) {
  return {field.label, static_cast<std::size_t>(&field - schema.fields.data())};
}

RowChoice::SortKey RowChoice::ParseSortKey(std::string_view text, const Schema& schema) {
  text = Trimmed(text);
  const bool isForced =
      (text.starts_with('+') || text.starts_with('-')) && FindField(schema, text) == nullptr;
  const Field& field = NeedField(schema, isForced ? Trimmed(text.substr(1)) : text);
  return {ColumnOf(field, schema), isForced ? text.front() == '-' : IsNumeric(field)};
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
  for (const SortKey& key : m_sort) {
    const Json& left = ValueOf(a, key.column.place, key.column.label);
    const Json& right = ValueOf(b, key.column.place, key.column.label);
    if (left.IsNull() || right.IsNull()) {
      if (left.IsNull() != right.IsNull()) {
        return right.IsNull();
      }
    } else if (left != right) {
      return key.descending ? IsLess(right, left) : IsLess(left, right);
    }
  }
  return false;
}

Json RowChoice::Narrowed(const Json& row) const {
  Json out = Json::Object();
  for (const Column& column : m_columns) {
    out[column.label] = ValueOf(row, column.place, column.label);
  }
  return out;
}

void RowChoice::Apply(Json& rows) const {
  std::vector<Json*> chosen;
  for (Json& row : rows.Elements()) {
    if (std::all_of(m_where.begin(), m_where.end(),
                    [&](const Condition& condition) { return condition.Holds(row); })) {
      chosen.push_back(&row);
    }
  }
  std::stable_sort(chosen.begin(), chosen.end(),
                   [this](const Json* a, const Json* b) { return ComesBefore(*a, *b); });
  Json out = Json::Array();
  for (Json* row : chosen) {
    out.PushBack(HasColumns() ? Narrowed(*row) : std::move(*row));
  }
  rows = std::move(out);
}
