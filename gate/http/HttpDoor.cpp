#include "gate/http/HttpDoor.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <string>
#include <utility>

namespace {

constexpr int kAcceptsAtOnce = 32;
constexpr std::chrono::milliseconds kSweepPause{100};
/// So long a refused visitor has for taking the answer.
constexpr std::chrono::milliseconds kLeaveTime{1000};

}  // namespace

struct HttpDoor::Visitor {
  Visitor(IoLoop& loop, Descriptor descriptor) : socket(loop) {
    socket.Take(std::move(descriptor));
  }

  LoopDescriptor socket;
  ::sockaddr_storage peer{};
  ::socklen_t peerSize = 0;
  std::string key;  ///< of the share that it takes a part of
  Clock::time_point since = Clock::now();
  bool isReady = false;    ///< waits for room only
  bool isLeaving = false;  ///< has been refused
};

HttpDoor::HttpDoor(IoLoop& loop, HttpDoorSettings settings, HasRoom hasRoom, Enter enter)
    : m_loop(loop),
      m_settings(std::move(settings)),
      m_hasRoom(std::move(hasRoom)),
      m_enter(std::move(enter)),
      m_timer(loop) {}

HttpDoor::~HttpDoor() { Close(); }

void HttpDoor::Open(Descriptor listener) {
  m_listener = std::make_unique<LoopDescriptor>(m_loop);
  m_listener->Take(std::move(listener));
  WaitForVisitors();
}

void HttpDoor::Close() {
  m_listener.reset();
  m_visitors.clear();
  m_timer.Cancel();
  m_isTimed = false;
  m_isPaused = false;
}

void HttpDoor::WaitForVisitors() {
  m_listener->OnReadable([this] { Accept(); });
}

void HttpDoor::Accept() {
  for (int count = 0; count < kAcceptsAtOnce; ++count) {
    if (!MakePlace()) {
      m_isPaused = true;
      WatchTime();
      return;
    }
    ::sockaddr_storage peer{};
    ::socklen_t size = sizeof peer;
    Descriptor socket(::accept4(m_listener->Get(), reinterpret_cast<::sockaddr*>(&peer), &size,
                                SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.IsOpen()) {
      try {
        Admit(std::move(socket), peer, size);
      } catch (const std::exception&) {
        // It can't be watched, or there is no memory for it: it is closed. The next one is let in.
      }
      continue;
    }
    if (errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) {
      break;
    }
    // Out of descriptors, most likely.
    m_isPaused = true;
    WatchTime();
    return;
  }
  WaitForVisitors();
}

bool HttpDoor::MakePlace() {
  if (m_visitors.size() < m_settings.maxVisitors) {
    return true;
  }
  const Clock::time_point latest = Clock::now() - m_settings.patience;
  for (auto place = m_visitors.begin(); place != m_visitors.end(); ++place) {
    const Visitor& visitor = **place;
    if (visitor.since <= latest && (!visitor.isReady || HasItsShare(visitor.key))) {
      m_visitors.erase(place);
      return true;
    }
  }
  return false;
}

bool HttpDoor::HasItsShare(const std::string& key) const {
  const auto count = std::ranges::count_if(
      m_visitors, [&](const VisitorPtr& visitor) { return visitor->key == key; });
  return !key.empty() && count >= static_cast<std::ptrdiff_t>(m_settings.maxVisitors / kShares);
}

template <class Action>
void HttpDoor::Guarded(const VisitorPtr& visitor, Action action) {
  try {
    action();
  } catch (const std::exception&) {
    // Nobody would look at it any more.
    m_visitors.remove(visitor);
    throw;
  }
}

void HttpDoor::Admit(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize) {
  const auto visitor = std::make_shared<Visitor>(m_loop, std::move(socket));
  visitor->peer = peer;
  visitor->peerSize = peerSize;
  visitor->key = m_settings.shareKey(reinterpret_cast<const ::sockaddr&>(peer));
  m_visitors.push_back(visitor);
  Guarded(visitor, [&] {
    WatchTime();
    if (m_settings.looks) {
      Look(visitor);
    } else {
      OfferRoom(visitor);
    }
  });
}

void HttpDoor::WaitFor(const VisitorPtr& visitor) {
  visitor->socket.OnReadable([this, weak = std::weak_ptr<Visitor>(visitor)] {
    // Who has been sent away is looked at no more; the door may be gone then, too.
    if (const VisitorPtr present = weak.lock()) {
      Guarded(present, [&] { Look(present); });
    }
  });
}

void HttpDoor::Look(const VisitorPtr& visitor) {
  std::string bytes(m_settings.head.maxBytes, '\0');
  const int descriptor = visitor->socket.Get();
  // Before the bytes are read, so that they are all that came.
  const bool isAll = HasPeerEnded(descriptor);
  const ssize_t size = ::recv(descriptor, bytes.data(), bytes.size(),
                              MSG_DONTWAIT | (visitor->isLeaving ? 0 : MSG_PEEK));
  if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
    m_visitors.remove(visitor);
    return;
  }
  if (size < 0 || visitor->isLeaving) {
    WaitFor(visitor);
    return;
  }
  const std::string_view head(bytes.data(), static_cast<std::size_t>(size));
  const HeadVerdict verdict = JudgeHead(head, m_settings.head);
  if (verdict.status == HeadVerdict::kIncomplete && isAll) {
    // Its socket is readable for good: a wait would end at once, again and again.
    m_visitors.remove(visitor);
  } else if (verdict.status == HeadVerdict::kIncomplete) {
    // What has been looked at stays in the socket: only more than that is worth another look.
    const int more = static_cast<int>(size) + 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVLOWAT, &more, sizeof more);
    WaitFor(visitor);
  } else if (verdict.status != 0) {
    Refuse(visitor, verdict, head);
  } else {
    OfferRoom(visitor);
  }
}

void HttpDoor::OfferRoom(const VisitorPtr& visitor) {
  if (m_hasRoom(visitor->peer)) {
    LetIn(visitor);
  } else {
    visitor->isReady = true;
  }
}

void HttpDoor::Refuse(const VisitorPtr& visitor, const HeadVerdict& verdict,
                      std::string_view head) {
  const Refusal refusal = RefusalOf(verdict, head);
  const std::string answer = "HTTP/1.1 " + std::to_string(refusal.status) +
                             " Refused\r\nContent-Type: " + refusal.contentType +
                             "\r\nX-Content-Type-Options: nosniff\r\nConnection: close\r\n" +
                             "Content-Length: " + std::to_string(refusal.body.size()) + "\r\n\r\n" +
                             refusal.body;
  const int descriptor = visitor->socket.Get();
  // A new socket has room for that.
  [[maybe_unused]] const ssize_t sent =
      ::send(descriptor, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  ::shutdown(descriptor, SHUT_WR);
  // A close with bytes unread would take the answer back.
  visitor->isLeaving = true;
  visitor->since = Clock::now();
  const int any = 1;
  ::setsockopt(descriptor, SOL_SOCKET, SO_RCVLOWAT, &any, sizeof any);
  WaitFor(visitor);
}

void HttpDoor::LetIn(const VisitorPtr& visitor) {
  const auto place = std::ranges::find(m_visitors, visitor);
  if (place == m_visitors.end()) {
    return;
  }
  const VisitorPtr kept = std::move(*place);
  m_visitors.erase(place);
  const int any = 1;
  ::setsockopt(kept->socket.Get(), SOL_SOCKET, SO_RCVLOWAT, &any, sizeof any);
  m_enter(Descriptor(kept->socket.Release()), kept->peer, kept->peerSize);
}

void HttpDoor::OnRoom() {
  for (auto place = m_visitors.begin(); place != m_visitors.end();) {
    const VisitorPtr visitor = *place++;
    if (visitor->isReady && m_hasRoom(visitor->peer)) {
      LetIn(visitor);
    }
  }
}

void HttpDoor::OfferRoomAgain() {
  const auto waiting =
      std::ranges::find_if(m_visitors, [](const VisitorPtr& visitor) { return visitor->isReady; });
  if (waiting != m_visitors.end()) {
    const VisitorPtr visitor = *waiting;
    OfferRoom(visitor);
  }
}

void HttpDoor::WatchTime() {
  if (m_isTimed) {
    return;
  }
  m_timer.After(kSweepPause, [this] {
    m_isTimed = false;
    Sweep();
  });
  m_isTimed = true;
}

void HttpDoor::Sweep() {
  const Clock::time_point now = Clock::now();
  m_visitors.remove_if([&](const VisitorPtr& visitor) {
    return visitor->since + (visitor->isLeaving ? kLeaveTime : m_settings.deadline) <= now;
  });
  if (!m_visitors.empty()) {
    WatchTime();
    // Who is inside and says nothing gives way by that alone, as nothing else happens there.
    OfferRoomAgain();
  }
  if (std::exchange(m_isPaused, false)) {
    Accept();
  }
}
