#include "client/files/Check.h"

#include <utility>
#include <vector>

#include "client/files/Programs.h"

int RunCheck(const CheckOptions& options) {
  const std::string daemon =
      options.daemon.empty() ? FindProgram("qmtdmon", "agent") : options.daemon;
  std::vector<std::string> words{daemon, "--check", options.file};
  if (!options.kind.empty()) {
    words.insert(words.end(), {"--kind", options.kind});
  }
  return BecomeProgram(std::move(words), options.daemon.empty() ? "; --daemon names it" : "");
}
