#include "gate/send/HttpSender.h"

#include <curl/curl.h>

#include <asio/posix/stream_descriptor.hpp>
#include <exception>
#include <map>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "gate/send/CurlCalls.h"
#include "gate/send/Transfer.h"
#include "io/IoLoop.h"
#include "io/LoopTimer.h"
#include "io/WaitRoom.h"

namespace {

/// Connections that are kept for the next request, of all servers.
constexpr long kKeptConnections = 8;

/// A socket of the library's that the loop waits for.
struct SenderSocket {
  explicit SenderSocket(IoLoop& loop) : stream(loop.Io()) {}
  ~SenderSocket() {
    if (stream.is_open()) {
      stream.release();
    }
  }
  SenderSocket(const SenderSocket&) = delete;
  SenderSocket& operator=(const SenderSocket&) = delete;

  asio::posix::stream_descriptor stream;
  std::shared_ptr<WaitRoom> readRoom = std::make_shared<WaitRoom>();
  std::shared_ptr<WaitRoom> writeRoom = std::make_shared<WaitRoom>();
  int wanted = CURL_POLL_NONE;
  bool isReadWaitedFor = false;
  bool isWriteWaitedFor = false;
};

}  // namespace

/// The library's loop of transfers on that of the gate.
class HttpSender::Library : public std::enable_shared_from_this<HttpSender::Library> {
 public:
  explicit Library(IoLoop& loop);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  void Add(Sending& sending);
  void Remove(const Sending& sending);
  /// From its end on the library calls nothing.
  void Close();

 private:
  static int OnSocket(CURL* handle, curl_socket_t socket, int wanted, void* self, void* own);
  static int OnTimer(CURLM* multi, long milliseconds, void* self);
  void Watch(int socket, int wanted);
  void Wait(const std::shared_ptr<SenderSocket>& socket);
  void WaitFor(const std::shared_ptr<SenderSocket>& socket, bool isRead);
  /// `weak`: of the socket, which may be gone by that.
  void ActAndWaitOn(const std::weak_ptr<SenderSocket>& weak, int socket, int events);
  void Act(int socket, int events);
  void EndFinished();
  void EndAll();
  void End(const std::shared_ptr<Sending>& sending, int code);

  IoLoop& m_loop;
  LoopTimer m_timer;
  std::map<int, std::shared_ptr<SenderSocket>> m_sockets;
  std::map<CURL*, Sending*> m_sendings;
  CURLM* m_multi;
};

class HttpSender::Sending : public std::enable_shared_from_this<HttpSender::Sending> {
 public:
  Sending(IoLoop& loop, Done done) : m_done(std::move(done)), m_soon(loop) {}
  ~Sending() { Leave(); }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

  void Begin(HttpSender& sender, SendRequest request) {
    try {
      const std::shared_ptr<Library>& library = sender.Get();
      m_library = library;
      m_transfer.emplace(std::move(request));
      library->Add(*this);
    } catch (const std::exception& error) {
      m_transfer.reset();
      m_soon.After({}, [this, text = std::string(error.what())]() mutable {
        const std::shared_ptr<Sending> held = shared_from_this();
        Finish({0, std::move(text), "", {}});
      });
    }
  }
  [[nodiscard]] CURL* Handle() const { return m_transfer->Handle(); }
  /// What came of it, once; the library has it no more then.
  [[nodiscard]] SendResult Take(int code) {
    SendResult result = m_transfer->Result(code);
    Leave();
    return result;
  }
  void Finish(SendResult result) {
    if (const Done done = std::exchange(m_done, nullptr)) {
      done(std::move(result));
    }
  }
  void Leave() {
    const std::shared_ptr<Library> library = m_library.lock();
    if (library != nullptr && m_transfer) {
      library->Remove(*this);
    }
    m_transfer.reset();
  }

 private:
  std::weak_ptr<Library> m_library;
  Done m_done;
  LoopTimer m_soon;
  std::optional<Transfer> m_transfer;
};

HttpSender::Library::Library(IoLoop& loop) : m_loop(loop), m_timer(loop) {
  m_multi = Curl().multiInit();
  if (m_multi == nullptr) {
    throw std::bad_alloc();
  }
  Curl().multiSetopt(m_multi, CURLMOPT_SOCKETFUNCTION, &Library::OnSocket);
  Curl().multiSetopt(m_multi, CURLMOPT_SOCKETDATA, this);
  Curl().multiSetopt(m_multi, CURLMOPT_TIMERFUNCTION, &Library::OnTimer);
  Curl().multiSetopt(m_multi, CURLMOPT_TIMERDATA, this);
  Curl().multiSetopt(m_multi, CURLMOPT_MAXCONNECTS, kKeptConnections);
}

HttpSender::Library::~Library() { Curl().multiCleanup(m_multi); }

void HttpSender::Library::Add(Sending& sending) {
  // First, since what the library has it must be taken off again.
  m_sendings[sending.Handle()] = &sending;
  const CURLMcode code = Curl().multiAddHandle(m_multi, sending.Handle());
  if (code != CURLM_OK) {
    m_sendings.erase(sending.Handle());
    throw std::runtime_error(Curl().multiStrerror(code));
  }
}

void HttpSender::Library::Remove(const Sending& sending) {
  if (m_sendings.erase(sending.Handle()) != 0) {
    Curl().multiRemoveHandle(m_multi, sending.Handle());
  }
}

void HttpSender::Library::Close() {
  while (!m_sendings.empty()) {
    m_sendings.begin()->second->Leave();
  }
}

int HttpSender::Library::OnSocket(CURL*, curl_socket_t socket, int wanted, void* self, void*) {
  try {
    static_cast<Library*>(self)->Watch(socket, wanted);
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

int HttpSender::Library::OnTimer(CURLM*, long milliseconds, void* self) {
  auto& library = *static_cast<Library*>(self);
  try {
    if (milliseconds < 0) {
      library.m_timer.Cancel();
    } else {
      library.m_timer.After(std::chrono::milliseconds(milliseconds),
                            [&library] { library.Act(CURL_SOCKET_TIMEOUT, 0); });
    }
    return 0;
  } catch (const std::exception&) {
    return -1;
  }
}

void HttpSender::Library::Watch(int socket, int wanted) {
  if (wanted == CURL_POLL_REMOVE) {
    m_sockets.erase(socket);
    return;
  }
  std::shared_ptr<SenderSocket>& watched = m_sockets[socket];
  if (watched == nullptr) {
    watched = std::make_shared<SenderSocket>(m_loop);
    watched->stream.assign(socket);
  }
  watched->wanted = wanted;
  Wait(watched);
}

void HttpSender::Library::Wait(const std::shared_ptr<SenderSocket>& socket) {
  if ((socket->wanted & CURL_POLL_IN) != 0 && !std::exchange(socket->isReadWaitedFor, true)) {
    WaitFor(socket, true);
  }
  if ((socket->wanted & CURL_POLL_OUT) != 0 && !std::exchange(socket->isWriteWaitedFor, true)) {
    WaitFor(socket, false);
  }
}

void HttpSender::Library::WaitFor(const std::shared_ptr<SenderSocket>& socket, bool isRead) {
  using Stream = asio::posix::stream_descriptor;
  socket->stream.async_wait(
      isRead ? Stream::wait_read : Stream::wait_write,
      InRoom(isRead ? socket->readRoom : socket->writeRoom,
             [this, weak = std::weak_ptr(socket), isRead](asio::error_code error) {
               std::shared_ptr<SenderSocket> present = weak.lock();
               if (present == nullptr || error) {
                 return;
               }
               (isRead ? present->isReadWaitedFor : present->isWriteWaitedFor) = false;
               if ((present->wanted & (isRead ? CURL_POLL_IN : CURL_POLL_OUT)) == 0) {
                 return;
               }
               const std::shared_ptr<Library> held = shared_from_this();
               const int number = present->stream.native_handle();
               present.reset();
               ActAndWaitOn(weak, number, isRead ? CURL_CSELECT_IN : CURL_CSELECT_OUT);
             }));
}

void HttpSender::Library::ActAndWaitOn(const std::weak_ptr<SenderSocket>& weak, int socket,
                                       int events) {
  std::exception_ptr fault;
  try {
    Act(socket, events);
  } catch (const std::exception&) {
    // Others may wait for that connection.
    fault = std::current_exception();
  }
  // The library names only what it wants anew.
  if (const std::shared_ptr<SenderSocket> same = weak.lock()) {
    Wait(same);
  }
  if (fault) {
    std::rethrow_exception(fault);
  }
}

void HttpSender::Library::Act(int socket, int events) {
  const std::shared_ptr<Library> held = shared_from_this();
  int running = 0;
  if (Curl().multiSocketAction(m_multi, socket, events, &running) == CURLM_OK) {
    EndFinished();
  } else {
    EndAll();
  }
}

void HttpSender::Library::EndAll() {
  // A socket could not be waited for: the library does nothing more until it has no transfer left.
  std::exception_ptr fault;
  for (std::size_t left = m_sendings.size(); left != 0 && !m_sendings.empty(); --left) {
    try {
      End(m_sendings.begin()->second->shared_from_this(), CURLE_ABORTED_BY_CALLBACK);
    } catch (const std::exception&) {
      fault = std::current_exception();
    }
  }
  if (fault) {
    std::rethrow_exception(fault);
  }
}

void HttpSender::Library::EndFinished() {
  std::exception_ptr fault;
  int left = 0;
  while (const CURLMsg* message = Curl().multiInfoRead(m_multi, &left)) {
    const auto found = m_sendings.find(message->easy_handle);
    if (found == m_sendings.end()) {
      continue;
    }
    try {
      End(found->second->shared_from_this(), message->data.result);
    } catch (const std::exception&) {
      // The others that have ended are to hear of it.
      fault = std::current_exception();
    }
  }
  if (fault) {
    std::rethrow_exception(fault);
  }
}

void HttpSender::Library::End(const std::shared_ptr<Sending>& sending, int code) {
  try {
    sending->Finish(sending->Take(code));
  } catch (const std::exception& error) {
    // The library names it no more.
    sending->Leave();
    sending->Finish({0, error.what(), "", {}});
    throw;
  }
}

HttpSender::HttpSender(IoLoop& loop) : m_loop(loop) {}

HttpSender::~HttpSender() {
  if (m_library != nullptr) {
    m_library->Close();
  }
}

HttpSender::SendingPtr HttpSender::Send(SendRequest request, Done done) {
  auto sending = std::make_shared<Sending>(m_loop, std::move(done));
  sending->Begin(*this, std::move(request));
  return sending;
}

const std::shared_ptr<HttpSender::Library>& HttpSender::Get() {
  if (m_library == nullptr) {
    m_library = std::make_shared<Library>(m_loop);
  }
  return m_library;
}
