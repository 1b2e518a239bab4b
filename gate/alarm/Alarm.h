#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "json/Json.h"

/// What alarms are told apart by, in the order of their begins: the daemon's numbers begin anew
/// with a new history.
struct AlarmKey {
  std::int64_t since = 0;  ///< its begin, in seconds since the epoch
  std::int64_t id = 0;

  friend auto operator<=>(const AlarmKey&, const AlarmKey&) = default;
};

/// An alarm as the daemon tells it. Times are seconds since the epoch.
struct Alarm {
  std::int64_t id = 0;
  std::string name;  ///< of its definition
  std::string severity;
  std::string record;
  std::string text;
  std::int64_t since = 0;
  std::int64_t until = 0;  ///< 0 while it is active
  Json told;               ///< all that the daemon has told, an object

  [[nodiscard]] bool IsActive() const { return until == 0; }
  [[nodiscard]] AlarmKey Key() const { return {since, id}; }
};
using AlarmPtr = std::shared_ptr<const Alarm>;
/// By their keys.
struct AlarmOrder {
  bool operator()(const AlarmPtr& left, const AlarmPtr& right) const {
    return left->Key() < right->Key();
  }
};

/// Null if it is none: without a number, a name or a begin.
[[nodiscard]] AlarmPtr ReadAlarm(const Json& told);
/// Those of a list, oldest first; what is none is left out.
[[nodiscard]] std::vector<AlarmPtr> ReadAlarms(const Json& list);
/// The same alarm as one that ended at `until`.
[[nodiscard]] AlarmPtr EndedAlarm(const Alarm& alarm, std::int64_t until);
