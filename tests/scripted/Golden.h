#pragma once

#include <cstddef>

#include "tests/support/Testing.h"

inline std::string HexOf(const unsigned char* bytes, std::size_t count) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4U];
    text += kDigits[bytes[i] & 15U];
  }
  return text;
}

/// Compares a row of `size` bytes with a table of its fields that was worked out by hand: label,
/// type, value, bytes and how the value comes about.
inline void ExpectGolden(const void* row, std::size_t size, const std::filesystem::path& table) {
  const auto* bytes = static_cast<const unsigned char*>(row);
  std::size_t offset = 0;
  std::ifstream in(table);
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::istringstream cells(line);
    std::string hex;
    for (int column = 0; column < 4; ++column) {
      std::getline(cells, hex, '\t');
    }
    const std::size_t width = hex.size() / 2;
    ASSERT_LE(offset + width, size) << line;
    EXPECT_EQ(HexOf(bytes + offset, width), hex) << line;
    offset += width;
  }
  EXPECT_EQ(offset, size);
}
