#pragma once

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "local/history/HistoryTables.h"
#include "records/RecordLayouts.h"

/// A record of any layout that holds anything.
class AnyRecord : public CMBRecord {
 public:
  AnyRecord(const RecordLayout& layout, std::int32_t time, std::mt19937& random)
      : m_layout(layout), m_bytes(layout.size) {
    for (const FieldLayout& field : layout.fields) {
      if (std::string(field.label) == kTimeLabel) {
        Put(field, time);
      } else {
        Fill(field, random);
      }
    }
  }
  int operator==(const CMBRecord&) const override { return 0; }
  int operator<(const CMBRecord&) const override { return 0; }
  [[nodiscard]] const char* IsA() const override { return "any"; }
  [[nodiscard]] unsigned char GetDataType() const override { return m_layout.category; }
  [[nodiscard]] int GetRecSize() const override { return m_layout.size; }
  [[nodiscard]] const void* GetRecStart() const override { return m_bytes.data(); }
  [[nodiscard]] const char* GetRecType() const override { return m_layout.name; }
  [[nodiscard]] const FieldDescriptor* GetFieldTypeArray() const override { return nullptr; }
  [[nodiscard]] int GetFieldTypeCount() const override { return 0; }

 private:
  template <class T>
  void Put(const FieldLayout& field, T value) {
    std::memcpy(m_bytes.data() + field.offset, &value, sizeof value);
  }
  void Fill(const FieldLayout& field, std::mt19937& random) {
    const double scale = std::pow(10.0, static_cast<int>(random() % 24) - 8);
    const double real = random() % 8 == 0 ? std::numeric_limits<double>::quiet_NaN()
                                          : static_cast<double>(random()) / 7e9 * scale;
    switch (field.type) {
      case FieldType::kText:
        for (std::size_t i = 0; i < field.width; ++i) {
          static constexpr std::string_view kLetters("//ab\"\\\n\xff\xc3\xa4\0", 11);
          m_bytes[field.offset + i] =
              static_cast<unsigned char>(kLetters[random() % kLetters.size()]);
        }
        break;
      case FieldType::kUshort:
        Put(field, static_cast<std::uint16_t>(random()));
        break;
      case FieldType::kLong:
      case FieldType::kUlong:
        Put(field, static_cast<std::uint32_t>(random()));
        break;
      case FieldType::kFloat:
        Put(field, static_cast<float>(real));
        break;
      case FieldType::kDouble:
        Put(field, real);
        break;
      case FieldType::kUtime:
        Put(field, random() % 1'000'000 << 32U | random() % 2'000'000'000);
        break;
    }
  }

  const RecordLayout& m_layout;
  std::vector<unsigned char> m_bytes;
};
