#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "gate/alarm/Alarm.h"

/// What was told of alarms, so that a gate that was away tells what it has missed
/// and, but for want of memory, nothing twice.
struct AlarmMemory {
  std::int64_t contact = 0;      ///< until when all is known, in seconds since the epoch; 0: never
  std::int64_t newest = 0;       ///< the greatest number
  std::int64_t newestSince = 0;  ///< the latest begin
  std::set<AlarmKey> active;
  /// Those whose news was not told yet, and the receivers that lack it, as they are numbered by
  /// AlarmReceiver::Number(); no number stands for all of them.
  std::map<AlarmKey, std::set<std::uint64_t>> owed;

  /// Whether an alarm was never told. One with a number of before and a begin ahead of the clock
  /// was, while that was wrong.
  [[nodiscard]] bool IsNew(const AlarmKey& key, std::int64_t now) const {
    return IsNewToAll(key, now) || owed.contains(key);
  }
  /// The same, but for what is owed.
  [[nodiscard]] bool IsNewToAll(const AlarmKey& key, std::int64_t now) const {
    return key.id > newest || IsLater(key, now);
  }
  [[nodiscard]] bool IsOwedTo(std::uint64_t receiver, const AlarmKey& key) const {
    const auto place = owed.find(key);
    return place != owed.end() && (place->second.empty() || place->second.contains(receiver));
  }
  /// Notes that one of `receivers` lacks the news of some alarms.
  void AddOwed(std::uint64_t receiver, const std::set<AlarmKey>& keys, std::size_t receivers);
  /// Whether an alarm began after all that were told; with a number of before it is one of a new
  /// history then.
  [[nodiscard]] bool IsLater(const AlarmKey& key, std::int64_t now) const {
    return key.since > newestSince && key.since <= now;
  }
  /// Takes over from `other` what is new, but for what is owed.
  void MeasureAs(const AlarmMemory& other) {
    newest = other.newest;
    newestSince = other.newestSince;
  }
  /// What is ahead of the clock was told while that was wrong, and would keep alarms of a new
  /// history, with numbers from 1, from being new: it goes back to now.
  void BoundBy(std::int64_t now);
  /// An alarm is given to who tells it.
  void Note(const Alarm& alarm);

  friend bool operator==(const AlarmMemory&, const AlarmMemory&) = default;
};

/// Bytes of the file of a memory. The daemon has at most 500 definitions with 1000 alarms each that
/// are active, and a key takes 56 bytes at most: there is room for the owed ends of receivers, too.
inline constexpr std::size_t kMostMemoryBytes = std::size_t{32} << 20;

/// What the file holds; nothing if there is none, and nothing with the reason in `error` if it
/// can't be used. Throws PassingAccessError.
[[nodiscard]] AlarmMemory ReadAlarmMemory(const std::string& path, std::string& error);
/// What such a file holds.
[[nodiscard]] std::string AlarmMemoryText(const AlarmMemory& memory);
