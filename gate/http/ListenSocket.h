#pragma once

#include <sys/socket.h>

#include <string>

#include "support/Descriptor.h"
#include "support/ListenAddress.h"

/// A socket that listens and does not block. Not open, with the reason in errno, if that can't be.
[[nodiscard]] Descriptor Listen(const ListenAddress& address);

/// The address that a socket is bound to, as ParseListenAddress reads it; empty if it can't be
/// told.
[[nodiscard]] std::string BoundAddress(int socket);

/// Whether the peer sends nothing more than what is in the socket.
[[nodiscard]] bool HasPeerEnded(int socket);

[[nodiscard]] bool IsLoopbackAddress(const ::sockaddr& address);

/// What tells one host from another: of IPv6 the network. One of IPv4 has the same by either
/// family of sockets.
[[nodiscard]] std::string PeerKey(const ::sockaddr& address);

/// The same of who may have but a share of a server's places; empty for the loopback, behind which
/// a proxy may stand for many.
[[nodiscard]] std::string ShareKey(const ::sockaddr& address);
/// So many shares the places of a server, and those at its door, have.
inline constexpr std::size_t kShares = 4;

/// An address of IPv4 or IPv6 as text, without the port; empty if it can't be told.
[[nodiscard]] std::string AddressText(const ::sockaddr& address);
