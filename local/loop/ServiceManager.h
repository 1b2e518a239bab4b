#pragma once

#include <chrono>
#include <string>

#include "io/LoopTimer.h"
#include "local/loop/EventLoop.h"

/// Tells the service manager how the daemon does: one datagram each to the socket that the
/// environment variable NOTIFY_SOCKET names. Without one nothing is sent. If WATCHDOG_USEC asks for
/// signs of life, one is sent twice in that time, each by a task of the loop: a loop that makes no
/// turn any more sends none.
class ServiceManager {
 public:
  /// Takes the variables out of the environment, so that no child process speaks for the daemon.
  explicit ServiceManager(EventLoop& loop);

  /// Whether one has started the daemon.
  [[nodiscard]] bool IsThere() const { return !m_socket.empty(); }
  /// The daemon serves from now on.
  void Ready();
  /// The daemon is about to end.
  void Stopping();

 private:
  void Send(const std::string& state) const;
  void WaitForNextSign(std::chrono::microseconds time);
  void PostSign();

  EventLoop& m_loop;
  LoopTimer m_timer;
  std::string m_socket;
  std::chrono::microseconds m_signPeriod{0};  ///< 0: no signs of life are asked for
};
