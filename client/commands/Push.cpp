#include "client/commands/Push.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <utility>
#include <vector>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/PushAnswers.h"
#include "client/files/Programs.h"
#include "client/show/PushText.h"
#include "client/show/Terminal.h"
#include "support/GateUsers.h"

namespace {

/// Whom the gate becomes where root starts it.
std::string UserOfGate() {
  for (const char* name : {kGateUser, kOtherGateUser}) {
    if (::getpwnam(name) != nullptr) {
      return name;
    }
  }
  throw ClientError(std::string("there is no user ") + kGateUser + " or " + kOtherGateUser +
                    " for qmt_gate to run as");
}

/// The gate's user may not connect to the socket of a daemon that starts the gate by itself: that
/// one has a second socket for it beside its own.
std::string SocketOfGate(const std::string& control) {
  const std::string own = std::filesystem::path(control).replace_filename("gate.sock");
  struct ::stat status {};
  return ::lstat(own.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) ? own : control;
}

}  // namespace

int RunPushStatus(const CommonOptions& common, bool json) {
  Connection connection(common.socket);
  const Json answer = connection.Ask({{"op", "status"}});
  const PushStatus push = ReadPushStatus(answer);
  if (json) {
    Json told = Json::Object();
    for (const char* part : {"push", "notices"}) {
      const Json* found = answer["status"].Find(part);
      told[part] = found == nullptr ? Json::Array() : *found;
    }
    WriteOutput(ShownJson(told, 2) + '\n');
    return kExitDone;
  }
  WriteOutput(PushText(push, std::time(nullptr), ReadScreen(common.color)));
  if (push.targets.empty()) {
    Complain("nothing is pushed: no section Push names a target, or no gate is running");
  }
  return kExitDone;
}

int RunPushTest(const CommonOptions& common, const std::string& name) {
  const bool isRoot = ::geteuid() == 0;
  std::vector<std::string> words{FindProgram("qmt_gate", "gate"), "--push-test", "--control",
                                 isRoot ? SocketOfGate(common.socket) : common.socket};
  if (!name.empty()) {
    words.insert(words.end(), {"--push", name});
  }
  if (isRoot) {
    words.insert(words.end(), {"--user", UserOfGate()});
  }
  return BecomeProgram(std::move(words));
}
