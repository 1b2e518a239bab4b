#pragma once

#include <string_view>

/// The format that the header Accept prefers, as the daemon names it: "openmetrics" or "text".
[[nodiscard]] const char* PreferredFormat(std::string_view accept);
