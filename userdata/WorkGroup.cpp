#include "userdata/WorkGroup.h"

#include <cstring>
#include <new>

#include "support/OsCalls.h"
#include "support/TraceLog.h"
#include "userdata/WorkgroupFile.h"

namespace {

/// The size of the record fields that show lists, and the place of the mark of a text that is cut.
constexpr std::size_t kTextSize = 30;
constexpr std::size_t kCutMark = 28;

void ReadWorkgroups(WgMap& wgmap, const char* path) {
  mondWgFile file;
  if (file.mondInitFileAnalyze(path) != 0) {
    return;
  }
  WorkGroup* entry = nullptr;
  for (int rc = 0; (rc = file.mondGetWgFileEntry(&entry)) != -1;) {
    if (rc != 0) {
      continue;
    }
    std::unique_ptr<WorkGroup> group(entry);
    Trace(30, kInformation, "Workgroup name = %1", group->Name());
    Trace(30, kInformation, "users = %1", group->Users());
    Trace(30, kInformation, "groups = %1", group->Groups());
    Trace(30, kInformation, "programs = %1", group->Programs());
    wgmap[group->Name()] = std::move(group);
  }
}

}  // namespace

int WorkGroup::GetIniFile(WgMap& wgmap, const char* path) try {
  TraceEntry("WorkGroup::GetIniFile", path);
  ReadWorkgroups(wgmap, path);
  wgmap[kOtherWorkgroup] = std::make_unique<WorkGroup>(kOtherWorkgroup);
  TraceExit("WorkGroup::GetIniFile", 0);
  return 0;
} catch (const std::bad_alloc&) {
  TraceExit("WorkGroup::GetIniFile", 1);
  return 1;
}

WorkGroup::WorkGroup(const char* name) : m_name(name) {}

WorkGroup::WorkGroup(const WorkGroup& other)
    : count(other.count), totals(other.totals), m_name(other.m_name) {
  CopyLists(other);
}

WorkGroup& WorkGroup::operator=(const WorkGroup& other) {
  if (this != &other) {
    m_name = other.m_name;
    count = other.count;
    totals = other.totals;
    CopyLists(other);
  }
  return *this;
}

void WorkGroup::CopyLists(const WorkGroup& other) {
  for (std::size_t i = 0; i < kWorkgroupLists; ++i) {
    m_lists[i] = List();
    for (const Item& item : other.m_lists[i].items) {
      AddItem(static_cast<WorkgroupList>(i), item.text.c_str(), item.expression != nullptr);
    }
  }
}

const RegExp* WorkGroup::AddItem(WorkgroupList list, const char* text, bool isRegexp) {
  auto& [items, places, expressions] = m_lists[static_cast<std::size_t>(list)];
  if (places.contains(text)) {
    Trace(20, kWarning, "Duplicate Item %1 found in the workgroup file. Ignored", text);
    if (isRegexp) {
      Trace(30, kWarning, "Item is a regular expression");
    }
    return nullptr;
  }
  Item& item = items.emplace_back();
  item.text = text;
  if (isRegexp) {
    item.expression = std::make_unique<RegExp>(text);
    expressions.push_back(items.size() - 1);
  }
  places.emplace(item.text, items.size() - 1);
  return item.expression.get();
}

const WorkGroup::Item* WorkGroup::FindItem(WorkgroupList list, const char* subject) const {
  const auto& [items, places, expressions] = At(list);
  const auto same = items.empty() ? places.end() : places.find(subject);
  const bool isLiteral = same != places.end() && items[same->second].expression == nullptr;
  const std::size_t literal = isLiteral ? same->second : items.size();
  for (const std::size_t place : expressions) {
    if (place > literal) {
      break;
    }
    if (items[place].expression->match(subject) != 0) {
      return &items[place];
    }
  }
  return isLiteral ? &items[literal] : nullptr;
}

bool WorkGroup::MatchItem(WorkgroupList list, const char* subject) const {
  return subject != nullptr && FindItem(list, subject) != nullptr;
}

WorkGroup::Found WorkGroup::FindFirst(const char* user, const char* group, const char* program,
                                      const char* arguments) const {
  struct Test {
    WorkgroupList list;
    const char* subject;
  };
  for (const Test& test :
       {Test{WorkgroupList::kUsers, user}, Test{WorkgroupList::kGroups, group},
        Test{WorkgroupList::kPrograms, program}, Test{WorkgroupList::kUsers02, user},
        Test{WorkgroupList::kGroups02, group}, Test{WorkgroupList::kPrograms02, program},
        Test{WorkgroupList::kArguments02, arguments}}) {
    const Item* item = test.subject == nullptr ? nullptr : FindItem(test.list, test.subject);
    if (item != nullptr) {
      return {test.list, item};
    }
  }
  return {WorkgroupList::kUsers, nullptr};
}

std::optional<WorkGroup::Rule> WorkGroup::FindRule(const char* user, const char* group,
                                                   const char* program,
                                                   const char* arguments) const {
  const auto [list, item] = FindFirst(user, group, program, arguments);
  if (item == nullptr) {
    return std::nullopt;
  }
  return Rule{list, item->text, item->expression != nullptr};
}

bool WorkGroup::Matches(const char* user, const char* group, const char* program,
                        const char* arguments) const {
  return FindFirst(user, group, program, arguments).item != nullptr;
}

const char* WorkGroup::ListText(WorkgroupList list) const {
  static std::array<std::array<char, kTextSize>, kWorkgroupLists> buffers;
  std::array<char, kTextSize>& buffer = buffers[static_cast<std::size_t>(list)];
  buffer.fill('\0');
  const std::deque<Item>& items = At(list).items;
  std::size_t used = 0;
  for (const Item& item : items) {
    const std::size_t room = kTextSize - used;
    if (item.text.size() >= room) {
      std::memcpy(buffer.data() + used, item.text.data(), room - 1);
      buffer[kCutMark] = '>';
      return buffer.data();
    }
    std::memcpy(buffer.data() + used, item.text.data(), item.text.size());
    used += item.text.size();
    if (&item == &items.back()) {
      break;
    }
    if (kTextSize - used < 2) {
      buffer[kCutMark] = '>';
      break;
    }
    buffer[used++] = ',';
  }
  return buffer.data();
}

void WorkGroup::Add(const WorkgroupDelta& delta) {
  ++count;
  if (delta.startTime == 0) {
    return;
  }
  totals.contextSwitches += delta.contextSwitches;
  totals.ioKbytes += delta.ioKbytes;
  totals.blockOps += delta.blockOps;
  totals.majorFaults += delta.majorFaults;
  totals.reads += delta.reads;
  totals.writes += delta.writes;
  totals.realMemKbytes += delta.realMemKbytes;
  totals.virtualMemKbytes += delta.virtualMemKbytes;
  totals.swaps += delta.swaps;
  totals.systemCpu += delta.systemCpu;
  totals.userCpu += delta.userCpu;
  totals.startTime = delta.startTime;
  totals.elapsed += static_cast<std::uint32_t>(Os().time(nullptr)) - delta.startTime;
}
