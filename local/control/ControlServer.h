#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "io/LoopTimer.h"
#include "local/control/ControlConnection.h"

struct ControlSettings {
  /// Relative to the working directory, so that a long root fits into a socket's name. The folder
  /// is made if it is missing; its parent is not.
  std::string directory = "run";
  std::string name = "control.sock";
  ::mode_t mode = 0660;
  /// Who the socket is given to; nothing: who makes it. Root gives it away only in a folder that
  /// belongs to root and that nobody else may write to.
  std::optional<::uid_t> owner;
  /// What everybody may do who can connect; nothing: what the peer's credentials tell.
  std::optional<Rights> rights;
  /// Whether a peer is the gate, which may read at the most, whoever's it is.
  std::function<bool(const PeerIdentity& peer)> isGate = [](const PeerIdentity&) { return false; };
  std::size_t maxOutput = std::size_t{64} << 20;  ///< bytes that may wait for all clients together
  std::size_t maxConnections = 64;
  /// Whether others than root and the daemon's own user may have three quarters of these together,
  /// and each of them a half, so that nobody keeps those two out, nor a user all other ones.
  bool areUsersBounded = true;
  /// A client that takes less than a piece of what it is sent in this time is dropped.
  std::chrono::milliseconds patience = std::chrono::minutes(5);
};

/// A Unix socket through which others talk to the daemon. Who may connect at all is decided by the
/// socket's mode, owner and group, what a peer may do by its credentials or the settings.
class ControlServer {
 public:
  ControlServer(EventLoop& loop, ControlOperations& operations, ControlSettings settings,
                ProblemReport report);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  /// Listens; clients are served as soon as the loop runs. A socket that a former process left is
  /// replaced. False, with path and reason in `error`, if there is no listening.
  [[nodiscard]] bool Open(std::string& error);
  /// Gives clients up to a second to take what waits for them, ends all connections and removes the
  /// socket. Harmless if nothing is open.
  void Close();

 private:
  struct Listener;

  [[nodiscard]] bool PrepareFolder(std::string& error) const;
  void Listen();
  void GiveAway() const;
  void Accept();
  void AcceptNext();
  void AcceptOne();
  void OnAccepted(std::unique_ptr<ControlConnection::Socket> socket);
  /// Why this peer can't be served besides; empty if it can.
  [[nodiscard]] std::string WhyFull(const PeerIdentity& peer) const;
  void Refuse(int descriptor, const std::string& why) const;
  [[nodiscard]] gid_t SocketGroup() const;

  ControlSettings m_settings;
  std::string m_path;
  EventLoop& m_loop;
  OutputBudget m_budget;
  ControlConnection::Surroundings m_surroundings;
  std::unique_ptr<Listener> m_listener;
  LoopTimer m_pause;
  std::set<std::shared_ptr<ControlConnection>> m_connections;
};
