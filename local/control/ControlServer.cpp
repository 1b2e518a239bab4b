#include "local/control/ControlServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <asio/error.hpp>
#include <cerrno>
#include <chrono>
#include <new>
#include <system_error>
#include <utility>

#include "io/WaitRoom.h"
#include "json/JsonText.h"
#include "local/control/ControlSocket.h"
#include "support/Descriptor.h"
#include "support/NarrowUmask.h"

namespace {

using Protocol = asio::local::stream_protocol;

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kOthersWrite = 022;
constexpr std::chrono::seconds kFlushTime{1};
constexpr std::chrono::seconds kAcceptPause{1};

std::string Reason(int error) { return std::generic_category().message(error); }

void SetCloseOnExec(int descriptor) { ::fcntl(descriptor, F_SETFD, FD_CLOEXEC); }

/// Whether the folder is this user's, and no one else may write there.
bool IsOwnFolder(const struct stat& status) {
  return S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
         (status.st_mode & kOthersWrite) == 0;
}

}  // namespace

struct ControlServer::Listener {
  explicit Listener(asio::io_context& io) : acceptor(io) {}

  Protocol::acceptor acceptor;
  std::shared_ptr<WaitRoom> room = std::make_shared<WaitRoom>();
};

ControlServer::ControlServer(EventLoop& loop, ControlOperations& operations,
                             ControlSettings settings, ProblemReport report)
    : m_settings(std::move(settings)),
      m_path(m_settings.directory + "/" + m_settings.name),
      m_loop(loop),
      m_budget{m_settings.maxOutput},
      m_surroundings{loop,
                     operations,
                     m_budget,
                     std::move(report),
                     m_settings.patience,
                     [this](ControlConnection& connection) {
                       m_connections.erase(connection.shared_from_this());
                     }},
      m_listener(std::make_unique<Listener>(loop.Io())),
      m_pause(loop) {}

ControlServer::~ControlServer() { Close(); }

bool ControlServer::PrepareFolder(std::string& error) const {
  if (::mkdir(m_settings.directory.c_str(), kFolderMode) != 0 && errno != EEXIST) {
    error = m_settings.directory + ": " + Reason(errno);
    return false;
  }
  struct stat status {};
  if (m_settings.owner && ::geteuid() == 0 &&
      (::lstat(m_settings.directory.c_str(), &status) != 0 || !IsOwnFolder(status))) {
    error = m_settings.directory + ": does not belong to root alone";
    return false;
  }
  if (::lstat(m_path.c_str(), &status) != 0) {
    return true;
  }
  if (!S_ISSOCK(status.st_mode)) {
    error = m_path + ": there is a file of that name that is no socket";
    return false;
  }
  if (::unlink(m_path.c_str()) != 0) {
    error = m_path + ": " + Reason(errno);
    return false;
  }
  return true;
}

bool ControlServer::Open(std::string& error) {
  if (!PrepareFolder(error)) {
    return false;
  }
  try {
    Listen();
  } catch (const std::system_error& problem) {
    asio::error_code ignored;
    m_listener->acceptor.close(ignored);
    error = m_path + ": " + problem.code().message();
    return false;
  }
  Accept();
  return true;
}

void ControlServer::Listen() {
  Protocol::acceptor& acceptor = m_listener->acceptor;
  acceptor.open();
  SetCloseOnExec(acceptor.native_handle());
  {
    const NarrowUmask narrow(m_settings.mode);
    acceptor.bind(Protocol::endpoint(m_path));
  }
  if (m_settings.owner) {
    GiveAway();
  }
  acceptor.listen();
  // A client that has gone is not waited for.
  acceptor.non_blocking(true);
}

void ControlServer::GiveAway() const {
  // By the folder itself: its name may mean another one by now.
  const Descriptor folder(
      ::open(m_settings.directory.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder.IsOpen() || ::fstat(folder.Get(), &status) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
  if (!IsOwnFolder(status)) {
    throw std::system_error(EPERM, std::generic_category());
  }
  if (::fchownat(folder.Get(), m_settings.name.c_str(), *m_settings.owner, ::gid_t(-1),
                 AT_SYMLINK_NOFOLLOW) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
}

void ControlServer::Accept() {
  try {
    AcceptNext();
  } catch (const std::bad_alloc&) {
    m_pause.After(kAcceptPause, [this] { Accept(); });
  }
}

void ControlServer::AcceptNext() {
  m_listener->acceptor.async_wait(
      Protocol::acceptor::wait_read, InRoom(m_listener->room, [this](asio::error_code error) {
        if (error != asio::error::operation_aborted && m_listener->acceptor.is_open()) {
          AcceptOne();
        }
      }));
}

void ControlServer::AcceptOne() {
  Protocol::socket socket(m_loop.Io());
  asio::error_code error;
  try {
    m_listener->acceptor.accept(socket, error);
  } catch (const std::bad_alloc&) {
    // This client has been let go of; the next one is to be heard.
    Accept();
    throw;
  }
  const bool isPassing = error == asio::error::would_block || error == asio::error::interrupted ||
                         error == asio::error::connection_aborted;
  if (error && !isPassing) {
    // Out of descriptors, most likely: asking again at once would only spin.
    m_pause.After(kAcceptPause, [this] { Accept(); });
    m_surroundings.report(m_path + ": no client can be accepted: " + error.message());
    return;
  }
  Accept();
  if (!error) {
    OnAccepted(std::make_unique<ControlConnection::Socket>(std::move(socket)));
  }
}

void ControlServer::OnAccepted(std::unique_ptr<ControlConnection::Socket> socket) {
  const int descriptor = socket->stream.native_handle();
  SetCloseOnExec(descriptor);
  PeerIdentity peer;
  if (!ReadPeerIdentity(descriptor, peer)) {
    return;
  }
  if (const std::string why = WhyFull(peer); !why.empty()) {
    Refuse(descriptor, why);
    return;
  }
  Rights rights =
      m_settings.rights ? *m_settings.rights : RightsOf(peer, ::geteuid(), SocketGroup());
  const bool isGate = m_settings.isGate(peer);
  if (isGate) {
    rights = std::min(rights, Rights::kRead);
  }
  const auto connection = std::make_shared<ControlConnection>(m_surroundings, std::move(socket),
                                                              std::move(peer), rights, isGate);
  m_connections.insert(connection);
  try {
    connection->Start();
  } catch (const std::bad_alloc&) {
    connection->Close();
    throw;
  }
}

std::string ControlServer::WhyFull(const PeerIdentity& peer) const {
  const auto serves = [](std::size_t count, const char* whose) {
    return "the daemon serves " + std::to_string(count) + " connections" + whose + " already";
  };
  if (m_connections.size() >= m_settings.maxConnections) {
    return serves(m_settings.maxConnections, "");
  }
  const auto isOwn = [own = ::geteuid()](const PeerIdentity& one) {
    return one.user == 0 || one.user == own;
  };
  if (!m_settings.areUsersBounded || isOwn(peer)) {
    return {};
  }
  std::size_t ofOthers = 0;
  std::size_t ofThisUser = 0;
  for (const auto& connection : m_connections) {
    ofOthers += isOwn(connection->Peer()) ? 0 : 1;
    ofThisUser += connection->Peer().user == peer.user ? 1 : 0;
  }
  if (ofThisUser >= m_settings.maxConnections / 2) {
    return serves(ofThisUser, " of this user");
  }
  return ofOthers >= m_settings.maxConnections * 3 / 4 ? serves(ofOthers, " of users like this one")
                                                       : std::string();
}

void ControlServer::Refuse(int descriptor, const std::string& why) const {
  const ControlError error{"busy", why, ""};
  const std::string line = JsonText(Json{{"ok", false}, {"error", ErrorJson(error)}}) + "\n";
  // A new socket has room for that; if not, the client sees the end of the connection alone.
  [[maybe_unused]] const ssize_t sent =
      ::send(descriptor, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

gid_t ControlServer::SocketGroup() const {
  struct stat status {};
  return ::lstat(m_path.c_str(), &status) == 0 ? status.st_gid : ::getegid();
}

void ControlServer::Close() {
  if (!m_listener->acceptor.is_open()) {
    return;
  }
  asio::error_code ignored;
  m_listener->acceptor.close(ignored);
  m_pause.Cancel();
  m_surroundings.isStopping = true;
  m_surroundings.operations.Stop();
  m_loop.Pump(kFlushTime, [this] {
    return std::none_of(m_connections.begin(), m_connections.end(),
                        [](const auto& connection) { return connection->HasOutput(); });
  });
  while (!m_connections.empty()) {
    const auto connection = std::move(m_connections.extract(m_connections.begin()).value());
    m_loop.Try([&connection] { connection->Close(); });
  }
  ::unlink(m_path.c_str());
}
