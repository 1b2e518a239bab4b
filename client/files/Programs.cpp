#include "client/files/Programs.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "client/ask/Errors.h"
#include "client/show/Terminal.h"
#include "support/HostPaths.h"
#include "support/ProgramBeside.h"

std::string FindProgram(const std::string& name, const std::string& folder) {
  const std::string beside = FindProgramBeside(name, folder);
  if (!beside.empty()) {
    return beside;
  }
  const std::string installed = ProductPath("/opt/qmtrx/bin/" + name);
  return ::access(installed.c_str(), X_OK) == 0 ? installed : name;
}

int BecomeProgram(std::vector<std::string> words, const std::string& hint) {
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  ::execvp(pointers[0], pointers.data());
  Complain("cannot run " + words[0] + ": " + std::generic_category().message(errno) + hint);
  return kExitUsage;
}
