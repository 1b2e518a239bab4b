#pragma once

#include <list>
#include <memory>
#include <string_view>

#include "gate/console/EventListener.h"
#include "gate/daemon/DaemonFollow.h"

/// "/api/1/events": what the schedules make, as they make it, and alarms that begin and end. One
/// question to the daemon for each of the two serves all readers; without a reader there is none. A
/// daemon that tells no alarms does not keep the rows from coming.
class EventDesk {
 public:
  static constexpr std::size_t kMostListeners = 32;
  static constexpr std::size_t kMostOfOneLogin = 8;

  explicit EventDesk(DaemonDesk& desk);
  ~EventDesk();
  EventDesk(const EventDesk&) = delete;
  EventDesk& operator=(const EventDesk&) = delete;

  void ShowArguments(bool isShown) { m_showsArguments = isShown; }
  /// Those who ask for a record that there is not get 404. A stream ends where its reader is known
  /// to be let in no longer: before it would be given anything, without what waits for it, and 15
  /// seconds later at most.
  void Serve(const std::shared_ptr<HttpExchange>& exchange, const EventReader& reader);
  [[nodiscard]] std::size_t Listeners() const { return m_listeners.size(); }

 private:
  void Begin(const std::shared_ptr<HttpExchange>& exchange, const EventReader& reader,
             EventQuery query);
  /// The reason why one more reader finds no place; empty if it does.
  [[nodiscard]] std::string WhyFull(const EventReader& reader) const;
  void Admit(const std::shared_ptr<HttpExchange>& exchange,
             const std::shared_ptr<EventListener>& listener,
             const std::shared_ptr<HttpStream>& stream);
  void Follow();
  void FollowAlarms();
  void OnAnswer(bool isGood);
  void OnDaemonGone();
  void GiveAll(const EventFrame& frame);
  void RemoveGone();
  /// The same with those whose readers have closed the connection, which no event has shown yet.
  void EndLeft();
  void KeepAlive();

  DaemonDesk& m_desk;
  bool m_showsArguments = true;
  std::list<std::shared_ptr<EventListener>> m_listeners;
  std::unique_ptr<DaemonFollow> m_follow;
  std::unique_ptr<DaemonFollow> m_alarms;
  bool m_isDaemonGone = false;
  bool m_isGivenUp = false;  ///< both are asked anew after a pause
  LoopTimer m_again;
  LoopTimer m_keepAlive;
};
