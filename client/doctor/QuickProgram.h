#pragma once

#include <chrono>
#include <string>
#include <vector>

/// How a program ended that had a few seconds.
struct QuickResult {
  std::string fault;   ///< why it did not end by itself; empty if it did
  int exit = -1;       ///< its exit value; -1 if a signal ended it
  std::string output;  ///< the start of what it wrote to both of its outputs
};

/// Runs the program `words[0]`, looked for in PATH unless it has a slash, with the others as its
/// arguments, and ends it and what it has started once the time is over.
[[nodiscard]] QuickResult RunQuickly(std::vector<std::string> words,
                                     std::chrono::milliseconds limit = std::chrono::seconds(5));
