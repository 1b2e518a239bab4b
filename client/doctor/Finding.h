#pragma once

#include <optional>
#include <string>

/// What a check came to.
struct Finding {
  enum class Mark {
    kOk,
    kLook,  ///< works, but is seldom meant so, or could not be looked at
    kFail
  };

  Mark mark = Mark::kOk;
  std::string text;  ///< one line: what is so and, unless all is well, what to do
};

/// Nothing where there was nothing to look at.
using MaybeFinding = std::optional<Finding>;

[[nodiscard]] inline Finding Ok(std::string text) { return {Finding::Mark::kOk, std::move(text)}; }
[[nodiscard]] inline Finding Look(std::string text) {
  return {Finding::Mark::kLook, std::move(text)};
}
[[nodiscard]] inline Finding Fail(std::string text) {
  return {Finding::Mark::kFail, std::move(text)};
}
