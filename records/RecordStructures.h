#pragma once

#include <cstdint>
#include <type_traits>

#include "node/Packed.h"
#include "support/TimeValues.h"

// The structures of all records, from records/layout/*.def. A layout is a wire format: offsets,
// widths and order never change. `recordPI_XXX row{}` is all zero.

using Ushort = Packed<std::uint16_t>;
using Long = Packed<std::int32_t>;
using Ulong = Packed<std::uint32_t>;
using Float = Packed<float>;
using Double = Packed<double>;
/// Two 32-bit words: seconds, microseconds.
using Utime = Packed<tagUTIME>;
static_assert(sizeof(Utime) == 8);

#define BEGIN(structure, className, name, kind, bytes) struct structure {
#define FIELD(type, member, label, meaning, ...) type member;
// clang-format off
#define END() };
// clang-format on
#include "records/layout/All.def"

#define BEGIN(structure, className, name, kind, bytes)                    \
  static_assert(sizeof(structure) == (bytes) && alignof(structure) == 1); \
  static_assert(std::is_trivially_copyable_v<structure>);
#include "records/layout/All.def"
