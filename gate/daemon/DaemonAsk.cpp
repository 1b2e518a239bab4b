#include "gate/daemon/DaemonAsk.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace {

constexpr std::size_t kChunk = 65536;

Descriptor ConnectDaemon(const std::string& path) {
  ::sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    return {};
  }
  path.copy(address.sun_path, path.size());
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  // A daemon with a full queue of connections is one that does not answer.
  while (socket.IsOpen() &&
         ::connect(socket.Get(), reinterpret_cast<::sockaddr*>(&address), sizeof address) != 0) {
    if (errno != EINTR) {
      socket.Close();
    }
  }
  return socket;
}

}  // namespace

DaemonAsk::DaemonAsk(IoLoop& loop, std::chrono::milliseconds silence)
    : m_silence(silence), m_socket(loop), m_timer(loop) {}

DaemonAsk::~DaemonAsk() { *m_isAlive = false; }

bool DaemonAsk::Send(const std::string& line) const {
  // A new socket has room for the longest request.
  for (std::string_view left = line; !left.empty();) {
    const ssize_t sent =
        ::send(m_socket.Get(), left.data(), left.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) {
      return false;
    }
    left.remove_prefix(sent < 0 ? 0 : static_cast<std::size_t>(sent));
  }
  return true;
}

void DaemonAsk::Start(const std::string& path, std::string line, OnBytes onBytes, OnEnd onEnd) {
  m_onBytes = std::move(onBytes);
  m_onEnd = std::move(onEnd);
  try {
    line += '\n';
    if (Descriptor socket = ConnectDaemon(path); socket.IsOpen()) {
      m_socket.Take(std::move(socket));
      if (Send(line)) {
        WaitForBytes();
        return;
      }
    }
  } catch (const std::exception&) {
    // It can't be watched, or there is no memory for it, so it is as good as none.
  }
  m_timer.After({}, [this] { Finish(End::kNoDaemon); });
}

void DaemonAsk::Say(std::string line) {
  line += '\n';
  if (!Send(line)) {
    m_timer.After({}, [this] { Finish(End::kNoDaemon); });
  }
}

void DaemonAsk::WaitForBytes() {
  if (m_silence.count() != 0) {
    m_timer.After(m_silence, [this] { Finish(End::kTimeOut); });
  }
  m_socket.OnReadable([this] { Read(); });
}

void DaemonAsk::Read() {
  static std::array<char, kChunk> chunk;
  m_timer.Cancel();
  const ssize_t size = ::recv(m_socket.Get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
    WaitForBytes();
    return;
  }
  if (size <= 0) {
    Finish(size == 0 ? End::kClosed : End::kNoDaemon);
    return;
  }
  const std::shared_ptr<bool> isAlive = m_isAlive;
  // A copy: the call may free this object.
  try {
    const OnBytes onBytes = m_onBytes;
    onBytes({chunk.data(), static_cast<std::size_t>(size)});
    if (*isAlive) {
      WaitForBytes();
    }
  } catch (const std::exception&) {
    // What has been read is lost, and with it the answer.
    if (*isAlive) {
      m_timer.After({}, [this] { Finish(End::kNoDaemon); });
    }
    throw;
  }
}

void DaemonAsk::Finish(End end) {
  m_timer.Cancel();
  if (const OnEnd onEnd = std::exchange(m_onEnd, nullptr)) {
    onEnd(end);
  }
}
