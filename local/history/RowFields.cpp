#include "local/history/RowFields.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>

#include "json/JsonText.h"
#include "json/RowText.h"

bool HoldsArguments(const FieldLayout& field) {
  static constexpr std::array<std::string_view, 2> kLabels{"Argument List", "Command Line"};
  return std::ranges::find(kLabels, field.label) != kLabels.end();
}

std::optional<std::size_t> FindFieldPlace(const RecordLayout& layout, std::string_view label) {
  return FindLabel(label, layout.fields.size(),
                   [&](std::size_t at) -> std::string_view { return layout.fields[at].label; });
}

RowField RowFieldOf(const RecordLayout& layout, std::string_view label) {
  const auto place = FindFieldPlace(layout, Trimmed(label));
  if (!place) {
    throw std::invalid_argument(std::string(layout.name) + " has no label \"" + std::string(label) +
                                "\"");
  }
  const FieldLayout& field = layout.fields[*place];
  return {field.label, *place, field.type != FieldType::kText,
          IsTimeField(FieldMeaningName(field.meaning), FieldTypeName(field.type), field.label)};
}

Json AsSeen(Json value) {
  return value.IsString() ? Json(ValidUtf8(value.Text())) : std::move(value);
}
