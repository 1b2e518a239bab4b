#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "agent/UnixAgent.h"
#include "support/HostNameWire.h"
#include "support/TraceLog.h"

namespace {

using Response = std::array<char, sizeof(HostNameWire)>;

/// Forgets all that is in the pipe: after a piece of an answer nothing tells where the next begins.
void Drain(int descriptor) {
  Response rest;
  while (::read(descriptor, rest.data(), rest.size()) > 0) {
  }
}

}  // namespace

int UnixAgent::NotifyEvent(CMBSocketEvent* event) {
  TraceEntry("UnixAgent::NotifyEvent", AddressOf(event));
  const int descriptor = *event;
  if (descriptor < 0) {
    TraceExit("UnixAgent::NotifyEvent");
    return 0;
  }
  if (descriptor == m_toggleSignal->Descriptor()) {
    TraceToggles();
    TraceExit("UnixAgent::NotifyEvent");
    return 0;
  }
  if (descriptor != m_pSocket->GetListenFd()) {
    TraceExit("UnixAgent::NotifyEvent");
    return 0;
  }
  const int result = ReadHelper(descriptor);
  TraceExit("UnixAgent::NotifyEvent");
  return result;
}

void UnixAgent::TraceToggles() {
  for (std::uint64_t count = m_toggleSignal->TakeCount(); count > 0; --count) {
    Trace(20, kError, "USR2 signal received.");
  }
}

int UnixAgent::ReadHelper(int descriptor) {
  Response response{};
  errno = 0;
  const ssize_t count = ::read(descriptor, response.data(), response.size());
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
    return 0;
  }
  if (count < 1) {
    Message(10100, "read", errno, count, "", "");
    if (RestoreHelper(descriptor) < 0) {
      return -1;
    }
  } else if (count != static_cast<ssize_t>(response.size())) {
    Drain(descriptor);
    response.fill('\0');
  }
  if (m_hostNames.handle_request(response.data()) < 0) {
    Trace(20, kError, "Agent cannot handle hostname response: %1", m_hostNames.GetLastError());
    return -1;
  }
  return 0;
}

int UnixAgent::RestoreHelper(int descriptor) {
  CMBRunnableNode::CancelEvent(descriptor);
  m_pSocket->Close();
  if (InitConnection() < 1) {
    Trace(20, kError, "Host name resolution process no longer active.");
    return -1;
  }
  m_hostNames.connection_init(m_pSocket.get());
  if (m_hostNames.IsHelperRunning()) {
    Trace(20, kError, "Host name resolution process has been respawned");
  }
  m_hostNames.handle_request();
  return 0;
}
