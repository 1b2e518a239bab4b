#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

/// A time value as records hold it: seconds and microseconds. Normal values have 0 to 999999
/// microseconds.
struct tagUTIME {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
};

/// A time value as sources hold it: seconds and nanoseconds.
struct tagNTIME {
  std::int32_t seconds = 0;
  std::int32_t nanoseconds = 0;
};

/// Kernel clock ticks a second: 100 on every platform served.
[[nodiscard]] constexpr std::uint32_t TicksPerSecond() { return 100; }
[[nodiscard]] tagUTIME TicksToUTIME(std::uint64_t ticks);
[[nodiscard]] tagNTIME TicksToNTIME(std::uint64_t ticks);
/// Nanoseconds are cut to whole microseconds.
[[nodiscard]] tagUTIME ToUTIME(const tagNTIME& value);

[[nodiscard]] bool operator==(const tagUTIME& a, const tagUTIME& b);
[[nodiscard]] bool operator<(const tagUTIME& a, const tagUTIME& b);
/// Sums and differences are taken in 64 bits and keep their low 32. A sum of exactly 1000000
/// microseconds stays as it is.
[[nodiscard]] tagUTIME operator+(const tagUTIME& a, const tagUTIME& b);
[[nodiscard]] tagUTIME operator-(const tagUTIME& a, const tagUTIME& b);
/// A divisor of 0 gives 0.
[[nodiscard]] tagUTIME operator/(const tagUTIME& a, double n);
[[nodiscard]] tagUTIME operator/(const tagUTIME& a, const tagUTIME& b);
[[nodiscard]] tagUTIME operator*(const tagUTIME& a, int n);
[[nodiscard]] tagUTIME operator*(const tagUTIME& a, float n);
[[nodiscard]] float ToFloat(const tagUTIME& a);

/// current - previous. A current value below the previous one counts as wrapped at 32 bits of clock
/// ticks and is traced at level 20.
[[nodiscard]] tagUTIME UTIMEDelta4Overflow(const tagUTIME& current, const tagUTIME& previous);

/// A point in time, or a length of time, with text forms.
class UtlTime {
 public:
  enum Mode : std::int16_t { kLocal = 1, kUtc = 2 };

  /// Now, local.
  UtlTime();
  UtlTime(std::int64_t seconds, std::int64_t nanoseconds, Mode mode = kLocal);
  UtlTime(std::int32_t seconds, std::int32_t nanoseconds, Mode mode = kLocal);
  UtlTime(const UtlTime& other);
  UtlTime& operator=(const UtlTime& other);
  ~UtlTime();

  UtlTime& operator+=(const UtlTime& other);
  UtlTime& operator-=(const UtlTime& other);
  UtlTime& operator*=(std::int64_t factor);
  /// A divisor of 0 gives 0.
  UtlTime& operator/=(std::int64_t divisor);
  [[nodiscard]] bool operator==(const UtlTime& other) const;
  [[nodiscard]] bool operator<(const UtlTime& other) const;
  [[nodiscard]] bool operator>(const UtlTime& other) const { return other < *this; }
  [[nodiscard]] bool operator<=(const UtlTime& other) const { return !(other < *this); }
  [[nodiscard]] bool operator>=(const UtlTime& other) const { return !(*this < other); }

  /// `part` as a percentage of this value; 0 if this value is zero.
  [[nodiscard]] float Percent(const UtlTime& part) const;

  [[nodiscard]] int GetYear() const;
  [[nodiscard]] int GetMonth() const;  ///< counted from 1
  [[nodiscard]] int GetDay() const;
  [[nodiscard]] int GetHour() const;
  [[nodiscard]] int GetMinute() const;
  [[nodiscard]] int GetSecond() const;
  /// The low 32 bits of the seconds.
  [[nodiscard]] std::int32_t GetSeconds() const;
  /// The nanoseconds divided by 1000.
  [[nodiscard]] std::int64_t GetMilliseconds() const;
  [[nodiscard]] std::int64_t Seconds() const { return m_seconds; }
  [[nodiscard]] std::int64_t Nanoseconds() const { return m_nanoseconds; }
  void SetMode(Mode mode) { m_mode = mode; }

  /// Format 1, "MM/DD/YYYY hh:mm:ss". The text lives until the object's next text form.
  const char* FormatDateTime();
  /// Format 2, "hhhh:mm:ss", a length of time; mode kUtc is the one for durations.
  const char* FormatDuration();

 private:
  std::int64_t m_seconds;
  std::int64_t m_nanoseconds;
  std::unique_ptr<std::string> m_text;
  Mode m_mode;
};
