#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

/// What the system answered to one question.
struct CallAnswer {
  long result = 0;    ///< what the call returned
  int code = 0;       ///< errno of a failure, else 0
  std::string bytes;  ///< what it filled in
};

/// Answers by the texts of their questions, as "stat /proc/1/ns/mnt".
using CallAnswers = std::map<std::string, CallAnswer, std::less<>>;

/// One line of the file of a sample's answers, with its newline.
[[nodiscard]] std::string CallLine(std::string_view question, const CallAnswer& answer);

/// Adds the answers of a whole file; of one question the first counts. Gives what is wrong, with
/// the line's number, or nothing.
[[nodiscard]] std::optional<std::string> TakeCallLines(std::string_view text, CallAnswers& answers);
