#pragma once

#include <cstddef>
#include <span>

#include "json/Json.h"
#include "node/LayoutRegistry.h"

/// One row as an object of label and value, in the layout's order. Whole numbers and floats are
/// numbers (a float with the digits that its own precision needs; not finite: null), texts end at
/// their first zero byte, a utime is decimal seconds. A field that lies outside `bytes`, or whose
/// width doesn't fit its type, is null.
[[nodiscard]] Json RowToJson(const RecordLayout& layout, std::span<const unsigned char> bytes);

/// The value of one field of a row as it stands there; null for a field without a source.
[[nodiscard]] Json FieldToJson(const FieldLayout& field, std::span<const unsigned char> bytes);
