#include "client/commands/ControlGroups.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "client/ask/Connection.h"
#include "client/ask/Errors.h"
#include "client/looks/Pace.h"
#include "client/looks/RecordReader.h"
#include "client/looks/TwoLooks.h"
#include "client/show/GroupTree.h"
#include "client/show/Nearest.h"
#include "client/show/Terminal.h"

namespace {

constexpr const char* kKillsLabel = "OOM Kills";
constexpr std::string_view kProfileOfGroups = "modern";

const RecordName& RecordOfGroups() {
  static const RecordName kName{"CGRP", "4"};
  return kName;
}

/// Tells why the record can't be had; of an agent that does not have it at all, since when it does.
[[noreturn]] void FailGroups(Connection& connection, const std::string& reason) {
  const std::string profile = ReadStatus(connection.Ask({{"op", "status"}})).hostProfile;
  if (profile == kProfileOfGroups) {
    throw ClientError(RecordOfGroups().name + ": " + reason);
  }
  throw ClientError("the record CGRP is there under the host profile modern alone" +
                    (profile.empty() ? ", of which this agent says nothing"
                                     : ", and this agent's is " + profile) +
                    "; see Profile in section [Host] of qmtagt.ini");
}

Schema SchemaOfGroups(Connection& connection) {
  try {
    return ReadSchema(connection.Ask(SchemaRequest(RecordOfGroups())));
  } catch (const RefusedError& error) {
    FailGroups(connection, error.what());
  }
}

/// One look: the rows as the daemon has them.
Json LookAtGroups(Connection& connection) {
  Json answer =
      connection.Ask({{"op", "get"}, {"records", Json::Array({RecordOfGroups().ToJson()})}});
  std::vector<RecordAnswer> answers = ReadResults(answer, {RecordOfGroups()});
  if (!answers.front().error.empty()) {
    FailGroups(connection, answers.front().error);
  }
  return std::move(answers.front().rows);
}

/// Makes of the rows what happened since the look before, but leaves the kills as counted since the
/// group was made: hardly one falls between two looks, and each is worth knowing.
void CompareGroups(TwoLooks& looks, Json& rows, TwoLooks::TimePoint at) {
  std::vector<Json> kills;
  for (const Json& row : rows.Elements()) {
    const Json* value = row.Find(kKillsLabel);
    kills.push_back(value == nullptr ? Json() : *value);
  }
  looks.Compare(rows, at);
  for (std::size_t i = 0; i < kills.size(); ++i) {
    if (Json* value = rows[i].Find(kKillsLabel); value != nullptr) {
      *value = std::move(kills[i]);
    }
  }
}

/// The path as the record writes it: with a slash in front and none at its end.
std::string WrittenPath(const std::string& typed) {
  std::string path = typed.starts_with('/') || typed.starts_with("...") ? typed : '/' + typed;
  path.resize(std::max<std::size_t>(path.find_last_not_of('/') + 1, 1));
  return path;
}

/// Throws UsageError, naming those nearest to it, if there is no such group.
void NeedGroup(const Json& rows, const std::string& path) {
  Nearest nearest(path);
  // Who leaves out the path of a service types its name alone.
  const std::string name = path.substr(path.rfind('/') + 1);
  Nearest named(name);
  for (const Json& row : rows.Elements()) {
    const Json* value = row.Find("Path");
    if (value == nullptr || !value->IsString()) {
      continue;
    }
    const std::string& other = value->Text();
    if (other == path) {
      return;
    }
    nearest.Add(other, other);
    named.Add(std::string_view(other).substr(other.rfind('/') + 1), other);
  }
  const std::string question = nearest.Question().empty() ? named.Question() : nearest.Question();
  throw UsageError("CGRP has no control group \"" + path + '"' +
                   (question.empty() ? "; \"qmtctl cgroups\" shows those it has" : question));
}

}  // namespace

int RunControlGroups(const CommonOptions& common, const ControlGroupOptions& options) {
  const Pace pace(options.overSeconds, "--over");
  const std::string path = options.path.empty() ? "" : WrittenPath(options.path);
  Connection connection(common.socket);
  Schema schema = SchemaOfGroups(connection);
  TwoLooks looks(schema);
  const RowChoice order = GroupOrder(options.sort, std::move(schema));
  const auto first = std::chrono::steady_clock::now();
  Json rows = LookAtGroups(connection);
  if (!path.empty()) {
    NeedGroup(rows, path);
  }
  CompareGroups(looks, rows, std::chrono::steady_clock::now());
  std::this_thread::sleep_until(first + pace.Length());
  rows = LookAtGroups(connection);
  CompareGroups(looks, rows, std::chrono::steady_clock::now());

  std::vector<GroupNode> groups = MakeGroupTree(std::move(rows));
  if (!path.empty()) {
    GroupNode* const group = FindGroup(groups, path);
    if (group == nullptr) {
      throw ClientError("the group " + path + " has gone between the two looks");
    }
    std::vector<GroupNode> chosen;
    chosen.push_back(std::move(*group));
    groups = std::move(chosen);
  }
  if (options.levels) {
    CutGroups(groups, *options.levels);
  }
  SortGroups(groups, order);
  if (options.json) {
    WriteOutput(ShownJson(GroupsJson(groups), 2) + '\n');
  } else if (groups.empty()) {
    Complain("CGRP: no rows");
  } else {
    WriteOutput(GroupsText(groups, ReadScreen(common.color)));
  }
  return kExitDone;
}
