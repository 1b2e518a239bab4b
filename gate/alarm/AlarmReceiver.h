#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "gate/alarm/Alarm.h"
#include "gate/send/SendRequest.h"
#include "support/TextHash.h"

/// What a receiver has been sent since it was made.
struct ReceiverFigures {
  std::string url;
  std::uint64_t sent = 0;      ///< begins and ends that it has taken, each once
  std::uint64_t failures = 0;  ///< requests that it has not
  std::uint64_t dropped = 0;   ///< alarms of which it has not been told, and never will be
};

/// What all receivers are made with.
struct AlarmReceiverSettings {
  std::string host;
  std::string link;  ///< an address that receivers may show; empty for none
  SendIdentity identity;
  /// Takes a line for the log.
  std::function<void(const std::string& text)> report;
  /// Called when figures, or what is owed, have changed.
  std::function<void()> onChange;
};

/// One who is told of alarms. For the loop's thread.
class AlarmReceiver {
 public:
  AlarmReceiver() = default;
  virtual ~AlarmReceiver() = default;
  AlarmReceiver(const AlarmReceiver&) = delete;
  AlarmReceiver& operator=(const AlarmReceiver&) = delete;

  /// An alarm has begun or ended; without `isNews` it was told so before, and is active.
  virtual void Take(const AlarmPtr& alarm, bool isNews) = 0;
  /// So many alarms have begun and ended of which nobody can tell it.
  virtual void Miss(std::uint64_t count) = 0;
  [[nodiscard]] virtual const ReceiverFigures& Figures() const = 0;
  /// What stands for its address where that may hold secrets; the same after a restart.
  [[nodiscard]] std::uint64_t Number() const { return TextHash(Figures().url); }
  /// Adds alarms whose news is still to be told.
  virtual void AddOwed(std::set<AlarmKey>& keys) const = 0;
};
