#include "client/Generate.h"

#include "client/Answers.h"
#include "client/Completion.h"
#include "client/Connection.h"
#include "client/Errors.h"
#include "client/ManPage.h"
#include "client/Terminal.h"

int RunGenerate(const CLI::App& tree, const CommandLine& line, const std::string& kind) {
  WriteOutput(kind == "man"    ? ManPage(tree)
              : kind == "bash" ? BashCompletion(tree, line)
              : kind == "zsh"  ? ZshCompletion(tree, line)
                               : FishCompletion(tree, line));
  return kExitDone;
}

int RunCompleteRecords(const CommonOptions& common) {
  std::string names;
  try {
    Connection connection(common.socket);
    for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
      names += listing.served ? listing.record + '\n' : "";
    }
  } catch (const ClientError&) {
    return kExitFailed;
  }
  WriteOutput(names);
  return kExitDone;
}
