#include "gate/http/HttpServer.h"

#include <microhttpd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "gate/http/HttpCallbacks.h"
#include "gate/http/ListenSocket.h"
#include "gate/http/TlsCertificate.h"
#include "support/ListenAddress.h"

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

HttpServer::HttpServer(IoLoop& loop, Handler handler, HttpSettings settings)
    : m_handler(std::move(handler)),
      m_settings(std::move(settings)),
      m_head(m_settings.head),
      m_ready(loop),
      m_timer(loop),
      m_door(
          loop,
          HttpDoorSettings{.head = m_settings.head,
                           .looks = !m_settings.isTls,
                           .maxVisitors = m_settings.maxConnections,
                           .deadline = m_settings.deadline,
                           .shareKey = m_settings.shareKey},
          [this](const ::sockaddr_storage& peer) { return HasRoom(peer); },
          [this](Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t size) {
            Enter(std::move(socket), peer, size);
          }) {}

HttpServer::~HttpServer() { Close(); }

void HttpServer::SetHostNames(std::vector<std::string> names) {
  m_head.hostNames = names;
  m_door.SetHostNames(std::move(names));
}

bool HttpServer::HasRoom(const ::sockaddr_storage& peer) {
  if (m_connections.size() < m_settings.maxConnections) {
    const std::string key = m_settings.shareKey(reinterpret_cast<const ::sockaddr&>(peer));
    return key.empty() || std::ranges::count_if(m_connections, [&](const auto& entry) {
                            return entry.second.peer == key;
                          }) < static_cast<std::ptrdiff_t>(m_settings.maxConnections / kShares);
  }
  if (m_settings.isTls) {
    EndSilentConnection();
  }
  return false;
}

void HttpServer::EndSilentConnection() {
  constexpr std::chrono::milliseconds kPatience{1000};
  const Clock::time_point latest = Clock::now() - kPatience;
  for (auto& [connection, facts] : m_connections) {
    if (!facts.hasRequest && facts.since <= latest) {
      ::shutdown(facts.descriptor, SHUT_RDWR);
      facts.hasRequest = true;
      return;
    }
  }
}

bool HttpServer::Open(const std::string& address, std::string& error) {
  Close();
  const std::optional<ListenAddress> parsed = ParseListenAddress(address);
  if (!parsed) {
    error = "\"" + address + "\" is no " + kListenAddressForm;
    return false;
  }
  Descriptor socket = Listen(*parsed);
  if (!socket.IsOpen()) {
    error = address + ": can't listen: " + std::strerror(errno);
    return false;
  }
  m_address = BoundAddress(socket.Get());
  if (m_address.empty()) {
    error = address + ": can't listen: its port can't be told";
    return false;
  }
  m_isLoopback = IsLoopbackAddress(*parsed->Get());
  m_daemon = Start();
  const MHD_DaemonInfo* info =
      m_daemon == nullptr ? nullptr : MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD);
  if (info == nullptr) {
    error = address + ": the HTTP server can't start";
    Close();
    return false;
  }
  m_ready.Borrow(info->epoll_fd);
  m_door.Open(std::move(socket));
  WaitForWork();
  Work();
  return true;
}

MHD_Daemon* HttpServer::Start() {
  const auto seconds =
      static_cast<unsigned>(std::chrono::ceil<std::chrono::seconds>(m_settings.deadline).count());
  unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_NO_LISTEN_SOCKET;
  std::vector<MHD_OptionItem> options;
  if (m_settings.isTls) {
    flags |= MHD_USE_TLS;
    options.push_back(
        {MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(TlsCertificate::kPriorities)});
    options.push_back({MHD_OPTION_HTTPS_CERT_CALLBACK, 0, TlsCertificate::Callback()});
    options.push_back(
        {MHD_OPTION_URI_LOG_CALLBACK, reinterpret_cast<std::intptr_t>(&Callbacks::OnTarget), this});
  }
  options.push_back({MHD_OPTION_END, 0, nullptr});
  return MHD_start_daemon(
      flags, 0, nullptr, nullptr, Callbacks::OnRequest, this, MHD_OPTION_CONNECTION_LIMIT,
      m_settings.maxConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_settings.memory,
      MHD_OPTION_CONNECTION_TIMEOUT, seconds, MHD_OPTION_NOTIFY_COMPLETED, Callbacks::OnCompleted,
      this, MHD_OPTION_NOTIFY_CONNECTION, Callbacks::OnConnection, this, MHD_OPTION_ARRAY,
      options.data(), MHD_OPTION_END);
}

void HttpServer::Close() {
  m_door.Close();
  static_cast<void>(m_ready.Release());
  for (const auto& [exchange, owner] : m_exchanges) {
    exchange->OnAnswer({});
    if (exchange->Stream() != nullptr) {
      exchange->Stream()->End();
    }
  }
  if (m_daemon != nullptr) {
    for (const auto& [connection, facts] : m_connections) {
      if (facts.isSuspended) {
        MHD_resume_connection(static_cast<MHD_Connection*>(connection));
      }
    }
    MHD_stop_daemon(std::exchange(m_daemon, nullptr));
  }
  m_timer.Cancel();
  m_connections.clear();
  m_exchanges.clear();
  m_address.clear();
}

void HttpServer::WaitForWork() {
  m_ready.OnReadable([this] {
    try {
      Work();
    } catch (const std::exception&) {
      WaitForWork();
      throw;
    }
    WaitForWork();
  });
}

void HttpServer::Enter(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize) {
  if (m_settings.onConnection) {
    m_settings.onConnection();
  }
  // The library closes it, also if it does not take it.
  MHD_add_connection(m_daemon, socket.Release(), reinterpret_cast<const ::sockaddr*>(&peer),
                     peerSize);
  m_hasNew = true;
  if (!m_isWorking) {
    Work();
  }
}

void HttpServer::WorkSoon() {
  if (m_isWorking) {
    m_hasNew = true;
  } else {
    m_timer.At(Clock::now(), [this] { Work(); });
  }
}

void HttpServer::Work() {
  if (m_daemon == nullptr) {
    return;
  }
  m_isWorking = true;
  try {
    RunLibrary();
  } catch (const std::exception&) {
    m_isWorking = false;
    WorkSoon();
    throw;
  }
  m_isWorking = false;
  EndLateConnections();
  WatchTime();
}

void HttpServer::RunLibrary() {
  std::size_t before = 0;
  do {
    m_hasNew = false;
    before = m_connections.size();
    MHD_run(m_daemon);
    m_door.OnRoom();
    // The library finds out in the turn behind that one of its connections has ended.
  } while (m_hasNew || m_connections.size() < before);
}

void HttpServer::WatchTime() {
  MHD_UNSIGNED_LONG_LONG milliseconds = 0;
  Clock::time_point next = Clock::time_point::max();
  if (MHD_get_timeout(m_daemon, &milliseconds) == MHD_YES) {
    next = Clock::now() + std::chrono::milliseconds(milliseconds);
  }
  for (const auto& [connection, facts] : m_connections) {
    next = std::min(next, facts.end);
  }
  if (next == Clock::time_point::max()) {
    m_timer.Cancel();
    return;
  }
  m_timer.At(next, [this] { Work(); });
}

void HttpServer::EndLateConnections() {
  const Clock::time_point now = Clock::now();
  for (auto& [connection, facts] : m_connections) {
    if (facts.end <= now) {
      // The library sees the end and cleans up; one that waits for its answer gets another chance.
      ::shutdown(facts.descriptor, SHUT_RDWR);
      facts.end = now + m_settings.deadline;
    }
  }
}
