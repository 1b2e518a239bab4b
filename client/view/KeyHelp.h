#pragma once

#include <span>

/// Keys of the view and what they do.
struct KeyHelp {
  const char* keys;
  const char* text;
};

/// All of them, in the order in which they are told; one without keys is a heading.
[[nodiscard]] std::span<const KeyHelp> AllKeyHelp();
