#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "collect/network/InterfaceSourceLINUX.h"

// What the profile `modern` makes of an interface's figures; their counters are 64 bits wide, so
// one that is below its former value has begun again, and has not wrapped.

/// How far the counters have grown; one that fell counts 0.
[[nodiscard]] InterfaceCounters InterfaceGrowth(const InterfaceCounters& now,
                                                const InterfaceCounters& before);

InterfaceCounters& operator+=(InterfaceCounters& sum, const InterfaceCounters& more);

/// The counters of an interface under its name.
struct NamedCounters {
  std::array<char, 40> name{};
  InterfaceCounters counters;
};
/// The interfaces, ascending by name.
[[nodiscard]] std::vector<NamedCounters> CountersByName(std::span<const Interface> interfaces);

/// One word of a record's field of flags.
struct FlagWord {
  std::uint32_t bit;
  std::string_view word;
};
/// Words of flags, and the bits in which they are looked up.
struct FlagRules {
  std::span<const FlagWord> words;
  std::uint32_t (*shownBits)(std::uint32_t flags);
};
/// Words and their order are those of ip(8), which shows "NO-CARRIER" for an interface that is up
/// and not running, and "UP" without "RUNNING" for others.
extern const FlagRules kModernFlagRules;
