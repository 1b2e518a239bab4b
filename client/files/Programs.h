#pragma once

#include <string>
#include <vector>

/// A program of the product, to be started by BecomeProgram: beside this one or in the folder
/// `folder` beside its folder, else where an installation has it, else its bare name, for PATH.
[[nodiscard]] std::string FindProgram(const std::string& name, const std::string& folder);

/// Becomes the program `words[0]` with the others as its arguments. Returns kExitUsage, with a
/// complaint that ends in `hint`, only if it can't be started.
[[nodiscard]] int BecomeProgram(std::vector<std::string> words, const std::string& hint = "");
