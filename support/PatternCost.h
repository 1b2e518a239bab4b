#pragma once

#include <string_view>

/// What a regular expression asks of the C library, told by its text alone.
struct PatternCost {
  /// Compiling it would write its repetitions out to more elements than memory should hold, or to
  /// more ways through them than there is time for.
  bool isTooLarge;
  /// A match may take time that grows with a high power of the text's length.
  bool hasBackReference;
};

/// Judges an extended or a basic expression, be it a valid one or not.
[[nodiscard]] PatternCost CostOf(std::string_view pattern, bool isExtended);
