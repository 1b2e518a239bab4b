#pragma once

#include <string_view>

/// The weight that a header of choices, as Accept and Accept-Encoding are, gives to a name: 0 if it
/// does not name it. Hostile input.
[[nodiscard]] double WeightOf(std::string_view header, std::string_view name);
