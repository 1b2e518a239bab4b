#include "support/TimeValues.h"

#include <cmath>

#include "support/TraceLog.h"

namespace {

constexpr std::int64_t kMicrosPerSecond = 1000000;
constexpr std::int64_t kNanosOfSecond = 1000000000;

std::int32_t Low32(std::int64_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

double ToDouble(const tagUTIME& value) {
  return value.seconds + value.microseconds / static_cast<double>(kMicrosPerSecond);
}

/// The whole part and the rest, both cut; a value that no 64-bit number holds gives 0.
tagUTIME Split(double value) {
  constexpr double kLimit = 9.2e18;
  if (!(std::fabs(value) < kLimit)) {
    return {};
  }
  const double whole = std::trunc(value);
  const double rest = (value - whole) * static_cast<double>(kMicrosPerSecond);
  return {Low32(static_cast<std::int64_t>(whole)), static_cast<std::int32_t>(rest)};
}

std::string PairText(const tagUTIME& value) {
  return std::to_string(value.seconds) + '.' + std::to_string(value.microseconds);
}

}  // namespace

tagUTIME TicksToUTIME(std::uint64_t ticks) {
  constexpr std::uint64_t kHz = TicksPerSecond();
  return {Low32(static_cast<std::int64_t>(ticks / kHz)),
          static_cast<std::int32_t>(ticks % kHz * (kMicrosPerSecond / kHz))};
}

tagNTIME TicksToNTIME(std::uint64_t ticks) {
  constexpr std::uint64_t kHz = TicksPerSecond();
  return {Low32(static_cast<std::int64_t>(ticks / kHz)),
          static_cast<std::int32_t>(ticks % kHz * (kNanosOfSecond / kHz))};
}

tagUTIME ToUTIME(const tagNTIME& value) { return {value.seconds, value.nanoseconds / 1000}; }

bool operator==(const tagUTIME& a, const tagUTIME& b) {
  return a.seconds == b.seconds && a.microseconds == b.microseconds;
}

bool operator<(const tagUTIME& a, const tagUTIME& b) {
  return a.seconds != b.seconds ? a.seconds < b.seconds : a.microseconds < b.microseconds;
}

tagUTIME operator+(const tagUTIME& a, const tagUTIME& b) {
  std::int64_t seconds = std::int64_t{a.seconds} + b.seconds;
  std::int64_t micros = std::int64_t{a.microseconds} + b.microseconds;
  if (micros > kMicrosPerSecond) {
    ++seconds;
    micros -= kMicrosPerSecond;
  }
  return {Low32(seconds), Low32(micros)};
}

tagUTIME operator-(const tagUTIME& a, const tagUTIME& b) {
  std::int64_t seconds = std::int64_t{a.seconds} - b.seconds;
  std::int64_t micros = std::int64_t{a.microseconds} - b.microseconds;
  if (micros < 0) {
    --seconds;
    micros += kMicrosPerSecond;
  }
  return {Low32(seconds), Low32(micros)};
}

tagUTIME operator/(const tagUTIME& a, double n) {
  return n == 0.0 ? tagUTIME{} : Split(ToDouble(a) / n);
}

tagUTIME operator/(const tagUTIME& a, const tagUTIME& b) { return a / ToDouble(b); }

tagUTIME operator*(const tagUTIME& a, int n) { return Split(ToDouble(a) * n); }
tagUTIME operator*(const tagUTIME& a, float n) {
  return Split(ToDouble(a) * static_cast<double>(n));
}

float ToFloat(const tagUTIME& a) { return static_cast<float>(ToDouble(a)); }

tagUTIME UTIMEDelta4Overflow(const tagUTIME& current, const tagUTIME& previous) {
  if (!(current < previous)) {
    return current - previous;
  }
  if (IsTraced(20)) {
    Trace(20, kWarning,
          "There is a possibility that overflow occurred. (%1). (Current=%2, Previous=%3).",
          "UTIMEDelta4Overflow", PairText(current), PairText(previous));
  }
  static const tagUTIME wrap = TicksToUTIME(0xFFFFFFFF);
  return (current + wrap) - previous;
}
