#pragma once

#include <cstdint>

namespace motion {

/// Writes the host's files anew for this second since the boot. Models of them stand below the
/// folder QMT_MOTION_MODELS, at their places below the host's root; in a model `{BASE RATE BITS}`
/// stands for the counter BASE + RATE * (seconds since the start) of so many bits. The rate is a
/// whole number. Nothing happens without that variable, or where the second is the last one's.
void MoveHost(std::int64_t second);

}  // namespace motion
