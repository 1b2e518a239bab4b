#include "local/GateRun.h"

#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <utility>

namespace {

constexpr ::mode_t kGateSocketMode = 0600;

/// The user that a gate of root's becomes.
struct GateUser {
  const char* name;
  ::uid_t id;
};

std::optional<GateUser> FindGateUser() {
  for (const char* name : {"qmtgate", "nobody"}) {
    if (const ::passwd* user = ::getpwnam(name); user != nullptr && user->pw_uid != 0) {
      return GateUser{name, user->pw_uid};
    }
  }
  return std::nullopt;
}

}  // namespace

void GateRun::Start(const std::string& program) {
  ControlSettings settings;
  settings.name = "gate.sock";
  settings.mode = kGateSocketMode;
  settings.rights = Rights::kRead;
  GateCommand command;
  command.program = program;
  command.arguments = {"--child", std::to_string(::getpid()), "--control",
                       settings.directory + '/' + settings.name};
  if (::geteuid() == 0) {
    const std::optional<GateUser> user = FindGateUser();
    if (!user) {
      m_report("There is no user qmtgate or nobody for qmt_gate: nothing is served by HTTP");
      return;
    }
    settings.owner = user->id;
    command.arguments.insert(command.arguments.end(), {"--user", user->name});
  }
  m_server = std::make_unique<ControlServer>(m_loop, m_operations, settings, m_report);
  std::string error;
  if (!m_server->Open(error)) {
    m_report(error + ": nothing is served by HTTP");
    return;
  }
  m_child = std::make_unique<GateChild>(m_loop, std::move(command), m_report);
  m_child->Start();
}

void GateRun::Terminate() {
  if (m_child != nullptr) {
    m_child->Terminate();
  }
  if (m_server != nullptr) {
    m_server->Close();
  }
}

void GateRun::Wait() {
  if (m_child != nullptr) {
    m_child->Wait();
  }
}
