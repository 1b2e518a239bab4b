#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

/// Places that are taken for a while, a few of them by one address.
class Places {
 public:
  Places(unsigned mostOfOne, std::size_t mostInAll)
      : m_mostOfOne(mostOfOne), m_mostInAll(mostInAll) {}

  [[nodiscard]] bool HasRoom(const std::string& key) const;
  /// Where there is room. Give() must follow.
  void Take(const std::string& key);
  void Give(const std::string& key);

 private:
  const unsigned m_mostOfOne;
  const std::size_t m_mostInAll;
  std::size_t m_taken = 0;
  std::unordered_map<std::string, unsigned> m_takenBy;
};

/// Who failed to log in, by address: how long it has to wait for its next answer, and what is told
/// of it. An address is forgotten after ten minutes without a failure.
class FailureTable {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Report = std::function<void(const std::string& text)>;

  /// `failuresBefore` is what Failures() begins with.
  explicit FailureTable(Report report, std::uint64_t failuresBefore = 0);

  /// What an address is known by: itself, of IPv6 its network of 64 bits, of IPv4 within IPv6 the
  /// one of IPv4.
  [[nodiscard]] static std::string KeyOf(std::string_view address);

  /// The time that a login from here has to wait before it is checked: none, or 0.2 s after a
  /// failure, doubling with each to 5 s, each login behind the one before. Nothing if too many wait
  /// already: 8 of an address, 256 in all, or for more than 10 s. Else Leave() must follow.
  [[nodiscard]] std::optional<std::chrono::milliseconds> Enter(const std::string& key,
                                                               TimePoint now);
  void Leave(const std::string& key);

  /// The same delay for the answer of a failure, whose check waited for nothing. They don't wait
  /// for one another. Zero without a failure before, and where too many are held back already: 8 of
  /// an address, 64 in all, as each keeps a connection. Else LeaveLate() must follow.
  [[nodiscard]] std::chrono::milliseconds EnterLate(const std::string& key, TimePoint now);
  void LeaveLate(const std::string& key);

  /// Counts a failure and tells of it, unless that was done for this address within the minute, or
  /// for 30 addresses within one. True if some are left to be told by TellRest() a minute later.
  bool Fail(const std::string& key, TimePoint now);
  /// Tells the number of those that were only counted; the result is as of Fail().
  bool TellRest(TimePoint now);

  /// Failures since the start, those before included.
  [[nodiscard]] std::uint64_t Failures() const { return m_failures; }

 private:
  struct Entry {
    unsigned failures = 0;
    std::uint64_t untold = 0;
    TimePoint last;      ///< when it failed last
    TimePoint free;      ///< when its last waiting login has its turn
    TimePoint nextLine;  ///< when it may be told of again
  };
  using Entries = std::unordered_map<std::string, Entry>;

  [[nodiscard]] std::chrono::milliseconds DelayAt(const std::string& key, TimePoint now) const;
  void ForgetOld(TimePoint now);
  void Forget(Entries::iterator entry);
  void Tell(const std::string& key, Entry& entry, TimePoint now);
  [[nodiscard]] bool MayTell(TimePoint now);

  const Report m_report;
  Entries m_entries;
  Places m_waiting;  ///< of logins that entered
  Places m_late;     ///< of answers that are held back
  std::uint64_t m_failures;
  std::uint64_t m_untoldOthers = 0;  ///< of addresses that are forgotten
  unsigned m_lines = 0;              ///< in the minute that ends at m_minuteEnd
  TimePoint m_minuteEnd;
};
