#pragma once

#include <memory>

#include "local/control/ControlRequest.h"
#include "local/loop/EventLoop.h"

/// The operation `report`: one of the reports that the agent publishes (node/ReportRegistry.h). It
/// waits its turn like a batch, since a report may collect.
class ReportQueries {
 public:
  explicit ReportQueries(EventLoop& loop) : m_loop(loop) {}

  void Report(const std::shared_ptr<ControlRequest>& request);

 private:
  EventLoop& m_loop;
};
