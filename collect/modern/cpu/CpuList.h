#pragma once

#include <bitset>
#include <cstddef>
#include <string_view>

/// The most processors that a kernel numbers.
inline constexpr std::size_t kMostProcessors = 8192;
/// A bit for each processor's number.
using CpuSet = std::bitset<kMostProcessors>;

/// Sets the bits of a list as in /sys/devices/system/cpu/present: "0-3,5,8-11". A list without
/// numbers has none. False if the text is no such list or has a number beyond the last bit;
/// `processors` then holds what stood before.
[[nodiscard]] bool ParseCpuList(std::string_view text, CpuSet& processors);
