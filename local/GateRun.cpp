#include "local/GateRun.h"

#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <utility>

#include "support/GateUsers.h"

namespace {

constexpr ::mode_t kGateSocketMode = 0600;

/// Nothing for root and for a user that there is not.
std::optional<::uid_t> UserNumber(const char* name) {
  const ::passwd* user = ::getpwnam(name);
  return user == nullptr || user->pw_uid == 0 ? std::nullopt : std::optional(user->pw_uid);
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
    const char* name = kGateUser;
    settings.owner = UserNumber(name);
    if (!settings.owner) {
      name = kOtherGateUser;
      settings.owner = UserNumber(name);
      m_report(settings.owner
                   ? "There is no user qmtgate: qmt_gate runs as nobody, whose other "
                     "programs may read what it reads and end it"
                   : "There is no user qmtgate or nobody for qmt_gate: nothing is served "
                     "by HTTP");
    }
    if (!settings.owner) {
      return;
    }
    command.arguments.insert(command.arguments.end(), {"--user", name});
  }
  m_user = settings.owner;
  m_server = std::make_unique<ControlServer>(m_loop, m_operations, settings, m_report);
  std::string error;
  if (!m_server->Open(error)) {
    m_report(error + ": nothing is served by HTTP");
    return;
  }
  m_child = std::make_unique<GateChild>(m_loop, std::move(command), m_report);
  m_child->Start();
}

void GateRun::Expect() { m_user = UserNumber(kGateUser); }

bool GateRun::IsGate(const PeerIdentity& peer) const {
  return (m_child != nullptr && m_child->IsOrWas(peer.process)) ||
         (m_user && peer.user == *m_user && peer.user != ::geteuid());
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
