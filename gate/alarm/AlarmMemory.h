#pragma once

#include <cstdint>
#include <map>
#include <string>

/// What was told of alarms, by their numbers, so that a gate that was away tells what it has missed
/// and nothing twice.
struct AlarmMemory {
  std::int64_t contact = 0;      ///< until when all is known, in seconds since the epoch; 0: never
  std::int64_t newest = 0;       ///< the greatest number
  std::int64_t newestSince = 0;  ///< the latest begin
  std::map<std::int64_t, std::int64_t> active;  ///< begins of those that are active, by number
  std::map<std::int64_t, std::int64_t> owed;    ///< the same of those whose news was not told yet

  /// Whether an alarm was never told. The daemon's numbers begin anew with a new history.
  [[nodiscard]] bool IsNew(std::int64_t id, std::int64_t since) const {
    return id > newest || since > newestSince || owed.contains(id);
  }
  /// An alarm is given to who tells it.
  void Note(std::int64_t id, std::int64_t since, bool isActive);

  friend bool operator==(const AlarmMemory&, const AlarmMemory&) = default;
};

/// What the file holds; nothing if it is none, or another's.
[[nodiscard]] AlarmMemory ReadAlarmMemory(const std::string& path);
/// What such a file holds.
[[nodiscard]] std::string AlarmMemoryText(const AlarmMemory& memory);
