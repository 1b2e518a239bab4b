#include "client/doctor/SocketChecks.h"

#include <cerrno>
#include <system_error>

namespace {

constexpr const char* kStartWords = "start it: systemctl start qmtdmon";

std::string JoinWords(const SocketFacts& socket) {
  if (socket.isRootsGroup) {
    return "it is for root alone: ask as root, or run qmtdmon by its unit, whose group users can "
           "be put into";
  }
  return socket.isListed
             ? "user " + socket.user + " is in group " + socket.group +
                   ", but this session began before: log in anew"
             : "user " + socket.user + " is not in group " + socket.group + ": as root, adduser " +
                   socket.user + ' ' + socket.group + ", then log in anew";
}

}  // namespace

MaybeFinding CheckSocket(const Facts& facts) {
  const SocketFacts& socket = facts.socket;
  switch (socket.error) {
    case 0:
      break;
    case ENOENT:
    case ENOTDIR:
      return Fail("there is no " + socket.path +
                  ": qmtdmon does not run, or elsewhere (--socket, "
                  "QMT_PRODUCT_ROOT); " +
                  kStartWords);
    case EACCES:
      // Who may not look into the folder needs the rights that the next check tells of.
      return Look(socket.path + " stands in a folder that user " + socket.user +
                  " may not look into");
    default:
      return Fail(socket.path + ": " + std::generic_category().message(socket.error));
  }
  return socket.isSocket
             ? Ok(socket.path + ", of user " + socket.owner + " and group " + socket.group)
             : Fail(socket.path + " is no socket: remove it, and start qmtdmon anew");
}

MaybeFinding CheckAccess(const Facts& facts) {
  const SocketFacts& socket = facts.socket;
  if (socket.group.empty()) {
    return std::nullopt;
  }
  if (socket.isRoot || (socket.isOwner && socket.error == 0)) {
    return Ok("user " + socket.user + " may read and change");
  }
  if (!socket.isInGroup) {
    return Fail(JoinWords(socket));
  }
  if (socket.error == 0 && !socket.isGroupWritable) {
    return Fail("the socket's mode bars its group " + socket.group + ": start qmtdmon anew");
  }
  return socket.error != 0
             ? Fail("a folder above the socket bars user " + socket.user + " of group " +
                    socket.group + ": namei -l " + socket.path + " shows which")
             : Ok("user " + socket.user + " may read; changing is for root and user " +
                  socket.owner);
}

MaybeFinding CheckAnswer(const Facts& facts) {
  if (facts.socket.error != 0 || !facts.socket.isSocket) {
    return std::nullopt;
  }
  const DaemonFacts& daemon = facts.daemon;
  return daemon.fault.empty() ? Ok("process " + std::to_string(daemon.status.pid) + " answers")
                              : Fail(daemon.fault);
}
