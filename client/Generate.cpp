#include "client/Generate.h"

#include <algorithm>
#include <functional>

#include "client/CommandView.h"
#include "client/Completion.h"
#include "client/ManPage.h"
#include "client/ask/Answers.h"
#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/commands/Applications.h"
#include "client/looks/RecordReader.h"
#include "client/show/Terminal.h"
#include "json/RowText.h"

int RunGenerate(const std::string& kind) {
  const CommandView tree = ProgramView();
  WriteOutput(kind == "man"    ? ManPage(tree)
              : kind == "bash" ? BashCompletion(tree)
              : kind == "zsh"  ? ZshCompletion(tree)
                               : FishCompletion(tree));
  return kExitDone;
}

namespace {

/// Prints what `ask` makes of the daemon's answers; nothing if it has no good one.
int Print(const CommonOptions& common,
          const std::function<std::string(Connection& connection)>& ask) {
  std::string lines;
  try {
    Connection connection(common.socket);
    lines = ask(connection);
  } catch (const ClientError&) {
    return kExitFailed;
  }
  WriteOutput(lines);
  return kExitDone;
}

/// A line of its own, or nothing for a text that would be more or steer a terminal.
std::string Line(const std::string& text) { return SafeText(text) == text ? text + '\n' : ""; }

}  // namespace

int RunCompleteRecords(const CommonOptions& common) {
  return Print(common, [](Connection& connection) {
    std::string names;
    for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
      names += listing.served && IsPlainName(listing.record) ? listing.record + '\n' : "";
    }
    return names;
  });
}

int RunCompleteLabels(const CommonOptions& common, const std::vector<std::string>& words) {
  return Print(common, [&](Connection& connection) {
    std::string labels;
    for (const Listing& listing : ReadListing(connection.Ask({{"op", "records"}}))) {
      const RecordName name{listing.record, listing.category};
      const std::string lower = LowerCase(name.name);
      const bool isMeant = std::any_of(words.begin(), words.end(), [&](const std::string& word) {
        const std::string typed = LowerCase(word);
        return typed == lower || typed == name.category + ':' + lower ||
               (word == "cgroups" && name.name == "CGRP");
      });
      if (isMeant && listing.served) {
        for (const Field& field : ReadSchema(connection.Ask(SchemaRequest(name))).fields) {
          labels += Line(field.label);
        }
      }
    }
    return labels;
  });
}

int RunCompleteApplications(const CommonOptions& common) {
  return Print(common, [](Connection& connection) {
    std::string names;
    for (const std::string& name : ApplicationNames(connection)) {
      names += Line(name);
    }
    return names;
  });
}
