#include "local/control/RowChoices.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "json/JsonText.h"
#include "json/RowText.h"

namespace {

using RowBytes = std::span<const unsigned char>;

constexpr std::array kChoiceMembers{"columns", "where", "sort", "limit"};

}  // namespace

std::variant<std::vector<std::string>, ControlError> ReadTexts(const Json& message,
                                                               const char* name,
                                                               const TextBounds& bounds) {
  std::vector<std::string> texts;
  const Json* member = message.Find(name);
  if (member == nullptr) {
    return texts;
  }
  const auto wrong = [name](const std::string& words) {
    return ControlError{"bad-field", name + words, name};
  };
  if (!member->IsArray()) {
    return wrong(" must be an array of texts");
  }
  if (member->Size() > bounds.texts) {
    return wrong(" holds more than " + std::to_string(bounds.texts) + " texts");
  }
  for (const Json& element : member->Elements()) {
    if (!element.IsString()) {
      return wrong(" must be an array of texts");
    }
    if (element.Text().size() > bounds.bytes) {
      return wrong(" holds a text of more than " + std::to_string(bounds.bytes) + " bytes");
    }
    if (std::ranges::count(element.Text(), '*') > static_cast<std::ptrdiff_t>(bounds.stars)) {
      return wrong(" holds a text of more than " + std::to_string(bounds.stars) + " stars");
    }
    texts.push_back(element.Text());
  }
  return texts;
}

std::variant<RowChoices, ControlError> RowChoices::Read(const Json& message,
                                                        const RecordLayout* layout) {
  RowChoices choices;
  for (const char* name : kChoiceMembers) {
    if (message.Find(name) != nullptr) {
      if (layout == nullptr) {
        return ControlError{"bad-field", std::string(name) + " is taken with one record only",
                            name};
      }
      choices.m_isAny = true;
    }
  }
  if (auto error = choices.ReadPlain(message)) {
    return *std::move(error);
  }
  if (layout != nullptr) {
    if (auto error = choices.ReadLabels(message, *layout)) {
      return *std::move(error);
    }
  }
  return choices;
}

std::optional<ControlError> RowChoices::ReadPlain(const Json& message) {
  if (const Json* arguments = message.Find("arguments"); arguments != nullptr) {
    if (!arguments->IsBool()) {
      return ControlError{"bad-field", "arguments must be true or false", "arguments"};
    }
    m_hasArguments = arguments->Bool();
  }
  if (const Json* limit = message.Find("limit"); limit != nullptr) {
    // As a double any whole number can be compared.
    if (!limit->IsWhole() || !(limit->Number() >= 1 && limit->Number() <= kMaxLimit)) {
      return ControlError{"bad-field",
                          "limit must be a whole number from 1 to " + std::to_string(kMaxLimit),
                          "limit"};
    }
    m_limit = limit->Unsigned();
  }
  return std::nullopt;
}

std::optional<ControlError> RowChoices::ReadLabels(const Json& message,
                                                   const RecordLayout& layout) {
  const auto find = [&](std::string_view label) { return Find(layout, label); };
  const auto has = [&](std::string_view label) {
    return FindFieldPlace(layout, label).has_value();
  };
  const auto takeColumn = [&](const std::string& text) {
    const auto place = FindFieldPlace(layout, Trimmed(text));
    if (!place) {
      throw std::invalid_argument(std::string(layout.name) + " has no label \"" + text + "\"");
    }
    if (std::ranges::find(m_columns, *place) == m_columns.end()) {
      m_columns.push_back(*place);
    }
  };
  const struct {
    const char* name;
    TextBounds bounds;
    std::function<void(const std::string&)> take;
  } members[] = {
      {"columns", {}, takeColumn},
      {"where", kConditionBounds,
       [&](const std::string& text) { m_where.emplace_back(text, find); }},
      {"sort", {}, [&](const std::string& text) { m_sort.emplace_back(text, find, has); }}};
  for (const auto& [name, bounds, take] : members) {
    auto texts = ReadTexts(message, name, bounds);
    if (auto* error = std::get_if<ControlError>(&texts)) {
      return std::move(*error);
    }
    try {
      std::ranges::for_each(std::get<0>(texts), take);
    } catch (const std::invalid_argument& error) {
      return ControlError{"bad-field", error.what(), name};
    }
  }
  return std::nullopt;
}

RowField RowChoices::Find(const RecordLayout& layout, std::string_view label) const {
  RowField found = RowFieldOf(layout, label);
  if (!m_hasArguments && HoldsArguments(layout.fields[found.place])) {
    throw std::invalid_argument("\"" + found.label + "\" holds arguments, which are left out");
  }
  return found;
}

std::vector<std::string> RowChoices::NamedRows(const RecordLayout& layout) const {
  std::vector<std::string> values;
  for (const RowCondition& condition : m_where) {
    const FieldMeaning meaning = layout.fields[condition.Field().place].meaning;
    if (condition.Sign() == "=" && (meaning == FieldMeaning::key || meaning == FieldMeaning::text)) {
      values.push_back(condition.Operand());
    }
  }
  return values;
}

bool RowChoices::Holds(const std::function<Json(std::size_t)>& valueAt) const {
  for (std::size_t i = 0; i < m_where.size(); ++i) {
    if (!Holds(i, valueAt)) {
      return false;
    }
  }
  return true;
}

bool RowChoices::Holds(std::size_t condition,
                       const std::function<Json(std::size_t)>& valueAt) const {
  return m_where[condition].Holds(AsSeen(valueAt(m_where[condition].Field().place)));
}

std::vector<Json> RowChoices::SortKeys(const std::function<Json(std::size_t)>& valueAt) const {
  std::vector<Json> keys;
  keys.reserve(m_sort.size());
  for (const RowOrder& order : m_sort) {
    keys.push_back(AsSeen(valueAt(order.Field().place)));
  }
  return keys;
}

bool RowChoices::ComesBefore(const std::vector<Json>& a, const std::vector<Json>& b) const {
  for (std::size_t i = 0; i < m_sort.size(); ++i) {
    if (const auto order = m_sort[i].Compare(a[i], b[i]); order != 0) {
      return order < 0;
    }
  }
  return false;
}

Json RowChoices::MakeRow(const RecordLayout& layout,
                         const std::function<Json(std::size_t)>& valueAt) const {
  Json row = Json::Object();
  auto& members = row.Members();
  const bool isAll = m_columns.empty();
  const std::size_t count = isAll ? layout.fields.size() : m_columns.size();
  members.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t place = isAll ? i : m_columns[i];
    const FieldLayout& field = layout.fields[place];
    // Each label is new, so the search that the object's own insertion makes is left out.
    members.push_back({field.label, Shows(field) ? valueAt(place) : Json(nullptr)});
  }
  return row;
}

Json RowChoices::RowJson(const RecordLayout& layout, RowBytes bytes) const {
  return MakeRow(layout,
                 [&](std::size_t place) { return FieldToJson(layout.fields[place], bytes); });
}
