#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "helpers/hostutil/Questions.h"
#include "support/Capabilities.h"

// The host name helper of the agent: takes questions from PREFIX.pipe one after the other, looks
// them up, and puts the answers into PREFIX.pipeOut. Further questions wait in the pipe meanwhile.
// It ends when the agent has closed its side.
//
//   qmt_hostutil PREFIX on|off      on: each question and its answer are told on standard error

namespace {

int Open(const std::string& path, int flags) {
  const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC);
  if (descriptor < 0) {
    std::fprintf(stderr, "qmt_hostutil: %s: %s\n", path.c_str(), std::strerror(errno));
  }
  return descriptor;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: qmt_hostutil PREFIX on|off\n");
    return 2;
  }
  // It reads what name servers send, and the agent's rights would be theirs by a fault of a
  // library.
  if (!KeepCapabilities(0)) {
    std::fprintf(stderr, "qmt_hostutil: capabilities can't be dropped: %s\n", std::strerror(errno));
    return 1;
  }
  ::signal(SIGPIPE, SIG_IGN);
  const pid_t agent = ::getppid();
  // A look-up may outlast the agent for long.
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != agent) {
    return 0;
  }
  const std::string prefix = argv[1];
  const int questions = Open(prefix + ".pipe", O_RDONLY);
  const int answers = questions < 0 ? -1 : Open(prefix + ".pipeOut", O_WRONLY);
  return answers < 0 ? 1
                     : ServeQuestions(questions, answers, std::strcmp(argv[2], "on") == 0, stderr);
}
