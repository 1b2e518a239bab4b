#include "local/GateRun.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "support/Descriptor.h"
#include "support/GateUsers.h"

namespace {

constexpr ::mode_t kGateSocketMode = 0600;

constexpr const char* kStateFolder = "gate-state";
constexpr ::mode_t kStateMode = 0700;

/// Nothing for root and for a user that there is not.
std::optional<::uid_t> UserNumber(const char* name) {
  const ::passwd* user = ::getpwnam(name);
  return user == nullptr || user->pw_uid == 0 ? std::nullopt : std::optional(user->pw_uid);
}

/// Makes the folder that the gate may write to below the socket's, for the user that it becomes. A
/// link or a file in its place is none. False with `errno` set.
bool MakeStateFolder(const std::string& parent, std::optional<::uid_t> owner) {
  const Descriptor above(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!above.IsOpen() ||
      (::mkdirat(above.Get(), kStateFolder, kStateMode) != 0 && errno != EEXIST)) {
    return false;
  }
  const Descriptor folder(
      ::openat(above.Get(), kStateFolder, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder.IsOpen() && (!owner || ::fchown(folder.Get(), *owner, ::gid_t(-1)) == 0) &&
         ::fchmod(folder.Get(), kStateMode) == 0;
}

}  // namespace

void GateRun::Start(const std::string& program) {
  ControlSettings settings;
  settings.name = "gate.sock";
  settings.mode = kGateSocketMode;
  settings.rights = Rights::kRead;
  // Only the gate can connect.
  settings.areUsersBounded = false;
  settings.isGate = [this](const PeerIdentity& peer) { return IsGate(peer); };
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
  // Before the server is open the socket's folder may be anybody's.
  if (MakeStateFolder(settings.directory, settings.owner)) {
    command.arguments.insert(command.arguments.end(),
                             {"--state", settings.directory + '/' + kStateFolder});
  } else {
    m_report(settings.directory + '/' + kStateFolder + ": " + std::strerror(errno) +
             ": pushes begin anew with each start");
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
