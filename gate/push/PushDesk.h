#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gate/push/PushTarget.h"

/// All servers that kept rows are pushed to. For the loop's thread.
class PushDesk {
 public:
  /// `desk` and `sender` outlive it. `state`: the folder of the cursors; without one a target
  /// begins anew with each start. Nothing is sent before the loop runs.
  PushDesk(DaemonDesk& desk, HttpSender& sender, const std::vector<TargetSettings>& targets,
           const std::string& state, const PushHooks& hooks, const PushPace& pace = {});

  /// The member `push` of the operation `gate`: an array, a target each.
  [[nodiscard]] Json Figures() const;

 private:
  std::vector<std::unique_ptr<PushTarget>> m_targets;
};
