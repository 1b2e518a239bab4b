#include "client/files/Check.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <vector>

#include "client/ask/Errors.h"
#include "client/show/Terminal.h"

namespace {

constexpr const char* kDaemonName = "qmtdmon";

/// The daemon's program beside this one; its bare name, for PATH, if there is none.
std::string FindDaemon() {
  std::error_code error;
  const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::string beside = own.parent_path() / kDaemonName;
  return !error && ::access(beside.c_str(), X_OK) == 0 ? beside : kDaemonName;
}

}  // namespace

int RunCheck(const CheckOptions& options) {
  std::string daemon = options.daemon.empty() ? FindDaemon() : options.daemon;
  std::vector<std::string> words{daemon, "--check", options.file};
  if (!options.kind.empty()) {
    words.insert(words.end(), {"--kind", options.kind});
  }
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  ::execvp(daemon.c_str(), pointers.data());
  Complain("cannot run " + daemon + ": " + std::generic_category().message(errno) +
           (options.daemon.empty() ? "; --daemon names it" : ""));
  return kExitUsage;
}
