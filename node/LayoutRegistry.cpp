#include "node/LayoutRegistry.h"

#include <algorithm>
#include <array>

const char* FieldTypeName(FieldType type) {
  static constexpr std::array kNames{"char", "ushort", "long", "ulong", "float", "double", "utime"};
  return kNames.at(static_cast<std::size_t>(type));
}

const char* FieldMeaningName(FieldMeaning meaning) {
  static constexpr std::array kNames{"key",     "counter",  "gauge", "rate",
                                     "percent", "duration", "time",  "text"};
  return kNames.at(static_cast<std::size_t>(meaning));
}

LayoutRegistry& LayoutRegistry::Instance() {
  static LayoutRegistry registry;
  return registry;
}

void LayoutRegistry::Publish(const RecordLayout& layout) {
  const auto same = [&](const RecordLayout* other) {
    return std::string_view(other->name) == layout.name && other->category == layout.category;
  };
  const auto place = std::find_if(m_layouts.begin(), m_layouts.end(), same);
  if (place != m_layouts.end()) {
    *place = &layout;
  } else {
    m_layouts.push_back(&layout);
  }
}

const RecordLayout* LayoutRegistry::Find(std::string_view name, unsigned char category) const {
  for (const RecordLayout* layout : m_layouts) {
    if (name == layout->name && (category == 0 || category == layout->category)) {
      return layout;
    }
  }
  return nullptr;
}

const RecordListing* LayoutRegistry::FindListing(std::string_view name,
                                                 unsigned char category) const {
  for (const RecordListing& row : m_listing) {
    if (name == row.name && (category == 0 || category == row.category)) {
      return &row;
    }
  }
  return nullptr;
}

bool LayoutRegistry::IsIdle(std::string_view name) const {
  const RecordListing* const listing = FindListing(name);
  return listing != nullptr && listing->isIdle && listing->isIdle();
}
