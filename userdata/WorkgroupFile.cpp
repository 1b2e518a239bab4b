#include "userdata/WorkgroupFile.h"

#include <optional>
#include <utility>

#include "support/TrimmedText.h"

namespace {

constexpr int kWorkgroupKeyword = 1;
constexpr int kRegexpKeyword = 5;
/// What the records show of a list.
constexpr std::int32_t kShownLength = 30;
/// What they show of a workgroup's name.
constexpr std::size_t kShownName = 29;

/// The list that a keyword index stands for, and its printed form.
struct NameKind {
  int index;
  WorkgroupList list;
  const char* name;
  bool allowsQuotes;
};
constexpr std::array kNameKinds{
    NameKind{2, WorkgroupList::kUsers, "Users", false},
    NameKind{3, WorkgroupList::kGroups, "Groups", false},
    NameKind{4, WorkgroupList::kPrograms, "Programs", false},
    NameKind{6, WorkgroupList::kUsers02, "Users_02", true},
    NameKind{7, WorkgroupList::kGroups02, "Groups_02", true},
    NameKind{8, WorkgroupList::kPrograms02, "Programs_02", true},
    NameKind{9, WorkgroupList::kArguments02, "Arguments_02", true},
};

const NameKind* FindKind(int index) {
  for (const NameKind& kind : kNameKinds) {
    if (kind.index == index) {
      return &kind;
    }
  }
  return nullptr;
}

const char* PrintedForm(WorkgroupList list) {
  for (const NameKind& kind : kNameKinds) {
    if (kind.list == list) {
      return kind.name;
    }
  }
  return "";
}

/// Which lists have had their check, for the life of the process.
std::array<bool, kWorkgroupLists> g_isLengthChecked{};

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

using Items = std::vector<std::string>;

/// Items are parted by white space and commas.
Items SplitPlain(std::string_view value) {
  Items items(1);
  for (const char c : value) {
    if (c == ',' || kWhiteSpace.find(c) != std::string_view::npos) {
      items.emplace_back();
    } else {
      items.back() += c;
    }
  }
  return items;
}

/// Splits a value that begins with a double quote; nothing if a quote stays open. In a quote, two
/// double quotes stand for one, and one that ends no item is dropped.
std::optional<Items> SplitQuoted(std::string_view value) {
  Items items(1);
  bool isQuoted = true;
  bool isNewItem = true;
  for (std::size_t i = 1; i < value.size(); ++i) {
    const char c = value[i];
    const char next = i + 1 < value.size() ? value[i + 1] : ',';
    if (isQuoted && c == '"') {
      if (next == ',') {
        isQuoted = false;
        isNewItem = true;
      } else if (next == '"') {
        items.back() += c;
        ++i;
      }
    } else if (isQuoted) {
      items.back() += c;
    } else if (c == ',' || IsBlank(c)) {
      items.emplace_back();
      isNewItem = true;
    } else if (c == '"' && isNewItem) {
      isQuoted = true;
    } else {
      items.back() += c;
      isNewItem = false;
    }
  }
  return isQuoted ? std::nullopt : std::optional(items);
}

/// Where a clause that begins with a quoted item ends: the place of its '}', or npos.
std::size_t FindQuotedEnd(std::string_view text, std::size_t begin) {
  bool isQuoted = true;
  bool isNewItem = false;
  for (std::size_t i = begin + 1; i < text.size(); ++i) {
    const char c = text[i];
    const char next = i + 1 < text.size() ? text[i + 1] : '\0';
    if (isQuoted) {
      if (c == '"' && next == '}') {
        return i + 1;
      }
      isQuoted = !(c == '"' && next == ',');
    } else if (c == '}') {
      return i;
    } else if (c == '"' && isNewItem) {
      isQuoted = true;
    } else {
      isNewItem = c == ',' || IsBlank(c);
    }
  }
  return std::string_view::npos;
}

}  // namespace

void mondWgFile::ResetLengthChecks() { g_isLengthChecked.fill(false); }

int mondWgFile::mondInitFileAnalyze(const char* path) {
  const int rc = mondFile::mondInitFileAnalyze(path);
  if (rc == 0) {
    for (const char* keyword : {"workgroup", "users", "groups", "programs", "users_02", "groups_02",
                                "programs_02", "arguments_02", "regexp"}) {
      AddKeyword(keyword);
    }
  }
  return rc;
}

int mondWgFile::IndexOf(std::string_view key) {
  static constexpr std::array kKeywords{
      Keyword{"workgroup", kWorkgroupKeyword},
      Keyword{"users", 2},
      Keyword{"groups", 3},
      Keyword{"programs", 4},
      Keyword{"regexp", kRegexpKeyword},
      Keyword{"users_02", 6},
      Keyword{"groups_02", 7},
      Keyword{"programs_02", 8},
      Keyword{"arguments_02", 9},
  };
  return Classify(key, kKeywords);
}

int mondWgFile::mondGetWgFileEntry(WorkGroup** out) {
  TraceEntry("mondWgFile::mondGetWgFileEntry");
  const Entry* entry = NextEntry();
  if (entry == nullptr) {
    TraceExit("mondWgFile::mondGetWgFileEntry", -1);
    return -1;
  }
  m_lengths.fill(0);
  std::unique_ptr<WorkGroup> group;
  for (const x_mondline& line : *entry) {
    if (!TakeLine(group, line)) {
      TraceExit("mondWgFile::mondGetWgFileEntry", -2);
      return -2;
    }
  }
  NoteName(*group, entry->front());
  *out = group.release();
  TraceExit("mondWgFile::mondGetWgFileEntry", 0);
  return 0;
}

bool mondWgFile::TakeLine(std::unique_ptr<WorkGroup>& group, const x_mondline& line) {
  const int index = IndexOf(line.key);
  if (index == kWorkgroupKeyword) {
    if (group == nullptr) {
      group = std::make_unique<WorkGroup>(line.value.c_str());
    }
    group->SetName(line.value.c_str());
    return true;
  }
  m_badExpressions.clear();
  WorkGroup* target = group.get();
  const int rc = index == kRegexpKeyword ? ParseRegexpr(&target, line.value)
                                         : AddItems(*group, index, line.value, false);
  for (const std::string& reason : m_badExpressions) {
    AddFault(line, reason);
  }
  if (rc == 0) {
    return true;
  }
  AddFault(line, m_refusal + "; the workgroup \"" + group->Name() + "\" is dropped");
  ReportEntryLine(index == kRegexpKeyword ? "Invalid Regexp found in file (%1) at line (%2)"
                                          : "Invalid line found in file (%1) at line (%2)",
                  line);
  return false;
}

void mondWgFile::NoteName(const WorkGroup& group, const x_mondline& line) {
  const std::string& name = group.Name();
  if (name == kOtherWorkgroup) {
    AddFault(line, "the name \"Other\" is the built-in workgroup's; this one is not used");
    return;
  }
  // All names that begin alike stand together.
  const auto near = m_names.lower_bound(name.substr(0, kShownName));
  if (m_names.contains(name)) {
    AddFault(line, "a second workgroup of the name \"" + name + "\" replaces the first");
  } else if (near != m_names.end() && name.size() >= kShownName &&
             near->starts_with(name.substr(0, kShownName))) {
    AddFault(line, "the names \"" + *near + "\" and \"" + name +
                       "\" agree in 29 characters, which is all that the records show of them");
  }
  m_names.insert(name);
}

int mondWgFile::Refuse(int code, const std::string& reason) {
  m_refusal = reason;
  return code;
}

int mondWgFile::AddItems(WorkGroup& group, int index, const std::string& value, bool isRegexp) {
  const NameKind* kind = FindKind(index);
  if (kind == nullptr) {
    return Refuse(-2, "this keyword takes no names");
  }
  Items items;
  if (kind->allowsQuotes && value.empty()) {
    return Refuse(-1, "nothing stands behind the '='");
  }
  if (kind->allowsQuotes && value.front() == '"') {
    std::optional<Items> split = SplitQuoted(value);
    if (!split) {
      return Refuse(-1, "the quote is not closed");
    }
    items = std::move(*split);
  } else {
    items = SplitPlain(value);
  }
  bool isAnyAdded = false;
  for (const std::string& untrimmed : items) {
    if (untrimmed.empty()) {
      continue;
    }
    const std::string item(Trimmed(untrimmed, kWhiteSpace));
    if (item.empty()) {
      m_badExpressions.emplace_back("an item is blank");
    }
    isAnyAdded = true;
    const RegExp* expression = group.AddItem(kind->list, item.c_str(), isRegexp);
    if (expression != nullptr && !expression->IsCompiled()) {
      m_badExpressions.push_back("the expression \"" + item +
                                 "\" does not compile: " + expression->CompileError());
    }
    CheckLength(group, kind->list, item.size());
  }
  return isAnyAdded ? 0 : Refuse(-2, "there is no name in the list");
}

void mondWgFile::CheckLength(const WorkGroup& group, WorkgroupList list, std::size_t length) {
  const auto place = static_cast<std::size_t>(list);
  m_lengths[place] += static_cast<std::int32_t>(length);
  if (g_isLengthChecked[place]) {
    return;
  }
  g_isLengthChecked[place] = true;
  if (m_lengths[place] >= kShownLength) {
    Trace(20, kWarning, "Name %1 in %2 workgroup exceeded %3 characters. Name will be truncated",
          PrintedForm(list), group.Name(), kShownLength);
  }
}

int mondWgFile::ParseRegexpr(WorkGroup** wg, const std::string& value) {
  for (std::size_t at = 0;;) {
    while (at < value.size() && IsBlank(value[at])) {
      ++at;
    }
    if (at == value.size() || value[at] != '{') {
      return Refuse(-2, "a clause does not begin with '{'");
    }
    const std::size_t equals = value.find('=', at);
    if (equals == std::string::npos) {
      return Refuse(-2, "no '=' in a clause");
    }
    const std::string key = value.substr(at + 1, equals - at - 1);
    const int index = IndexOf(key);
    const NameKind* kind = FindKind(index);
    if (index == -1) {
      return Refuse(-2, "unknown keyword \"" + key + "\" in a clause");
    }
    const std::size_t begin = equals + 1;
    const bool isQuoted =
        kind != nullptr && kind->allowsQuotes && begin < value.size() && value[begin] == '"';
    const std::size_t end = isQuoted ? FindQuotedEnd(value, begin) : value.find('}', begin);
    if (end == std::string::npos) {
      return Refuse(-2, "a clause is not closed by '}'");
    }
    const bool isAnother = end + 1 < value.size() && value[end + 1] == ',';
    if (!isAnother && end + 1 != value.size()) {
      return Refuse(-2, "something other than ',' stands behind a clause");
    }
    const int rc = AddItems(**wg, index, value.substr(begin, end - begin), true);
    if (rc < 0 || !isAnother) {
      return rc;
    }
    at = end + 2;
  }
}
