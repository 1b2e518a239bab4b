#include <array>
#include <cstdio>
#include <ctime>
#include <limits>

#include "support/OsCalls.h"
#include "support/TimeValues.h"

namespace {

// Wide enough for every sum of two times, and for a product up to where it is cut.
__extension__ using Wide = __int128;

constexpr std::int64_t kNanosPerSecond = 1000000000;

Wide Total(const UtlTime& value) {
  return Wide{value.Seconds()} * kNanosPerSecond + value.Nanoseconds();
}

/// Nanoseconds of 0 to 999999999; seconds beyond 64 bits are cut to the farthest value.
UtlTime FromTotal(Wide total, UtlTime::Mode mode) {
  Wide seconds = total / kNanosPerSecond;
  Wide nanos = total % kNanosPerSecond;
  if (nanos < 0) {
    --seconds;
    nanos += kNanosPerSecond;
  }
  using Limits = std::numeric_limits<std::int64_t>;
  if (seconds > Limits::max()) {
    return {Limits::max(), kNanosPerSecond - 1, mode};
  }
  if (seconds < Limits::min()) {
    return {Limits::min(), std::int64_t{0}, mode};
  }
  return {static_cast<std::int64_t>(seconds), static_cast<std::int64_t>(nanos), mode};
}

Wide Product(Wide total, std::int64_t factor) {
  Wide product = 0;
  if (!__builtin_mul_overflow(total, Wide{factor}, &product)) {
    return product;
  }
  constexpr Wide kFarthest = Wide{std::numeric_limits<std::int64_t>::max()} * kNanosPerSecond * 2;
  return (total < 0) == (factor < 0) ? kFarthest : -kFarthest;
}

std::tm BrokenDown(std::int64_t seconds, UtlTime::Mode mode) {
  const std::time_t moment = seconds;
  std::tm parts{};
  if (mode == UtlTime::kUtc) {
    ::gmtime_r(&moment, &parts);
  } else {
    ::localtime_r(&moment, &parts);
  }
  return parts;
}

/// ".5" for 500000000, empty for 0.
std::string Fraction(std::int64_t nanoseconds) {
  if (nanoseconds == 0) {
    return {};
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), ".%09lld", static_cast<long long>(nanoseconds));
  std::string fraction = text.data();
  fraction.erase(fraction.find_last_not_of('0') + 1);
  return fraction;
}

}  // namespace

UtlTime::UtlTime() : UtlTime(std::int64_t{0}, std::int64_t{0}) {
  struct ::timeval now {};
  if (Os().gettimeofday(&now) == 0) {
    m_seconds = now.tv_sec;
    m_nanoseconds = std::int64_t{now.tv_usec} * 1000;
  }
}

UtlTime::UtlTime(std::int64_t seconds, std::int64_t nanoseconds, Mode mode)
    : m_seconds(seconds), m_nanoseconds(nanoseconds), m_mode(mode) {}

UtlTime::UtlTime(std::int32_t seconds, std::int32_t nanoseconds, Mode mode)
    : UtlTime(std::int64_t{seconds}, std::int64_t{nanoseconds}, mode) {}

UtlTime::UtlTime(const UtlTime& other)
    : m_seconds(other.m_seconds), m_nanoseconds(other.m_nanoseconds), m_mode(other.m_mode) {}

UtlTime& UtlTime::operator=(const UtlTime& other) {
  m_seconds = other.m_seconds;
  m_nanoseconds = other.m_nanoseconds;
  m_mode = other.m_mode;
  return *this;
}

UtlTime::~UtlTime() = default;

UtlTime& UtlTime::operator+=(const UtlTime& other) {
  return *this = FromTotal(Total(*this) + Total(other), m_mode);
}

UtlTime& UtlTime::operator-=(const UtlTime& other) {
  return *this = FromTotal(Total(*this) - Total(other), m_mode);
}

UtlTime& UtlTime::operator*=(std::int64_t factor) {
  return *this = FromTotal(Product(Total(*this), factor), m_mode);
}

UtlTime& UtlTime::operator/=(std::int64_t divisor) {
  return *this = FromTotal(divisor == 0 ? Wide{0} : Total(*this) / divisor, m_mode);
}

bool UtlTime::operator==(const UtlTime& other) const {
  return m_seconds == other.m_seconds && m_nanoseconds == other.m_nanoseconds;
}

bool UtlTime::operator<(const UtlTime& other) const {
  return m_seconds != other.m_seconds ? m_seconds < other.m_seconds
                                      : m_nanoseconds < other.m_nanoseconds;
}

float UtlTime::Percent(const UtlTime& part) const {
  const auto whole = static_cast<long double>(Total(*this));
  if (whole == 0) {
    return 0;
  }
  return static_cast<float>(static_cast<long double>(Total(part)) * 100 / whole);
}

int UtlTime::GetYear() const { return BrokenDown(m_seconds, m_mode).tm_year + 1900; }
int UtlTime::GetMonth() const { return BrokenDown(m_seconds, m_mode).tm_mon + 1; }
int UtlTime::GetDay() const { return BrokenDown(m_seconds, m_mode).tm_mday; }
int UtlTime::GetHour() const { return BrokenDown(m_seconds, m_mode).tm_hour; }
int UtlTime::GetMinute() const { return BrokenDown(m_seconds, m_mode).tm_min; }
int UtlTime::GetSecond() const { return BrokenDown(m_seconds, m_mode).tm_sec; }

std::int32_t UtlTime::GetSeconds() const {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(m_seconds));
}

std::int64_t UtlTime::GetMilliseconds() const { return m_nanoseconds / 1000; }

const char* UtlTime::FormatDateTime() {
  const UtlTime value = FromTotal(Total(*this), m_mode);
  const std::tm parts = BrokenDown(value.Seconds(), m_mode);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%02d/%02d/%04d %02d:%02d:%02d", parts.tm_mon + 1,
                parts.tm_mday, parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
  m_text = std::make_unique<std::string>(text.data() + Fraction(value.Nanoseconds()));
  return m_text->c_str();
}

const char* UtlTime::FormatDuration() {
  const UtlTime value = FromTotal(Total(*this), m_mode);
  const std::tm parts = BrokenDown(value.Seconds(), m_mode);
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%04lld:%02d:%02d",
                static_cast<long long>(value.Seconds() / 3600), parts.tm_min, parts.tm_sec);
  m_text = std::make_unique<std::string>(text.data() + Fraction(value.Nanoseconds()));
  return m_text->c_str();
}
