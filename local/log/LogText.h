#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

/// An empty text for null.
[[nodiscard]] inline const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

/// A message's text: %1 to %5 become the arguments, each taken as text; a placeholder without an
/// argument becomes nothing, any other '%' stands for itself. `format`, `args` and each argument
/// may be null. Control characters are still in it.
[[nodiscard]] std::string ExpandMessage(const char* format, int argCount, const char* const* args);

/// Adds the moment in local time, with its distance from UTC: "2031-05-07T09:12:44.031+02:00".
void AppendMoment(std::string& out, std::chrono::system_clock::time_point moment);

enum class LineEnds { kEscape, kKeep };

/// Adds text that is safe for a terminal: control characters (those of two bytes too) and bytes
/// that are no UTF-8 become "\n", "\r", "\t" or "\xNN". A backslash stays as it is.
void AppendHarmless(std::string& out, std::string_view text, LineEnds lineEnds);

/// Adds at most `maxBytes` (3 at least) of harmless text without line ends; "..." ends what was
/// cut. One line end at the end of the text is dropped.
void AppendLine(std::string& out, std::string_view text, std::size_t maxBytes);
