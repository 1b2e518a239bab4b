#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "gate/daemon/DaemonDesk.h"
#include "gate/http/HttpExchange.h"

/// The pages below "/api/1/" that answer once: each is a question of the control protocol, and the
/// daemon's line is the body.
class ApiPages {
 public:
  explicit ApiPages(DaemonDesk& desk) : m_desk(desk) {}

  /// Whether rows may hold the arguments of processes.
  void ShowArguments(bool isShown) { m_showsArguments = isShown; }
  /// `name` is the part of the path behind "/api/1/".
  void Serve(std::string_view name, const std::shared_ptr<HttpExchange>& exchange);

 private:
  DaemonDesk& m_desk;
  bool m_showsArguments = true;
};
