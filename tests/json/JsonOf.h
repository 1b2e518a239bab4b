#pragma once

#include <ostream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "json/JsonText.h"

/// The value that `text` holds. Throws std::invalid_argument for one that is no JSON.
inline Json JsonOf(std::string_view text) {
  ParsedJson parsed = ParseJson(text);
  if (parsed.fault != JsonFault::kNone) {
    throw std::invalid_argument(parsed.words);
  }
  return std::move(parsed.value);
}

/// How a failed expectation shows a value.
inline std::ostream& operator<<(std::ostream& out, const Json& value) {
  return out << JsonText(value);
}
