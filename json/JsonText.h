#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <streambuf>
#include <string>
#include <string_view>

#include "json/Json.h"

/// How much of a text ParseJson takes.
struct JsonLimits {
  /// Objects and arrays within each other. A tree of this depth is taken apart by recursion.
  std::size_t depth = 512;
  /// Members of an object, those of the same name counted too.
  std::size_t members = std::numeric_limits<std::size_t>::max();
};

enum class JsonFault { kNone, kSyntax, kTooDeep, kTooManyMembers };

/// What ParseJson found.
struct ParsedJson {
  Json value;  ///< null with a fault
  JsonFault fault = JsonFault::kNone;
  std::string words;  ///< what is wrong with the syntax; quotes what was read last, however long
};

/// The one value that `text` holds. Of members of one name the first gives the place, the last the
/// value. Bytes that are no UTF-8 and numbers beyond a double are faults of syntax.
[[nodiscard]] ParsedJson ParseJson(std::string_view text, const JsonLimits& limits = {});

/// Takes the rows of an object {..., "results": [{..., "rows": [ROW, ...]}, ...]} as they come.
struct JsonRowTaker {
  /// Rows of the result at `place` begin. `answer` and `result` have the members so far.
  std::function<void(const Json& answer, std::size_t place, const Json& result)> begin;
  std::function<void(Json row)> row;
};

/// The one value that `bytes` give up to their end, in which the arrays of rows are left empty:
/// each row goes to `taker` as soon as it is whole. What is thrown by either ends the parsing.
[[nodiscard]] ParsedJson ParseJsonRows(std::streambuf& bytes, const JsonLimits& limits,
                                       const JsonRowTaker& taker);

/// The value as text: in one line, or with `indent` blanks a level if that is not negative. Bytes
/// that are no UTF-8 become U+FFFD, numbers that are not finite null.
[[nodiscard]] std::string JsonText(const Json& value, int indent = -1);

/// `text` with U+FFFD for bytes that are no UTF-8.
[[nodiscard]] std::string ValidUtf8(std::string_view text);

/// Whether all names and texts in `value` are UTF-8.
[[nodiscard]] bool IsUtf8(const Json& value);
