#pragma once

#include <memory>
#include <vector>

#include "local/loop/EventLoop.h"

/// Delivers events at their times and owns them until they are cancelled.
class EventTimers {
 public:
  explicit EventTimers(EventLoop& loop);
  ~EventTimers();
  EventTimers(const EventTimers&) = delete;
  EventTimers& operator=(const EventTimers&) = delete;

  /// Delivers first at `firstTime` (seconds since 1970, by the wall clock; at once if that is
  /// past), then `repeat` times more, one every `period` seconds by the monotonic clock; -1 is
  /// without end. A delivery that would come while the one before still waits is left out. 0, or
  /// EINVAL with the event not taken over: null, scheduled already, or repeated with a period
  /// below 1.
  [[nodiscard]] int Schedule(CMBEvent* event, long period, int repeat, long firstTime);
  /// The event is not delivered any more; it is destroyed, once no handler is running, or given
  /// back to the caller. 0 if it was scheduled; else 1, and the event is left alone.
  int Cancel(const CMBEvent* event, bool destroy);

 private:
  struct Entry;
  void OnDue(const std::shared_ptr<Entry>& entry);
  void PostEvent(const std::shared_ptr<Entry>& entry);
  void WaitForNext(const std::shared_ptr<Entry>& entry);
  [[nodiscard]] std::vector<std::shared_ptr<Entry>>::iterator Find(const CMBEvent* event);

  EventLoop& m_loop;
  std::vector<std::shared_ptr<Entry>> m_entries;
};
