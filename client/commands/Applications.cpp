#include "client/commands/Applications.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>
#include <vector>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/commands/Change.h"
#include "client/show/Table.h"
#include "json/JsonText.h"

namespace {

constexpr const char* kFolderLabel = "Application monitoring setting";
constexpr const char* kAddLabel = "ADD AN APPLICATION MONITORING SETTING";
constexpr const char* kDeleteLabel = "DELETE AN APPLICATION MONITORING SETTING";
constexpr std::size_t kConditions = 15;

/// The node of that label, parents before children; null if there is none.
const ConfigNode* FindNode(const std::vector<ConfigNode>& nodes, bool isFolder,
                           const std::string& label) {
  for (const ConfigNode& node : nodes) {
    if (node.label == label && (node.kind == ConfigNode::Kind::kFolder) == isFolder) {
      return &node;
    }
    // An application may have any name, also that of a folder or an item.
    if (node.label != kFolderLabel) {
      if (const ConfigNode* found = FindNode(node.children, isFolder, label)) {
        return found;
      }
    }
  }
  return nullptr;
}

const ConfigNode& NeedNode(const std::vector<ConfigNode>& nodes, bool isFolder,
                           const std::string& label) {
  const ConfigNode* node = FindNode(nodes, isFolder, label);
  if (node == nullptr) {
    throw ClientError("the daemon's settings hold no \"" + label + "\"");
  }
  return *node;
}

std::vector<ConfigNode> AskTree(Connection& connection) {
  return ReadConfig(connection.Ask({{"op", "config"}}));
}

std::string ConditionLabel(std::size_t condition, const char* what) {
  std::array<char, 40> label{};
  std::snprintf(label.data(), label.size(), "Process%02zu %s", condition, what);
  return label.data();
}

/// How the applications do, as far as the record APP can be had.
std::vector<RecordAnswer> AskStatus(Connection& connection) {
  const std::vector<RecordName> names{{"APP", ""}};
  try {
    Json answer = connection.Ask({{"op", "get"}, {"records", {"APP"}}});
    return ReadResults(answer, names);
  } catch (const RefusedError& error) {
    return {{"APP", "", 0, Json::Array(), error.what()}};
  }
}

std::string ValueText(const Json& row, const std::string& label) {
  const Json* value = row.Find(label);
  if (value == nullptr || value->IsNull()) {
    return "-";
  }
  return value->IsString() ? SafeText(value->Text()) : JsonText(*value);
}

/// The row of that application, or an empty object.
Json RowOf(const RecordAnswer& status, const std::string& name) {
  for (const Json& row : status.rows.Elements()) {
    const Json* found = row.Find("Application Name");
    if (found != nullptr && *found == name) {
      return row;
    }
  }
  return Json::Object();
}

bool IsUsed(const ConfigNode& kind) { return kind.current != 0; }

void AddRows(Table& table, const ConfigNode& application, const Json& row) {
  const std::string name = SafeText(application.label);
  const std::string status = ValueText(row, "Application Status");
  bool isAny = false;
  for (std::size_t n = 1; n <= kConditions; ++n) {
    const ConfigNode& kind = NeedNode(application.children, false, ConditionLabel(n, "Kind"));
    if (!IsUsed(kind)) {
      continue;
    }
    const std::string monitor = "Monitor " + std::to_string(n);
    table.AddRow(
        {{isAny ? "" : name},
         {isAny ? "" : status},
         {std::to_string(n), true},
         {SafeText(kind.value)},
         {SafeText(NeedNode(application.children, false, ConditionLabel(n, "Name")).value)},
         {SafeText(NeedNode(application.children, false, ConditionLabel(n, "Range")).value)},
         {ValueText(row, monitor + " Count"), true},
         {ValueText(row, monitor + " Status")}});
    isAny = true;
  }
  if (!isAny) {
    table.AddRow({{name}, {status}, {"-", true}, {"-"}, {"-"}, {"-"}, {"-", true}, {"-"}});
  }
}

/// Why the daemon would take the name and keep it as another one, or only until its next start;
/// empty if it wouldn't.
std::string FaultOfName(const std::string& name) {
  constexpr std::size_t kMaxName = 63;
  if (name.size() > kMaxName) {
    return "the name is longer than 63 bytes";
  }
  const std::size_t place = name.find_first_of("\\:,;*?\"'<>|");
  if (place != std::string::npos) {
    return std::string("the file of applications can't hold a name with the character ") +
           name[place];
  }
  return {};
}

int ReportDone(int exitValue) {
  if (exitValue == kExitDone) {
    WriteOutput("done\n");
  }
  return exitValue;
}

int RefuseUnknown(const std::string& name) {
  Complain("refused: there is no application \"" + name + "\"");
  return kExitRefused;
}

}  // namespace

std::vector<std::string> ApplicationNames(Connection& connection) {
  const std::vector<ConfigNode> tree = AskTree(connection);
  std::vector<std::string> names;
  for (const ConfigNode& application : NeedNode(tree, true, kFolderLabel).children) {
    names.push_back(application.label);
  }
  return names;
}

int RunAppList(const CommonOptions& common) {
  Connection connection(common.socket);
  const std::vector<ConfigNode> tree = AskTree(connection);
  const ConfigNode& folder = NeedNode(tree, true, kFolderLabel);
  if (folder.children.empty()) {
    Complain("no application is monitored");
    return kExitDone;
  }
  const RecordAnswer status = AskStatus(connection).front();
  if (!status.error.empty()) {
    Complain("APP: " + status.error);
  }
  Table table({"Application", "Status", "No", "Kind", "Name", "Range", "Count", "Verdict"},
              {true, false, true});
  for (const ConfigNode& application : folder.children) {
    AddRows(table, application, RowOf(status, application.label));
  }
  WriteOutput(table.Text(ReadScreen(common.color)));
  return kExitDone;
}

int RunAppAdd(const CommonOptions& common, const std::string& name) {
  if (name.empty()) {
    throw UsageError("the name of the application is empty");
  }
  if (const std::string fault = FaultOfName(name); !fault.empty()) {
    Complain("refused: " + fault);
    return kExitRefused;
  }
  Connection connection(common.socket);
  const std::vector<ConfigNode> tree = AskTree(connection);
  return ReportDone(ChangeItem(connection, NeedNode(tree, false, kAddLabel).id, name,
                               "the list of applications is full, holds \"" + name +
                                   "\" already, or can't keep a name like this"));
}

int RunAppDelete(const CommonOptions& common, const std::string& name) {
  Connection connection(common.socket);
  const std::vector<ConfigNode> tree = AskTree(connection);
  const std::vector<ConfigNode>& applications = NeedNode(tree, true, kFolderLabel).children;
  const auto found =
      std::find_if(applications.begin(), applications.end(),
                   [&](const ConfigNode& application) { return application.label == name; });
  if (found == applications.end()) {
    return RefuseUnknown(name);
  }
  const ConfigNode& item = NeedNode(tree, false, kDeleteLabel);
  // By its name, which still means the same one if the list has changed meanwhile; the first choice
  // deletes nothing, whatever the application's name.
  const bool isPlain = std::count(item.choices.begin(), item.choices.end(), name) == 1;
  const std::string place = std::to_string(found - applications.begin() + 1);
  if (!isPlain && std::count(item.choices.begin(), item.choices.end(), place) != 0) {
    Complain("refused: \"" + name + "\" and the application \"" + place +
             "\" can't be told apart; delete that one first");
    return kExitRefused;
  }
  return ReportDone(ChangeItem(connection, item.id, isPlain ? name : place,
                               "\"" + name + "\" could not be deleted"));
}

int RunAppSet(const CommonOptions& common, const std::string& name, std::uint64_t condition,
              const ConditionChange& change) {
  if (!change.kind && !change.name && !change.range) {
    throw UsageError("app set needs --kind, --name or --range");
  }
  Connection connection(common.socket);
  const std::vector<ConfigNode> tree = AskTree(connection);
  const std::vector<ConfigNode>& applications = NeedNode(tree, true, kFolderLabel).children;
  const auto application = std::find_if(applications.begin(), applications.end(),
                                        [&](const ConfigNode& each) { return each.label == name; });
  if (application == applications.end()) {
    return RefuseUnknown(name);
  }
  std::optional<std::string> kind;
  if (change.kind) {
    kind = *change.kind == "none" ? "None" : *change.kind == "execute" ? "Execute" : "Command Line";
  }
  // The kind comes last: a condition counts once it is whole.
  const std::array<std::pair<const char*, const std::optional<std::string>*>, 3> changes{
      {{"Name", &change.name}, {"Range", &change.range}, {"Kind", &kind}}};
  for (const auto& [what, value] : changes) {
    if (!value->has_value()) {
      continue;
    }
    const std::string label = ConditionLabel(condition, what);
    const std::uint64_t item = NeedNode(application->children, false, label).id;
    const int exitValue =
        ChangeItem(connection, item, **value, label + " does not take \"" + **value + "\"");
    if (exitValue != kExitDone) {
      return exitValue;
    }
  }
  return ReportDone(kExitDone);
}
