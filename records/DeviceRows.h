#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "collect/device/DeviceSourceLINUX.h"
#include "records/IntervalEngine.h"
#include "records/RecordStructures.h"
#include "support/TimeValues.h"

// What the records of devices have in common. Their counters may start again at any time, as when a
// driver is loaded anew: a difference that would be negative is zero, never a wrapped value.

/// The rows in ascending order, equal ones as they came; they stay the collector's.
[[nodiscard]] std::vector<const DeviceIO*> SortedDevices(const std::vector<DeviceIO>& devices);

/// The parts of a name like "dev8-1 sdb".
struct DeviceNameParts {
  std::uint32_t major = 0;
  std::string_view disk;  ///< the word after the numbers, a part of the name; may be empty
};
/// Nothing if the name does not begin with "dev" and two numbers.
[[nodiscard]] std::optional<DeviceNameParts> ParseDeviceName(std::string_view name);

/// The low 32 bits of `seconds`.
[[nodiscard]] tagUTIME WholeSeconds(std::uint64_t seconds);
/// current - previous, or 0 if negative.
[[nodiscard]] std::uint32_t CountDelta(std::uint32_t current, std::uint32_t previous);
/// 100 * part / whole; `whole` is not 0.
[[nodiscard]] float CountPercent(std::uint64_t part, std::uint64_t whole);
/// `busy` in per cent of `seconds`; 0 for no seconds.
[[nodiscard]] float BusyPercent(const tagUTIME& busy, std::uint32_t seconds);
/// Toward zero; a value that 32 bits do not hold is the nearest one that they do.
[[nodiscard]] std::uint32_t WholeMbytes(double mbytes);
/// Traces that the Mbytes of a device went backwards; at most once an hour in the whole process,
/// since a device that is reset seldom comes alone.
void TraceMbytesFell(double current, double previous);

/// Whether one of the fields lies below the other row's.
template <class Row, class Base, class Value, std::size_t N>
[[nodiscard]] bool AnyBelow(const Row& row, const Row& other,
                            const std::array<Packed<Value> Base::*, N>& fields) {
  return std::any_of(fields.begin(), fields.end(), [&](const auto field) {
    return static_cast<Value>(row.*field) < static_cast<Value>(other.*field);
  });
}

/// What a field has grown by since `base`, and never less than 0; all of it without a base.
template <class Row, class Base>
[[nodiscard]] std::uint32_t GrowthSince(const Row& row, const Base* base, Ulong Base::*count) {
  return CountDelta(row.*count, base == nullptr ? 0U : static_cast<std::uint32_t>(base->*count));
}
template <class Row, class Base>
[[nodiscard]] tagUTIME GrowthSince(const Row& row, const Base* base, Utime Base::*time) {
  return TimeGrowth(row.*time, base == nullptr ? tagUTIME{} : static_cast<tagUTIME>(base->*time));
}

/// The seconds that a row's percentages refer to: its interval, which of two rows without rates is
/// the time stamp.
template <class Row, class Base>
[[nodiscard]] std::uint32_t DerivedSeconds(const Row& row, const Base* base) {
  return row.interval - (base == nullptr ? 0U : static_cast<std::uint32_t>(base->interval));
}

/// Makes differences to `previous` of the fields of `row`, which holds current values.
template <class Row, class Base, class Value, std::size_t N>
void Subtract(Row& row, const Row& previous, const std::array<Packed<Value> Base::*, N>& fields) {
  for (const auto field : fields) {
    row.*field = static_cast<Value>(row.*field) - static_cast<Value>(previous.*field);
  }
}
template <class Row, class Base, std::size_t N>
void SubtractTimes(Row& row, const Row& previous, const std::array<Utime Base::*, N>& fields) {
  for (const auto field : fields) {
    row.*field = TimeGrowth(row.*field, previous.*field);
  }
}

template <class Row, class Base, class Value, std::size_t N>
void SetToZero(Row& row, const std::array<Packed<Value> Base::*, N>& fields) {
  for (const auto field : fields) {
    row.*field = Value{};
  }
}
