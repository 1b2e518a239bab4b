#pragma once

#include <cstddef>

/// Bytes of a file with a password, a token, a key or certificates; a longer one is a fault.
inline constexpr std::size_t kMostKeyFileBytes = 1'000'000;
