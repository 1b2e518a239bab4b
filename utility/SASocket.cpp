#include "utility/SASocket.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "node/Node.h"
#include "support/HostPaths.h"
#include "support/TraceLog.h"

namespace {

constexpr int kConnected = 0;
constexpr int kFailed = 4;
constexpr mode_t kPipeMode = 0660;

void CloseDescriptor(int& descriptor) {
  if (descriptor >= 0) {
    ::close(descriptor);
    descriptor = -1;
  }
}

}  // namespace

SASocket::SASocket(CMBRunnableNode* node, const std::string& name)
    : m_talkName(name.substr(0, kMaxName)),
      m_listenName((m_talkName + "Out").substr(0, kMaxName)),
      m_talkPath(ProductPath(m_talkName)),
      m_listenPath(ProductPath(m_listenName)),
      m_pNode(node) {
  RemovePipes();
}

SASocket::~SASocket() {
  Close();
  RemovePipes();
}

int SASocket::Connect(int schedule) {
  TraceEntry("SASocket::Connect", schedule);
  Close();
  RemovePipes();
  const bool connected = MakePipe(m_talkName, "Talk") && OpenTalk() &&
                         MakePipe(m_listenName, "Listen") && OpenListen(schedule);
  if (connected && schedule != 0) {
    m_pNode->ScheduleEvent(m_listenFd);
  }
  const int rc = connected ? kConnected : kFailed;
  TraceExit("SASocket::Connect", rc);
  return rc;
}

void SASocket::Accept() {
  CMBNode::EventPrintf("Accepting call from utility process\n");
  m_pNode->ScheduleEvent(m_listenFd);
}

int SASocket::Receive() {
  CMBNode::EventPrintf("Receiving data from utility process\n");
  m_readLength = static_cast<int>(::read(m_listenFd, m_readBuffer.data(), m_readBuffer.size()));
  if (m_readLength < 1) {
    CMBNode::EventPrintf("Closing connection from collector process\n");
    Close();
    m_readBuffer.fill('\0');
  } else {
    CMBNode::EventPrintf("Received data from collector process\n");
  }
  return 0;
}

int SASocket::GetData(char* buffer) const {
  if (m_readLength < 1) {
    return -1;
  }
  std::copy_n(m_readBuffer.begin(), m_readLength, buffer);
  return m_readLength;
}

int SASocket::Close() {
  if (m_listenFd >= 0) {
    m_pNode->CancelEvent(m_listenFd);
  }
  CloseDescriptor(m_listenFd);
  CloseDescriptor(m_talkFd);
  return 0;
}

void SASocket::RemovePipes() const {
  ::unlink(m_talkPath.c_str());
  ::unlink(m_listenPath.c_str());
}

bool SASocket::MakePipe(const std::string& name, const char* side) {
  if (::mkfifo(ProductPath(name).c_str(), kPipeMode) == 0) {
    return true;
  }
  const int error = errno;
  const std::string reason = std::strerror(error);
  SetLastError((std::string("mkfifo: ") + side + " ").c_str(), reason.c_str(), __LINE__);
  Trace(20, kError, "Error occurred in mkfifo(%1). (%2) (err=%3)", name, reason, error);
  return false;
}

bool SASocket::OpenTalk() {
  // Open for reading too, so that the opening neither waits for the helper nor fails without it.
  m_talkFd = ::open(ProductPath(m_talkName).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (m_talkFd >= 0) {
    return true;
  }
  const int error = errno;
  const std::string reason = std::strerror(error);
  SetLastError("open: Talk ", reason.c_str(), __LINE__);
  Trace(20, kError, "Cannot open pipe file %1. (%2) (err=%3)", m_talkName, reason, error);
  return false;
}

bool SASocket::OpenListen(int schedule) {
  const int flags = schedule == 0 ? O_RDWR : O_RDONLY | O_NONBLOCK;
  m_listenFd = ::open(ProductPath(m_listenName).c_str(), flags | O_CLOEXEC);
  if (m_listenFd >= 0) {
    return true;
  }
  const int error = errno;
  const std::string reason = std::strerror(error);
  SetLastError("open: Listen ", reason.c_str(), __LINE__);
  Trace(30, kError, "Cannot open pipe file %1. (%2) (err=%3) (schedule=%4)", m_listenName, reason,
        error, schedule);
  return false;
}

void SASocket::SetLastError(const char* step, const char* reason, int line) {
  m_pLastError = std::make_unique<UtlError>("SASocket.cpp", line);
  m_pLastError->GetStream() << step << reason;
}
