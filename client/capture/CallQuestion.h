#pragma once

#include <string>
#include <string_view>

#include "client/capture/TextMask.h"

// The questions and answers in calls.jsonl of a capture, see docs/captures.md.

/// A question without its coding by % and digits; as it is where that is none.
[[nodiscard]] std::string PlainQuestion(std::string_view coded);
[[nodiscard]] std::string CodedQuestion(std::string_view plain);
/// The absolute path that a plain question asks about; empty if it asks about none.
[[nodiscard]] std::string PathOfQuestion(std::string_view plain);
/// The answer to "list" with its names masked.
[[nodiscard]] std::string MaskList(std::string_view answer, const TextMask& mask);
