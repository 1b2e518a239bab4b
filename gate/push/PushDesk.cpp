#include "gate/push/PushDesk.h"

#include <algorithm>

namespace {

/// The name becomes part of a file's.
bool IsTargetName(const std::string& name) {
  constexpr std::size_t kLongest = 64;
  return !name.empty() && name.size() <= kLongest && std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_';
  });
}

}  // namespace

PushDesk::PushDesk(DaemonDesk& desk, HttpSender& sender, const std::vector<TargetSettings>& targets,
                   const std::string& state, const PushHooks& hooks, const PushPace& pace) {
  if (state.empty() && !targets.empty()) {
    hooks.report("there is no folder for states: pushes begin anew with each start");
  }
  for (const TargetSettings& target : targets) {
    if (!IsTargetName(target.name)) {
      hooks.report("push: \"" + target.name + "\" is no name of a target; it is left out");
      continue;
    }
    m_targets.push_back(std::make_unique<PushTarget>(desk, sender, target, state, hooks, pace));
    m_targets.back()->Start();
  }
}

Json PushDesk::Figures() const {
  Json figures = Json::Array();
  for (const auto& target : m_targets) {
    figures.PushBack(target->Figures());
  }
  return figures;
}
