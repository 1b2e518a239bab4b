#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <span>
#include <string>

#include "node/LayoutRegistry.h"

/// Members stay in their order.
using Json = nlohmann::ordered_json;

/// One row as an object of label and value, in the layout's order. Whole numbers and floats are
/// numbers (a float with the digits that its own precision needs; not finite: null), texts end at
/// their first zero byte, a utime is decimal seconds. A field that lies outside `bytes`, or whose
/// width doesn't fit its type, is null.
[[nodiscard]] Json RowToJson(const RecordLayout& layout, std::span<const unsigned char> bytes);

/// The text of a value on one line; bytes that are no UTF-8 become U+FFFD.
[[nodiscard]] std::string JsonText(const Json& value);
