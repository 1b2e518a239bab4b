#include "collect/MajorTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace {

struct MajorRange {
  std::uint8_t first;
  std::uint8_t last;
  std::uint8_t entry;
};
using Row = std::array<std::uint8_t, MajorTable::kMajors>;
/// By kernel variant - 1.
using Table = std::array<Row, 3>;

constexpr MajorRange kNewest[] = {
    {1, 2, 1},     {3, 3, 64},     {4, 4, 1},      {7, 7, 1},      {8, 8, 16},     {9, 9, 1},
    {11, 12, 1},   {13, 14, 64},   {15, 20, 1},    {21, 22, 64},   {23, 27, 1},    {28, 28, 16},
    {29, 32, 1},   {33, 34, 64},   {35, 35, 1},    {36, 36, 64},   {37, 37, 1},    {40, 41, 1},
    {43, 43, 1},   {44, 45, 16},   {46, 47, 1},    {48, 55, 8},    {56, 57, 64},   {58, 59, 1},
    {64, 64, 1},   {65, 87, 16},   {88, 91, 64},   {92, 92, 1},    {93, 93, 16},   {94, 94, 4},
    {96, 96, 16},  {97, 99, 1},    {101, 102, 16}, {103, 103, 1},  {104, 111, 16}, {112, 112, 8},
    {113, 113, 1}, {114, 114, 16}, {115, 115, 1},  {116, 116, 16}, {117, 117, 1},  {128, 135, 16},
    {136, 143, 8}, {144, 147, 1},  {152, 152, 1},  {153, 153, 16}, {160, 161, 32}, {180, 180, 8},
    {199, 199, 1}, {201, 201, 1},
};
/// What kernel variant 2 has otherwise than variant 3.
constexpr MajorRange kMiddle[] = {
    {4, 4, 0},     {94, 94, 0},   {95, 95, 4},   {96, 96, 1},
    {147, 147, 0}, {153, 153, 0}, {160, 161, 0}, {180, 180, 0},
};
/// What kernel variant 1 has otherwise than variant 2.
constexpr MajorRange kOldest[] = {
    {64, 64, 0}, {94, 94, 4}, {95, 95, 1}, {96, 96, 0}, {114, 117, 0}, {128, 146, 0}, {152, 152, 0},
};

void Apply(std::span<const MajorRange> ranges, Row& row) {
  for (const MajorRange& range : ranges) {
    std::fill(row.begin() + range.first, row.begin() + range.last + 1, range.entry);
  }
}

Table Expand() {
  Table table{};
  Apply(kNewest, table[2]);
  table[1] = table[2];
  Apply(kMiddle, table[1]);
  table[0] = table[1];
  Apply(kOldest, table[0]);
  return table;
}

}  // namespace

int MajorTable::Entry(int kernelVariant, std::int64_t major) {
  static const Table table = Expand();
  if (kernelVariant < 1 || kernelVariant > static_cast<int>(table.size()) || major < 0 ||
      major >= kMajors) {
    return 0;
  }
  return table[static_cast<std::size_t>(kernelVariant - 1)][static_cast<std::size_t>(major)];
}
