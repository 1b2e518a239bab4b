#pragma once

#include <string>

/// Longest path that GetFilePath yields.
constexpr std::size_t kMaxFilePath = 4095;

/// The full path of a file that the configuration names, cut to kMaxFilePath characters. A name
/// without '/' and a relative path stand below `base`; an absolute one stays as it is. A path with
/// "./" in it is resolved from the working directory, which is left for a moment; where that fails
/// it stands below `base`, without a leading "./", or stays as it is if it is absolute.
[[nodiscard]] std::string GetFilePath(const std::string& base, const std::string& path);

/// The text without leading white space; a terminator is written after its last other character.
/// Null for null.
[[nodiscard]] char* TrimBlanks(char* text);
