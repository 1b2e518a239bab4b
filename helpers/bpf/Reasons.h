#pragma once

#include <string>

/// Why the kernel has not taken the program, in words that tell what to do: `error` is the errno of
/// the failure, which says little by itself, so what is known of the kernel is looked at.
[[nodiscard]] std::string WhyNotLoaded(int error);

/// How many processors the machine can have, if they are numbered from 0 without a gap; else 0.
/// Source: /sys/devices/system/cpu/possible.
[[nodiscard]] unsigned ProcessorsWithoutGap();
