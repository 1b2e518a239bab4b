#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"

// Single values of a row by their labels.

inline constexpr const char* kRecordTime = "Record Time";
/// The record of the host as a whole.
inline constexpr const char* kHostRecord = "PI";

/// When the row was made, in seconds since the epoch; 0 where it does not tell.
[[nodiscard]] inline std::int64_t RecordTimeOf(const Json& row) {
  const Json* time = row.Find(kRecordTime);
  return time != nullptr && time->IsWhole() ? time->Whole() : 0;
}

/// The number times `factor`; nothing where there is none.
[[nodiscard]] inline std::optional<double> FigureOf(const Json& row, const char* label,
                                                    double factor = 1) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsNumber() ? std::optional(value->Number() * factor)
                                               : std::nullopt;
}

/// The text; empty where there is none.
[[nodiscard]] inline std::string TextOf(const Json& row, const char* label) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsString() ? value->Text() : "";
}

/// The texts as an array.
[[nodiscard]] inline Json TextsJson(const std::vector<std::string>& texts) {
  Json array = Json::Array();
  for (const std::string& text : texts) {
    array.PushBack(text);
  }
  return array;
}
