#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "gate/http/HttpHead.h"
#include "gate/http/ListenSocket.h"
#include "io/LoopDescriptor.h"
#include "io/LoopTimer.h"
#include "support/Descriptor.h"

struct HttpDoorSettings {
  HeadRule head;
  bool looks = true;  ///< false: who comes may enter as soon as there is room
  std::size_t maxVisitors = 128;
  /// So long a visitor keeps its place from newer ones, when all places are taken.
  std::chrono::milliseconds patience{1000};
  /// A visitor whose request is not there by then is sent away.
  std::chrono::milliseconds deadline{10000};
  /// Whose share of the places, a quarter, a visitor takes; empty for nobody's.
  std::function<std::string(const ::sockaddr& peer)> shareKey = ShareKey;
};

/// Where the HTTP server's connections wait until the head of their request is there: it is looked
/// at and left in the socket. Who sends what is no request is told so at once, and who ends before
/// the head does is gone at once. Who sends nothing gives way to newer ones, and so does who has
/// more than a share of the places. For one thread.
class HttpDoor {
 public:
  /// Takes a connection whose request may be served.
  using Enter =
      std::function<void(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize)>;

  using HasRoom = std::function<bool(const ::sockaddr_storage& peer)>;

  /// `hasRoom` tells whether one more may enter.
  HttpDoor(IoLoop& loop, HttpDoorSettings settings, HasRoom hasRoom, Enter enter);
  ~HttpDoor();
  HttpDoor(const HttpDoor&) = delete;
  HttpDoor& operator=(const HttpDoor&) = delete;

  void SetHostNames(std::vector<std::string> names) {
    m_settings.head.hostNames = std::move(names);
  }
  /// Takes connections of a listening socket, which does not block.
  void Open(Descriptor listener);
  /// Sends all away and stops listening. Harmless if nothing is open.
  void Close();
  /// To be called when there may be room again.
  void OnRoom();

 private:
  using Clock = std::chrono::steady_clock;
  struct Visitor;
  using VisitorPtr = std::shared_ptr<Visitor>;

  void WaitForVisitors();
  void Accept();
  /// False while all places are held by those who are to be patient with.
  [[nodiscard]] bool MakePlace();
  /// Whether one is at the door as often as it may be while others wait.
  [[nodiscard]] bool HasItsShare(const std::string& key) const;
  /// Asks for room for who waits for it longest.
  void OfferRoomAgain();
  void Admit(Descriptor socket, const ::sockaddr_storage& peer, ::socklen_t peerSize);
  void WaitFor(const VisitorPtr& visitor);
  /// Removes the visitor where that throws.
  template <class Action>
  void Guarded(const VisitorPtr& visitor, Action action);
  void Look(const VisitorPtr& visitor);
  void Refuse(const VisitorPtr& visitor, const HeadVerdict& verdict, std::string_view head);
  void OfferRoom(const VisitorPtr& visitor);
  void LetIn(const VisitorPtr& visitor);
  void WatchTime();
  void Sweep();

  IoLoop& m_loop;
  HttpDoorSettings m_settings;
  HasRoom m_hasRoom;
  Enter m_enter;
  std::unique_ptr<LoopDescriptor> m_listener;
  LoopTimer m_timer;
  std::list<VisitorPtr> m_visitors;  ///< the one that came first in front
  bool m_isPaused = false;           ///< no more are accepted until the next sweep
  bool m_isTimed = false;            ///< the timer runs
};
