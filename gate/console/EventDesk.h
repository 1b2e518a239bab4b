#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "gate/console/EventListener.h"

/// "/api/1/events": what the schedules make, as they make it. One question to the daemon serves all
/// readers; without a reader there is none.
class EventDesk {
 public:
  static constexpr std::size_t kMostListeners = 32;

  explicit EventDesk(DaemonDesk& desk);
  ~EventDesk();
  EventDesk(const EventDesk&) = delete;
  EventDesk& operator=(const EventDesk&) = delete;

  void ShowArguments(bool isShown) { m_showsArguments = isShown; }
  /// Those who ask for a record that there is not get 404.
  void Serve(const std::shared_ptr<HttpExchange>& exchange);
  [[nodiscard]] std::size_t Listeners() const { return m_listeners.size(); }

 private:
  void Begin(const std::shared_ptr<HttpExchange>& exchange, EventQuery query);
  void Follow();
  void Take(std::string_view bytes);
  void TakeLine(std::string_view line);
  void OnDaemonGone();
  void GiveAll(const EventFrame& frame);
  void RemoveGone();
  void KeepAlive();

  DaemonDesk& m_desk;
  bool m_showsArguments = true;
  std::list<std::shared_ptr<EventListener>> m_listeners;
  std::unique_ptr<DaemonAsk> m_follow;
  std::string m_line;          ///< what has come of the next one
  bool m_isFollowing = false;  ///< the daemon has said yes
  bool m_isDaemonGone = false;
  bool m_isGivenUp = false;  ///< of m_follow nothing more is taken
  LoopTimer m_again;
  LoopTimer m_keepAlive;
};
