#pragma once

#include <string_view>

/// What the page of a report brings with it, and the names by which a policy allows each.
struct PageParts {
  std::string_view script;
  std::string_view scriptHash;  ///< "sha256-" and base64
  std::string_view style;
  std::string_view styleHash;
};

/// What the program was built with. Its source is written by bundle.py.
[[nodiscard]] const PageParts& ReportPageParts();
