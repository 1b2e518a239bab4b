#pragma once

#include <sys/types.h>

#include <vector>

/// What a peer of the control socket may do; each includes the one before.
enum class Rights {
  kNone,
  kRead,
  kAdmit,  ///< make tokens by which others read
  kChange
};

/// Who has opened the other end of a Unix socket, as the kernel knows it.
struct PeerIdentity {
  pid_t process = 0;
  uid_t user = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
  std::vector<gid_t> groups;  ///< the supplementary ones
};

/// Root and the daemon's own user may change, members of the socket file's group may admit others.
[[nodiscard]] Rights RightsOf(const PeerIdentity& peer, uid_t daemonUser, gid_t socketGroup);

/// Source: SO_PEERCRED and SO_PEERGROUPS. False if the kernel doesn't tell who the peer is.
[[nodiscard]] bool ReadPeerIdentity(int socket, PeerIdentity& peer);
