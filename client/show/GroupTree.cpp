#include "client/show/GroupTree.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"

namespace {

constexpr const char* kRootPath = "/";
constexpr const char* kIoLabel = "io";
constexpr const char* kReadLabel = "Read Bytes/sec";
constexpr const char* kWriteLabel = "Write Bytes/sec";
/// What a group and the groups below it use is as much as these use; limits, the shares of time
/// that somebody waited, and how often something happened to a group, are not.
constexpr const char* kSummedLabels[] = {
    "Processes",    "Threads",    "CPU Seconds", "User Seconds", "System Seconds",  "CPU %",
    "All CPUs %",   "User %",     "System %",    "Memory Bytes", "Anonymous Bytes", "File Bytes",
    "Kernel Bytes", "Swap Bytes", "Read Bytes",  "Write Bytes",  "Reads",           "Writes",
    kReadLabel,     kWriteLabel,  "Reads/sec",   "Writes/sec"};
constexpr std::array<std::pair<std::string_view, const char*>, 4> kOrderWords{
    {{"cpu", "CPU %"},
     {"memory", "Memory Bytes"},
     {"processes", "Processes"},
     {"tasks", "Processes"}}};

enum class Style { kPlain, kPercent, kBytes };
struct FigureColumn {
  const char* label;
  const char* heading;
  Style style;
};
constexpr FigureColumn kFigureColumns[] = {
    {"Processes", "Procs", Style::kPlain},    {"CPU %", "CPU%", Style::kPercent},
    {"Throttled %", "Thr%", Style::kPercent}, {"Memory Bytes", "Memory", Style::kBytes},
    {"Limit %", "Limit%", Style::kPercent},   {"Swap Bytes", "Swap", Style::kBytes},
    {kReadLabel, "Read/s", Style::kBytes},    {kWriteLabel, "Write/s", Style::kBytes},
    {"OOM Kills", "OOM", Style::kPlain}};

/// On a narrow screen the column of names is no narrower than this, nor a name cut to less letters
/// than that, nor what stands for a container.
constexpr std::size_t kLeastGroupWidth = 24;
constexpr std::size_t kLeastNameWidth = 12;
constexpr std::size_t kLeastContainerWidth = 24;
constexpr std::string_view kCutMark = "...";

const Json* GroupNumberOf(const Json& row, const char* label) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsNumber() ? value : nullptr;
}

std::string GroupTextOf(const Json& row, const char* label) {
  const Json* value = row.Find(label);
  return value != nullptr && value->IsString() ? value->Text() : std::string();
}

/// The order of their letters, but a slash comes first: so each group is followed by those in it.
bool IsPathBefore(std::string_view left, std::string_view right) {
  const auto rank = [](char c) { return c == '/' ? -1 : int{static_cast<unsigned char>(c)}; };
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [&](char a, char b) { return rank(a) < rank(b); });
}

/// Paths that the record has cut at their begin lie below the root, as all do.
bool LiesBelow(std::string_view path, std::string_view above) {
  if (above == kRootPath) {
    return path != kRootPath;
  }
  return path.size() > above.size() && path.starts_with(above) && path[above.size()] == '/';
}

std::string NameBelow(const std::string& path, const std::string& above) {
  const std::string name = path.substr(above == kRootPath ? 0 : above.size());
  return name.starts_with('/') ? name.substr(1) : name;
}

/// The sum of what the groups below tell; null if none tells it.
Json SumBelow(const GroupNode& group, const char* label) {
  Json sum;
  for (const GroupNode& child : group.children) {
    if (const Json* part = GroupNumberOf(child.row, label); part != nullptr) {
      sum = (sum.IsNull() ? 0 : sum.Number()) + part->Number();
    }
  }
  return sum;
}

void FillGroup(GroupNode& group) {
  for (const char* label : kSummedLabels) {
    if (Json* value = group.row.Find(label); value != nullptr && value->IsNull()) {
      *value = SumBelow(group, label);
    }
  }
  Json io;
  for (const char* label : {kReadLabel, kWriteLabel}) {
    if (const Json* part = GroupNumberOf(group.row, label); part != nullptr) {
      io = (io.IsNull() ? 0 : io.Number()) + part->Number();
    }
  }
  group.row[kIoLabel] = std::move(io);
}

/// "memory" as "Memory Bytes", with the sign before it.
std::string OrderLabel(std::string_view text) {
  const std::string sign(text.starts_with('+') || text.starts_with('-') ? text.substr(0, 1) : "");
  const auto found = std::ranges::find(kOrderWords, text.substr(sign.size()),
                                       [](const auto& word) { return word.first; });
  return found == kOrderWords.end() ? std::string(text) : sign + found->second;
}

/// "(container 0123456789ab)"; empty for what is none. Of a runtime that has names for numbers
/// it is the whole name.
std::string ContainerText(const Json& row) {
  constexpr std::size_t kShortId = 12;
  std::string id = GroupTextOf(row, "Container ID");
  if (id.empty()) {
    return "";
  }
  if (id.size() > kShortId && id.find_first_not_of("0123456789abcdef") == std::string::npos) {
    id.resize(kShortId);
  }
  return '(' + SafeText(GroupTextOf(row, "Kind") + ' ' + id) + ')';
}

Cell FigureCell(const Json& row, const FigureColumn& column) {
  const Json* value = GroupNumberOf(row, column.label);
  if (value == nullptr) {
    return {"-"};
  }
  if (column.style == Style::kBytes) {
    return {BytesText(value->Number()), true};
  }
  return {FixedText(value->Number(), column.style == Style::kPercent ? 1 : 0), true};
}

/// A group as a line of the table.
struct GroupLine {
  std::size_t indent;
  std::string name;
  std::string container;
  std::vector<Cell> figures;
};

void AddLines(const std::vector<GroupNode>& groups, std::size_t depth,
              std::vector<GroupLine>& lines) {
  constexpr std::size_t kIndent = 2;
  for (const GroupNode& group : groups) {
    GroupLine& line = lines.emplace_back();
    line.indent = kIndent * depth;
    line.name = SafeText(group.name);
    line.container = ContainerText(group.row);
    for (const FigureColumn& column : kFigureColumns) {
      line.figures.push_back(FigureCell(group.row, column));
    }
    AddLines(group.children, depth + 1, lines);
  }
}

/// How wide names may be for the figures to stand beside them; 0 for any width.
std::size_t RoomOfNames(const std::vector<GroupLine>& lines, const Screen& screen) {
  std::size_t figures = 0;
  for (std::size_t i = 0; i < std::size(kFigureColumns); ++i) {
    std::size_t width = TextWidth(kFigureColumns[i].heading);
    for (const GroupLine& line : lines) {
      width = std::max(width, TextWidth(line.figures[i].text));
    }
    figures += width + kGap;
  }
  std::size_t least = kLeastGroupWidth;
  for (const GroupLine& line : lines) {
    const std::size_t own = line.container.empty()
                                ? std::min(TextWidth(line.name), kLeastNameWidth)
                                : std::min(TextWidth(line.container), kLeastContainerWidth);
    least = std::max(least, line.indent + own);
  }
  return screen.width == 0 ? 0 : std::max(screen.width, figures + least) - figures;
}

/// The name and its container; where there is no room for both, the container alone.
std::string NameCell(const GroupLine& line, std::size_t room) {
  const std::string indent(line.indent, ' ');
  const std::string behind = line.container.empty() ? "" : "  " + line.container;
  const std::string whole = indent + line.name + behind;
  if (room == 0 || TextWidth(whole) <= room) {
    return whole;
  }
  const std::string most = indent + (behind.empty() ? line.name : line.container);
  return TextWidth(most) <= room
             ? most
             : std::string(CutText(most, room - kCutMark.size())).append(kCutMark);
}

}  // namespace

std::vector<GroupNode> MakeGroupTree(Json rows) {
  std::vector<GroupNode> unplaced;
  for (Json& row : rows.Elements()) {
    std::string path = GroupTextOf(row, "Path");
    if (path.empty()) {
      throw ClientError("broken answer: a control group without a path");
    }
    unplaced.push_back({std::move(path), "", std::move(row), {}});
  }
  std::ranges::stable_sort(unplaced, IsPathBefore, &GroupNode::path);
  std::vector<GroupNode> tops;
  std::vector<GroupNode> open;  // from a top to the group that was placed last
  const auto close = [&] {
    GroupNode group = std::move(open.back());
    open.pop_back();
    FillGroup(group);
    (open.empty() ? tops : open.back().children).push_back(std::move(group));
  };
  for (GroupNode& group : unplaced) {
    while (!open.empty() &&
           (open.size() >= kDeepestGroupLevel || !LiesBelow(group.path, open.back().path))) {
      close();
    }
    group.name = open.empty() ? group.path : NameBelow(group.path, open.back().path);
    open.push_back(std::move(group));
  }
  while (!open.empty()) {
    close();
  }
  return tops;
}

RowChoice GroupOrder(const std::vector<std::string>& sort, Schema schema) {
  schema.fields.push_back({kIoLabel, "double", 0, 0, "gauge", ""});
  ChoiceOptions options;
  std::ranges::transform(sort, std::back_inserter(options.sort), OrderLabel);
  if (options.sort.empty()) {
    options.sort.push_back(OrderLabel("memory"));
  }
  return {options, schema};
}

void SortGroups(std::vector<GroupNode>& groups, const RowChoice& order) {
  std::ranges::stable_sort(
      groups, [&](const Json& a, const Json& b) { return order.ComesBefore(a, b); },
      &GroupNode::row);
  for (GroupNode& group : groups) {
    SortGroups(group.children, order);
  }
}

GroupNode* FindGroup(std::vector<GroupNode>& groups, std::string_view path) {
  for (GroupNode& group : groups) {
    if (group.path == path) {
      return &group;
    }
    GroupNode* below = LiesBelow(path, group.path) ? FindGroup(group.children, path) : nullptr;
    if (below != nullptr) {
      return below;
    }
  }
  return nullptr;
}

void CutGroups(std::vector<GroupNode>& groups, std::size_t levels) {
  for (GroupNode& group : groups) {
    if (levels == 0) {
      group.children.clear();
    } else {
      CutGroups(group.children, levels - 1);
    }
  }
}

Json GroupsJson(std::vector<GroupNode>& groups) {
  Json array = Json::Array();
  for (GroupNode& group : groups) {
    Json object{{"path", std::move(group.path)}, {"name", std::move(group.name)}};
    for (JsonMember& member : group.row.Members()) {
      if (member.name != "Record Type" && member.name != "Path" && member.name != kIoLabel) {
        object.Members().push_back(std::move(member));
      }
    }
    object["children"] = GroupsJson(group.children);
    array.PushBack(std::move(object));
  }
  return array;
}

std::string GroupsText(const std::vector<GroupNode>& groups, const Screen& screen) {
  std::vector<std::string> headings{"Group"};
  for (const FigureColumn& column : kFigureColumns) {
    headings.emplace_back(column.heading);
  }
  std::vector<GroupLine> lines;
  AddLines(groups, 0, lines);
  const std::size_t room = RoomOfNames(lines, screen);
  Table table(std::move(headings), {true});
  for (GroupLine& line : lines) {
    std::vector<Cell> cells = std::move(line.figures);
    cells.insert(cells.begin(), Cell{NameCell(line, room)});
    table.AddRow(std::move(cells));
  }
  return table.Text(screen);
}
