#pragma once

#include <cstring>
#include <functional>
#include <string_view>

#include "node/ProductRecord.h"
#include "records/RecordLayouts.h"

// The classes through which the structures cross into the node: `cmbClassPI_XXX(&row)` holds a copy
// of the row, `cmbClassPI_XXX(nullptr)` a zero one.

/// True unless the field is an identity field and the two values differ.
template <FieldMeaning meaning, class Value>
[[nodiscard]] bool SameIfKey(const Value& a, const Value& b) {
  if constexpr (meaning == FieldMeaning::key) {
    return a == b;
  } else {
    return true;
  }
}

#define BEGIN(structure, className, name, kind, bytes)                         \
  [[nodiscard]] inline bool SameKeys(const structure& a, const structure& b) { \
    return true
#define FIELD(type, member, label, meaning, ...) \
  &&SameIfKey<FieldMeaning::meaning>(a.member, b.member)
// clang-format off
#define END() ; }
// clang-format on
#include "records/layout/All.def"

/// A hash that goes on with the value of an identity field.
template <FieldMeaning meaning, std::size_t N>
[[nodiscard]] std::size_t HashIfKey(std::size_t hash, const Text<N>& value) {
  return meaning == FieldMeaning::key ? hash * 31 + std::hash<std::string_view>{}(value.view())
                                      : hash;
}
template <FieldMeaning meaning, class T>
[[nodiscard]] std::size_t HashIfKey(std::size_t hash, const Packed<T>& value) {
  if constexpr (meaning == FieldMeaning::key) {
    return hash * 31 + std::hash<T>{}(value);
  } else {
    return hash;
  }
}

#define BEGIN(structure, className, name, kind, bytes)                                 \
  [[nodiscard]] inline std::size_t HashOfKeys([[maybe_unused]] const structure& row) { \
    std::size_t hash = 0;
#define FIELD(type, member, label, meaning, ...) \
  hash = HashIfKey<FieldMeaning::meaning>(hash, row.member);
#define END()  \
  return hash; \
  }
#include "records/layout/All.def"

/// 1 if the record types are equal and so are the identity fields, where the record has such.
template <class Record>
[[nodiscard]] int SameIdentity(const Record& row, const CMBRecord& other) {
  if (std::strcmp(row.recordType.c_str(), other.GetRecType()) != 0) {
    return 0;
  }
  if constexpr (RecordTraits<Record>::kKeyFields == 0) {
    return 1;
  } else {
    return other.GetRecSize() == static_cast<int>(sizeof(Record)) &&
                   SameKeys(row, *static_cast<const Record*>(other.GetRecStart()))
               ? 1
               : 0;
  }
}

#define BEGIN(structure, className, name, kind, bytes)                                        \
  class className : public CMBProductRecord<structure> {                                      \
   public:                                                                                    \
    explicit className(const structure* source)                                               \
        : CMBProductRecord(RecordTraits<structure>::kCategory,                                \
                           RecordTraits<structure>::Descriptors().data(),                     \
                           static_cast<int>(RecordTraits<structure>::Descriptors().size())) { \
      CopyIn(source);                                                                         \
    }                                                                                         \
    int operator==(const CMBRecord& other) const override {                                   \
      return SameIdentity(m_record, other);                                                   \
    }                                                                                         \
    [[nodiscard]] const void* GetRecStart() const override { return &m_record; }              \
  };
#include "records/layout/All.def"
