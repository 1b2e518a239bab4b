#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// The path of a control group as records show it: itself or, where it has more than `most` bytes,
/// "...", a number of 8 digits for the whole path, "..." and as much of its end as there is room
/// for, so that two paths stay two.
[[nodiscard]] std::string ShownGroupPath(std::string_view path, std::size_t most);
