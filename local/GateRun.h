#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "local/GateChild.h"
#include "local/control/ControlServer.h"

/// The gate as the daemon's own child, with a control socket for it alone on which it may read and
/// no more, and a folder that it may write to, both below `run`. Where the daemon is root's, they
/// belong to the user that the gate becomes.
/// Knows a gate at any socket, whoever has started it.
class GateRun {
 public:
  GateRun(EventLoop& loop, ControlOperations& operations, ProblemReport report)
      : m_loop(loop), m_operations(operations), m_report(std::move(report)) {}

  /// Opens run/gate.sock and starts `program` on it. What fails is reported; there is no gate then.
  void Start(const std::string& program);
  /// Somebody else starts the gate, as the user made for it.
  void Expect();
  /// Whether the peer is the gate: the child, or the user made for the gate, unless that is the
  /// daemon's own.
  [[nodiscard]] bool IsGate(const PeerIdentity& peer) const;
  /// Asks the child to end and closes the socket. Harmless if there is none.
  void Terminate();
  /// Waits for the end, see GateChild.
  void Wait();

 private:
  EventLoop& m_loop;
  ControlOperations& m_operations;
  ProblemReport m_report;
  std::unique_ptr<ControlServer> m_server;
  std::unique_ptr<GateChild> m_child;
  std::optional<::uid_t> m_user;  ///< whose processes are the gate
};
