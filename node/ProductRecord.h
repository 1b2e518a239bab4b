#pragma once

#include <cstring>
#include <functional>

#include "node/Record.h"

/// The typed record: holds the packed structure T by value, then the kind byte, the descriptor
/// table (not owned, lives as long as the process) and its row count. The concrete class overrides
/// GetRecStart() and, where the record has identity fields, the equality.
template <class T>
class CMBProductRecord : public CMBRecord {
 public:
  CMBProductRecord(unsigned char kind, const FieldDescriptor* table, int rows)
      : m_kind(kind), m_table(table), m_rows(rows) {}

  /// 1 if kind, size, descriptor table and record type are all equal; no field is compared.
  int operator==(const CMBRecord& other) const override {
    return m_kind == other.GetDataType() && GetRecSize() == other.GetRecSize() &&
                   m_table == other.GetFieldTypeArray() &&
                   std::strcmp(GetRecType(), other.GetRecType()) == 0
               ? 1
               : 0;
  }

  /// 1 as soon as kind, size or descriptor table is lower; a greater value at an earlier step does
  /// not stop the comparison. At the end the record types decide.
  int operator<(const CMBRecord& other) const override {
    if (m_kind < other.GetDataType() || GetRecSize() < other.GetRecSize() ||
        std::less<const FieldDescriptor*>{}(m_table, other.GetFieldTypeArray())) {
      return 1;
    }
    return std::strcmp(GetRecType(), other.GetRecType()) < 0 ? 1 : 0;
  }

  [[nodiscard]] const char* IsA() const override { return "CMBProductRecord"; }
  [[nodiscard]] unsigned char GetDataType() const override { return m_kind; }
  [[nodiscard]] int GetRecSize() const override { return static_cast<int>(sizeof(T)); }
  [[nodiscard]] const void* GetRecStart() const override = 0;
  [[nodiscard]] const char* GetRecType() const override {
    return static_cast<const char*>(GetRecStart());
  }
  [[nodiscard]] const FieldDescriptor* GetFieldTypeArray() const override { return m_table; }
  [[nodiscard]] int GetFieldTypeCount() const override { return m_rows; }

 protected:
  /// Copies the structure in; a null source, or the record's own storage, copies nothing.
  void CopyIn(const T* source) {
    if (source != nullptr && source != &m_record) {
      std::memcpy(&m_record, source, sizeof(T));
    }
  }

  T m_record{};

 private:
  unsigned char m_kind;
  const FieldDescriptor* m_table;
  int m_rows;
};
