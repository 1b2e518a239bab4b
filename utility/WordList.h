#pragma once

#include <span>
#include <string_view>

/// Appends a word to a list of words with commas between them, in a field of text that is always
/// terminated. A word that has no room is dropped, and the list then ends in ">": nothing more is
/// added to it.
void AppendWord(std::span<char> field, std::string_view word);
