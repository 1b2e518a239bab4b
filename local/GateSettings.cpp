#include "local/GateSettings.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace {

constexpr const char* kChildState = "run/gate-state";
constexpr const char* kUnitState = "/var/lib/qmtgate";

std::string AbsolutePath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::absolute(path, error);
  return path.empty() || error ? path : whole.string();
}

/// Where the gate may write; empty where there is none.
std::string StateFolder(GateMode mode) {
  return mode == GateMode::kChild  ? AbsolutePath(kChildState)
         : mode == GateMode::kUnit ? kUnitState
                                   : "";
}

}  // namespace

GateFacts GateFactsOf(const HttpSettings& http, const std::vector<PushTarget>& targets,
                      const AlarmSettings& alarms) {
  GateFacts facts;
  facts.mode = GateModeName(http.gate);
  facts.listen = http.listen;
  facts.names = http.names;
  facts.certificate = AbsolutePath(http.certificate);
  facts.key = AbsolutePath(http.key);
  facts.users = AbsolutePath(http.users);
  facts.tokens = AbsolutePath(http.tokens);
  facts.arguments = http.arguments;
  facts.state = StateFolder(http.gate);
  for (const PushTarget& target : targets) {
    facts.push.PushBack(PushJson(target.settings, target.records, AbsolutePath));
  }
  facts.alarms = AlarmReceiversJson(alarms, AbsolutePath);
  return facts;
}
