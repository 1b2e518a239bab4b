#include "local/history/RecordJson.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "local/history/FieldValue.h"

namespace {

using Bytes = std::span<const unsigned char>;

struct ToJson {
  Json operator()(std::nullptr_t) const { return nullptr; }
  Json operator()(std::int64_t value) const { return value; }
  Json operator()(double value) const { return value; }
  Json operator()(std::string_view text) const { return std::string(text); }
};

}  // namespace

Json RowToJson(const RecordLayout& layout, Bytes bytes) {
  Json row = Json::Object();
  auto& members = row.Members();
  members.reserve(layout.fields.size());
  for (const FieldLayout& field : layout.fields) {
    // Each label is new, so the search that the object's own insertion makes is left out.
    members.push_back({field.label, FieldToJson(field, bytes)});
  }
  return row;
}

Json FieldToJson(const FieldLayout& field, Bytes bytes) {
  return field.hasSource ? VisitField(field, bytes, ToJson{}) : Json(nullptr);
}
