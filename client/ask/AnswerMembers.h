#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json/Json.h"

// The members of what the daemon answers, each checked: ClientError, naming the member, for one
// that is missing or of another kind.

[[noreturn]] void FailMember(const char* name, const char* expected);
/// The member; null if there is none.
[[nodiscard]] const Json& AnyMember(const Json& object, const char* name);
[[nodiscard]] std::string TextMember(const Json& object, const char* name);
[[nodiscard]] double NumberMember(const Json& object, const char* name);
[[nodiscard]] std::uint64_t CountMember(const Json& object, const char* name);
/// A whole number with or without a sign.
[[nodiscard]] std::int64_t WholeMember(const Json& object, const char* name);
[[nodiscard]] bool FlagMember(const Json& object, const char* name);
[[nodiscard]] const Json& ObjectMember(const Json& object, const char* name);
/// An array that has nothing but objects.
[[nodiscard]] const Json& ObjectsMember(const Json& object, const char* name);
[[nodiscard]] std::vector<std::string> TextsMember(const Json& object, const char* name);

/// Whether it is an array of texts alone.
[[nodiscard]] bool IsTexts(const Json& value);
/// The texts of such an array.
[[nodiscard]] std::vector<std::string> TextsOf(const Json& value);
/// Throws unless it is an object of plain values.
void CheckRow(const Json& row);
/// Throws unless the values of the rows, objects of an array, are plain ones.
void CheckRows(const Json& rows);
