#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gate/http/HttpDoor.h"
#include "gate/http/HttpExchange.h"
#include "gate/http/ListenSocket.h"
#include "io/IoLoop.h"
#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"
#include "support/Descriptor.h"

struct MHD_Daemon;

struct HttpSettings {
  unsigned maxConnections = 128;  ///< that are served; as many more wait at the door
  std::size_t memory = 32768;     ///< bytes for each connection that is served
  HeadRule head;                  ///< what is refused at the door
  /// A connection ends then, whatever it has sent until then.
  std::chrono::milliseconds deadline{10000};
  /// So long an answer may take to come; who makes it has limits of its own below that.
  std::chrono::milliseconds patience{60000};
  /// So long it has for taking its answer, one that comes by and by apart.
  std::chrono::milliseconds answerTime{30000};
  /// Called before each connection, where it is set.
  std::function<void()> onConnection;
  /// Whose share of the connections a peer takes: a quarter, and no more; empty for nobody's.
  std::function<std::string(const ::sockaddr& peer)> shareKey = ShareKey;
  bool isTls = false;  ///< with the certificate that TlsCertificate has in use
};

/// An HTTP server of GET and HEAD requests on the loop's thread, with or without TLS 1.2 and newer.
/// Each connection takes one request. Without a body that is read; other methods get 405.
class HttpServer {
 public:
  /// Called on the loop's thread, inside the server library: it may answer at once or keep the
  /// exchange and answer from a task of the loop.
  using Handler = std::function<void(const std::shared_ptr<HttpExchange>&)>;

  HttpServer(IoLoop& loop, Handler handler, HttpSettings settings = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// The names that requests may be for, besides addresses and "localhost".
  void SetHostNames(std::vector<std::string> names);
  /// Listens on "ADDRESS:PORT", an IPv4 address or an IPv6 one in brackets; port 0 is any that is
  /// free. False, with the reason in `error`, if that can't be.
  [[nodiscard]] bool Open(const std::string& address, std::string& error);
  /// Ends all connections. Exchanges that are still kept may be answered in vain. Harmless if
  /// nothing is open.
  void Close();
  /// The address in use, with its port; empty if there is none.
  [[nodiscard]] const std::string& Address() const { return m_address; }
  /// Whether that is a loopback address.
  [[nodiscard]] bool IsLoopback() const { return m_isLoopback; }
  [[nodiscard]] bool IsTls() const { return m_settings.isTls; }

 private:
  class Callbacks;  ///< what the library calls
  struct Connection {
    std::chrono::steady_clock::time_point since;
    std::chrono::steady_clock::time_point end;
    int descriptor = -1;
    std::string peer;            ///< the key of its share
    std::size_t targetSize = 0;  ///< of its request's first line, with TLS
    bool hasRequest = false;
    bool isSuspended = false;  ///< until its answer, or more of it, is there
  };

  /// Whether one more from that address may enter.
  [[nodiscard]] bool HasRoom(const ::sockaddr_storage& peer);
  [[nodiscard]] MHD_Daemon* Start();
  /// Makes room: one that has asked for nothing yet gives way.
  void EndSilentConnection();
  void Enter(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize);
  void WaitForWork();
  void Work();
  void RunLibrary();
  /// Has the library work in the loop's next turn.
  void WorkSoon();
  void WatchTime();
  void EndLateConnections();

  Handler m_handler;
  HttpSettings m_settings;
  HeadRule m_head;
  std::string m_address;
  bool m_isLoopback = false;
  MHD_Daemon* m_daemon = nullptr;
  LoopDescriptor m_ready;  ///< the library's
  LoopTimer m_timer;
  std::map<void*, Connection> m_connections;
  std::map<HttpExchange*, std::shared_ptr<HttpExchange>> m_exchanges;
  HttpDoor m_door;
  bool m_isWorking = false;
  bool m_hasNew = false;  ///< somebody has entered in this turn
};
