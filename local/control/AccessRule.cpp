#include "local/control/AccessRule.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

Rights RightsOf(const PeerIdentity& peer, uid_t daemonUser, gid_t socketGroup) {
  constexpr uid_t kRoot = 0;
  if (peer.user == kRoot || peer.user == daemonUser) {
    return Rights::kChange;
  }
  const bool isMember =
      peer.group == socketGroup ||
      std::find(peer.groups.begin(), peer.groups.end(), socketGroup) != peer.groups.end();
  return isMember ? Rights::kAdmit : Rights::kNone;
}

bool ReadPeerIdentity(int socket, PeerIdentity& peer) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
      length != sizeof credentials) {
    return false;
  }
  peer.process = credentials.pid;
  peer.user = credentials.uid;
  peer.group = credentials.gid;

  // The first call tells the size. Without the groups the primary one still counts.
  length = 0;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &length) != 0 && errno == ERANGE) {
    std::vector<gid_t> groups(length / sizeof(gid_t));
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &length) == 0) {
      peer.groups = std::move(groups);
    }
  }
  return true;
}
