#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "node/LayoutRegistry.h"
#include "node/Record.h"

/// What the rows of one record are exposed as, where there is no end of them.
struct BoundedRows {
  std::vector<const CMBRecord*> kept;
  /// Those whose sum stands for all that is left out: a row below another one of these is within
  /// the other's figures already.
  std::vector<const CMBRecord*> summed;
  std::size_t leftOut = 0;
};

/// Of control groups at most 500 are kept, the root and those with the most memory; the key of what
/// is left out tells, by slashes, what lies below what. Rows of other records, and up to 500, are
/// all kept. The order stays.
[[nodiscard]] BoundedRows BoundRows(const RecordLayout& layout,
                                    std::span<const CMBRecord* const> rows);

/// Whether the sum of a field of such rows says something: not that of shares and of limits.
[[nodiscard]] bool IsSummed(const RecordLayout& layout, const FieldLayout& field);

/// Whether the rows of the record are bounded.
[[nodiscard]] bool IsBounded(const RecordLayout& layout);

/// The key of the sum.
inline constexpr const char* kSummedKey = "other";
