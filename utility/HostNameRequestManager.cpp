#include "utility/HostNameRequestManager.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "support/HostReads.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"
#include "utility/SASocket.h"

namespace {

constexpr int kAnswered = 1;
constexpr std::chrono::milliseconds kWait{2000};

bool AsksForAddress(const HostNameRequest& request) {
  return request.kind == HostNameWire::kAddressKind ||
         ::inet_addr(request.query.data()) != INADDR_NONE;
}

bool IsSame(const HostNameWire::Field& field, const char* text) {
  return std::strcmp(field.data(), text) == 0;
}

bool HasStamp(const HostNameRequest& request, const HostNameWire& response) {
  return request.stampSeconds == response.stampSeconds &&
         request.stampMicroseconds == response.stampMicroseconds;
}

}  // namespace

HostNameRequestManager::HostNameRequestManager(CMBRunnableNode* /*node*/, int limit,
                                               const char* helperPath, const char* helperArgument)
    : m_helper(helperPath, helperArgument),
      m_finishedLimit(static_cast<std::size_t>(std::max(limit, 0))),
      m_waitingLimit(2 * m_finishedLimit) {}

int HostNameRequestManager::connection_init(SASocket* socket) {
  TraceEntry("HostNameRequestManager::connection_init", AddressOf(socket));
  m_pSocket = socket;
  spawn_process();
  TraceExit("HostNameRequestManager::connection_init");
  return 1;
}

bool HostNameRequestManager::spawn_process() {
  TraceEntry("HostNameRequestManager::spawn_process");
  if (g_hostReads != nullptr) {
    // The names of a captured host's networks are not to be asked of another one.
    TraceExit("HostNameRequestManager::spawn_process");
    return false;
  }
  std::string error;
  const int started = m_helper.Spawn(error);
  if (started < 0) {
    Fail(error, __LINE__);
  } else if (started > 0) {
    Os().sleep(1);
  }
  TraceExit("HostNameRequestManager::spawn_process");
  return started > 0;
}

void HostNameRequestManager::Revive() {
  if (m_pSocket == nullptr || is_child_running()) {
    return;
  }
  // Looked at first: the new helper takes it at once.
  const bool hasUnread = HasUnread();
  if (spawn_process()) {
    Trace(20, kError, "Host name resolution process has been respawned");
    if (!hasUnread) {
      handle_request();
    }
  }
}

int HostNameRequestManager::handle_request(HostNameRequest& request) {
  TraceEntry("HostNameRequestManager::handle_request");
  request.status = 0;
  request.Terminate();
  HostNameRequest* found = SearchCache(request);
  if (found == nullptr) {
    Trace(30, kInformation, "Handle new request %1.", request.query.data());
    Revive();
    if (Enqueue(request) < 0) {
      TraceExit("HostNameRequestManager::handle_request");
      return -1;
    }
    found = Receive(request);
  }
  if (found != nullptr) {
    request.resultName = found->resultName;
    request.resultAddress = found->resultAddress;
    request.query = found->query;
    request.status = found->status;
  }
  TraceExit("HostNameRequestManager::handle_request");
  return request.status;
}

HostNameRequest* HostNameRequestManager::SearchCache(const HostNameRequest& request) const {
  return AsksForAddress(request) ? search_request_by_ip(request.query.data())
                                 : search_request_by_hostname(request.query.data());
}

HostNameRequest* HostNameRequestManager::search_request_by_ip(const char* query) const {
  const auto found = std::ranges::find_if(
      m_pFinished, [query](const auto& entry) { return IsSame(entry->query, query); });
  return found == m_pFinished.end() ? nullptr : found->get();
}

HostNameRequest* HostNameRequestManager::search_request_by_hostname(const char* query) const {
  const auto found = std::ranges::find_if(
      m_pFinished, [query](const auto& entry) { return IsSame(entry->resultName, query); });
  return found == m_pFinished.end() ? nullptr : found->get();
}

void HostNameRequestManager::Stamp(HostNameRequest& request) const {
  ::timeval now{};
  Os().gettimeofday(&now);
  request.stampSeconds = static_cast<std::int32_t>(now.tv_sec);
  request.stampMicroseconds = static_cast<std::int32_t>(now.tv_usec);
  // A clock that has been set back may give the same moment twice.
  while (std::ranges::any_of(m_pWaiting,
                             [&request](const auto& entry) { return HasStamp(*entry, request); })) {
    ++request.stampMicroseconds;
  }
}

int HostNameRequestManager::Enqueue(HostNameRequest& request) {
  const bool needSend = m_pWaiting.empty() || m_sendFailed;
  const bool isWaiting = std::ranges::any_of(m_pWaiting, [&request](const auto& entry) {
    return IsSame(entry->query, request.query.data());
  });
  if (isWaiting) {
    Trace(30, kInformation, "Request %1 is still in the waiting list.", request.query.data());
    AskAgain();
    return 0;
  }
  Stamp(request);
  if (insert_pending_request(request) < 0) {
    return -1;
  }
  return needSend ? SendAndNote(*m_pWaiting.back()) : 0;
}

void HostNameRequestManager::AskAgain() {
  if (is_child_running() || m_pWaiting.empty()) {
    Trace(30, kInformation, "The child is still running or waiting list is empty.");
    return;
  }
  handle_request();
}

int HostNameRequestManager::insert_pending_request(const HostNameRequest& request) {
  if (m_pWaiting.size() >= m_waitingLimit) {
    Fail("The queue is full", __LINE__);
    Fail("Cannot insert pending request to the waiting queue", __LINE__);
    Trace(30, kWarning, "HostNameRequestManager: %1.", GetLastError());
    Trace(30, kWarning, "HostNameRequestManager::handle_request(), the waiting queue is full.");
    return -1;
  }
  m_pWaiting.push_back(std::make_unique<HostNameRequest>(request));
  Trace(30, kInformation, "Insert %1 in the list.", request.query.data());
  return 0;
}

int HostNameRequestManager::SendAndNote(const HostNameRequest& request) {
  m_sendFailed = send_request(request) < 0;
  return m_sendFailed ? -1 : 0;
}

bool HostNameRequestManager::HasUnread() const {
  const int talk = m_pSocket == nullptr ? -1 : m_pSocket->GetTalkFd();
  int size = 0;
  return talk >= 0 && ::ioctl(talk, FIONREAD, &size) == 0 && size > 0;
}

int HostNameRequestManager::send_request(const HostNameRequest& request) {
  TraceEntry("HostNameRequestManager::send_request");
  const int talk = m_pSocket == nullptr ? -1 : m_pSocket->GetTalkFd();
  if (talk < 0) {
    Trace(30, kWarning, "qmt_hostutil socket not connected.");
    TraceExit("HostNameRequestManager::send_request");
    return Fail("qmt_hostutil socket not initialized", __LINE__);
  }
  const auto* wire = static_cast<const HostNameWire*>(&request);
  const ssize_t written = ::write(talk, wire, sizeof *wire);
  if (written != sizeof *wire) {
    const int code = errno;
    Trace(30, kWarning, "write:%1 on socket %2", written, talk);
    TraceExit("HostNameRequestManager::send_request");
    return Fail(std::strerror(code), __LINE__);
  }
  Trace(30, kInformation, "Request <%1> has been sent successfully.", request.query.data());
  TraceExit("HostNameRequestManager::send_request");
  return 1;
}

bool HostNameRequestManager::AwaitResponse(int descriptor) const {
  Trace(30, kInformation, "Waiting for response.");
  const auto end = std::chrono::steady_clock::now() + kWait;
  ::pollfd wanted{descriptor, POLLIN, 0};
  int ready = 0;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    ready = ::poll(&wanted, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  } while (ready < 0 && errno == EINTR);
  int size = 0;
  if (::ioctl(descriptor, FIONREAD, &size) != 0) {
    const int code = errno;
    Trace(20, kError, "An error occurred in ioctl. (%1) (err=%2)", std::strerror(code), code);
  }
  if (ready < 0 || size < static_cast<int>(sizeof(HostNameWire))) {
    Trace(30, kWarning, "Response timed out.");
    return false;
  }
  if (ready == 0) {
    Trace(30, kInformation, "Found data to read that select() failed to report.");
  }
  return true;
}

HostNameRequest* HostNameRequestManager::Receive(const HostNameRequest& request) {
  const int listen = m_pSocket == nullptr ? -1 : m_pSocket->GetListenFd();
  // Nobody would answer.
  if (listen < 0 || !is_child_running() || !AwaitResponse(listen)) {
    return nullptr;
  }
  Trace(30, kInformation, "Reading response.");
  HostNameWire response;
  const ssize_t size = ::read(listen, &response, sizeof response);
  if (size < 1) {
    if (size < 0) {
      const int code = errno;
      Trace(20, kError, "An error occurred in read. (%1) (err=%2)", std::strerror(code), code);
    }
    return nullptr;
  }
  if (handle_request(reinterpret_cast<const char*>(&response)) < 0) {
    Trace(30, kWarning, "Failed to handle response: %1.", GetLastError());
    return nullptr;
  }
  HostNameRequest* found = SearchCache(request);
  if (found != nullptr) {
    Trace(30, kInformation, "Found response to request.");
  }
  return found;
}

void HostNameRequestManager::handle_request() {
  TraceEntry("HostNameRequestManager::handle_request");
  if (!m_pWaiting.empty() && !HasUnread()) {
    SendAndNote(*m_pWaiting.front());
  }
  TraceExit("HostNameRequestManager::handle_request");
}

int HostNameRequestManager::handle_request(const char* response) {
  TraceEntry("HostNameRequestManager::handle_request");
  HostNameWire answer;
  std::memcpy(&answer, response, sizeof answer);
  answer.Terminate();
  if (transfer_request_from_waiting_queue_to_cache(answer) < 0) {
    TraceExit("HostNameRequestManager::handle_request");
    return -1;
  }
  const HostNameRequest* next = search_next_waiting_request();
  if (next == nullptr) {
    Trace(30, kInformation, "No more requests in the waiting list.");
    TraceExit("HostNameRequestManager::handle_request");
    return 0;
  }
  const int result = SendAndNote(*next);
  TraceExit("HostNameRequestManager::handle_request");
  return result;
}

int HostNameRequestManager::transfer_request_from_waiting_queue_to_cache(
    const HostNameWire& response) {
  const auto found = std::ranges::find_if(
      m_pWaiting, [&response](const auto& entry) { return HasStamp(*entry, response); });
  if (found == m_pWaiting.end()) {
    return Fail("The received response does not match any request.", __LINE__);
  }
  std::unique_ptr<HostNameRequest> request = std::move(*found);
  m_pWaiting.erase(found);
  request->resultName = response.resultName;
  request->resultAddress = response.resultAddress;
  request->query = response.query;
  request->status = kAnswered;
  insert_finished_request(std::move(request));
  return 0;
}

void HostNameRequestManager::insert_finished_request(std::unique_ptr<HostNameRequest> request) {
  if (m_finishedLimit > 0 && m_pFinished.size() >= m_finishedLimit) {
    m_pFinished.erase(m_pFinished.begin());
  }
  m_pFinished.push_back(std::move(request));
}

HostNameRequest* HostNameRequestManager::search_next_waiting_request() const {
  const auto found =
      std::ranges::find_if(m_pWaiting, [](const auto& entry) { return entry->status == 0; });
  return found == m_pWaiting.end() ? nullptr : found->get();
}

const char* HostNameRequestManager::GetLastError() const {
  return m_pLastError == nullptr ? "" : m_pLastError->GetMessage();
}

int HostNameRequestManager::Fail(const std::string& reason, int line) {
  m_pLastError = std::make_unique<UtlError>(reason.c_str(), __FILE__, line);
  return -1;
}
