#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/loop/EventLoop.h"
#include "node/Node.h"

/// The operations on the agent's settings: `config` shows the tree, `config_set` asks for a change.
/// Each is an event of the loop with a turn of its own. The agent makes the tree anew for each.
class ConfigQueries {
 public:
  explicit ConfigQueries(EventLoop& loop) : m_loop(loop) {}

  void Config(const std::shared_ptr<ControlRequest>& request);
  /// A change goes to the agent also when the client has gone meanwhile.
  void ConfigSet(const std::shared_ptr<ControlRequest>& request);

 private:
  EventLoop& m_loop;
};
