#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

/// Bounded list texts: a text that does not fit in its `size` bytes ends in '>'.

/// Adds ",item", or '>' where the item does not fit.
void AppendListItem(char* text, const char* item, std::size_t size);
/// Cuts at `size - 1` and puts '>' in place of the last `separator`.
void CutAt(char* text, std::size_t size, char separator);

/// Process number to parent process number.
using ParentMap = std::map<std::int32_t, std::int32_t>;
/// "<pid<parent<grandparent"; stops at 0, at an unknown process and at one that is its own parent.
void BuildParentChain(const ParentMap& processMap, std::int32_t pid, char* text, std::size_t size);
/// "pid pid pid " of the processes whose parent is `parent`.
void BuildChildList(const ParentMap& processMap, std::int32_t parent, char* text, std::size_t size);

/// The names of the bits of an `open` flag word, each followed by a blank but for "RSYNC".
void OpenFlagsText(int flags, char* buffer, std::size_t size);

/// '*' matches any run, '?' any one character, everything else itself. Bounded work: at most
/// pattern length times text length steps.
[[nodiscard]] bool WildcardMatch(const char* pattern, const char* text);
