#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "agent/UnixAgent.h"
#include "support/TraceLog.h"

namespace {

/// One answer of the host name helper.
constexpr std::size_t kResponseSize = 3096;

}  // namespace

int UnixAgent::NotifyEvent(CMBSocketEvent* event) {
  const int descriptor = *event;
  if (descriptor < 0) {
    return 0;
  }
  if (descriptor == m_toggleSignal->Descriptor()) {
    TraceToggles();
    return 0;
  }
  if (descriptor != m_pSocket->GetListenFd()) {
    return 0;
  }
  return ReadHelper(descriptor);
}

void UnixAgent::TraceToggles() {
  for (std::uint64_t count = m_toggleSignal->TakeCount(); count > 0; --count) {
    Trace(20, kError, "USR2 signal received.");
  }
}

int UnixAgent::ReadHelper(int descriptor) {
  std::array<char, kResponseSize> response{};
  errno = 0;
  const ssize_t count = ::read(descriptor, response.data(), response.size());
  if (count < 1) {
    Message(10100, "read", errno, count, "", "");
    return RestoreHelper(descriptor);
  }
  // An answer that no request waits for is dropped.
  return 0;
}

int UnixAgent::RestoreHelper(int descriptor) {
  CMBRunnableNode::CancelEvent(descriptor);
  m_pSocket->Close();
  if (InitConnection() < 1) {
    Trace(20, kError, "Host name resolution process no longer active.");
    return -1;
  }
  Trace(20, kError, "Host name resolution process has been respawned");
  return 0;
}
