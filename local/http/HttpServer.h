#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "local/http/HttpDoor.h"
#include "local/http/HttpExchange.h"
#include "local/loop/EventLoop.h"
#include "local/loop/LoopDescriptor.h"
#include "local/loop/LoopTimer.h"
#include "support/Descriptor.h"

struct MHD_Daemon;

struct HttpSettings {
  unsigned maxConnections = 128;  ///< that are served; as many more wait at the door
  std::size_t memory = 32768;     ///< bytes for each connection that is served
  HeadRule head;                  ///< what is refused at the door
  /// A connection ends then, whatever it has sent or taken until then.
  std::chrono::milliseconds deadline{10000};
};

/// An HTTP server of GET and HEAD requests on the event loop's thread. Each connection takes one
/// request. Without a body that is read; other methods get 405.
class HttpServer {
 public:
  /// Called on the loop's thread, inside the server library: it may answer at once or keep the
  /// exchange and answer from a task of the loop.
  using Handler = std::function<void(const std::shared_ptr<HttpExchange>&)>;

  HttpServer(EventLoop& loop, Handler handler, HttpSettings settings = {});
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  /// Whether Open can read the text.
  [[nodiscard]] static bool IsAddress(const std::string& text);
  /// The names that requests may be for, besides addresses and "localhost".
  void SetHostNames(std::vector<std::string> names) { m_door.SetHostNames(std::move(names)); }
  /// Listens on "ADDRESS:PORT", an IPv4 address or an IPv6 one in brackets; port 0 is any that is
  /// free. False, with the reason in `error`, if that can't be.
  [[nodiscard]] bool Open(const std::string& address, std::string& error);
  /// Ends all connections. Exchanges that are still kept may be answered in vain. Harmless if
  /// nothing is open.
  void Close();
  /// The address in use, with its port; empty if there is none.
  [[nodiscard]] const std::string& Address() const { return m_address; }

 private:
  class Library;
  struct Connection {
    std::chrono::steady_clock::time_point end;
    int descriptor = -1;
    bool isSuspended = false;  ///< until its answer is there
  };

  [[nodiscard]] bool HasRoom() const { return m_connections.size() < m_settings.maxConnections; }
  void Enter(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize);
  void WaitForWork();
  void Work();
  void WatchTime();
  void EndLateConnections();

  EventLoop& m_loop;
  Handler m_handler;
  HttpSettings m_settings;
  std::string m_address;
  MHD_Daemon* m_daemon = nullptr;
  LoopDescriptor m_ready;  ///< the library's
  LoopTimer m_timer;
  std::map<void*, Connection> m_connections;
  std::map<HttpExchange*, std::shared_ptr<HttpExchange>> m_exchanges;
  HttpDoor m_door;
  bool m_isWorking = false;
  bool m_hasNew = false;  ///< somebody has entered in this turn
  std::shared_ptr<bool> m_isOpen = std::make_shared<bool>(false);
};
