#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "support/RegExp.h"

/// Figures of processes. As a delta: one process since the last pass; as totals: the sums of a
/// workgroup. Counters wrap at 32 bits, sums of memory don't. CPU sums don't either: as hundredths
/// those are 497 days, soon used up by many processors. A process number in new hands can bring
/// them below zero.
struct WorkgroupTotals {
  std::uint32_t contextSwitches = 0;
  std::uint32_t ioKbytes = 0;
  std::uint32_t blockOps = 0;
  std::uint32_t majorFaults = 0;
  std::uint32_t reads = 0;
  std::uint32_t writes = 0;
  std::uint64_t realMemKbytes = 0;
  std::uint64_t virtualMemKbytes = 0;
  std::uint32_t swaps = 0;
  std::int64_t systemCpu = 0;   ///< hundredths of a second
  std::int64_t userCpu = 0;     ///< hundredths of a second
  std::uint32_t startTime = 0;  ///< seconds since the epoch
  std::uint32_t elapsed = 0;    ///< seconds
};
using WorkgroupDelta = WorkgroupTotals;

/// The lists of a workgroup, in the order in which it holds them.
enum class WorkgroupList {
  kUsers,
  kGroups,
  kPrograms,
  kArguments02,
  kUsers02,
  kGroups02,
  kPrograms02,
};
inline constexpr std::size_t kWorkgroupLists = 7;

/// The built-in workgroup of the processes that no other one takes.
inline constexpr const char* kOtherWorkgroup = "Other";

class WorkGroup;
/// Workgroups by name, in byte-wise order.
using WgMap = std::map<std::string, std::unique_ptr<WorkGroup>>;

/// A named set of processes, told by user, group, program or argument text. Each list holds literal
/// texts and regular expressions in order of entry; an empty list matches nothing.
class WorkGroup {
 public:
  explicit WorkGroup(const char* name);
  /// Compile the regular expressions anew.
  WorkGroup(const WorkGroup& other);
  WorkGroup& operator=(const WorkGroup& other);
  ~WorkGroup() = default;

  /// Reads the workgroup definition file `path`, which stands under no prefix, into `wgmap`.
  /// "Other" is always there in the end, and alone if the file can't be read. 0, or 1 if memory ran
  /// out.
  [[nodiscard]] static int GetIniFile(WgMap& wgmap, const char* path);

  [[nodiscard]] const std::string& Name() const { return m_name; }
  void SetName(const char* name) { m_name = name; }

  /// Adds a text at the end of a list, unless the list holds the same text already, be it a literal
  /// or a regular expression. The new expression, or null if none was made.
  const RegExp* AddItem(WorkgroupList list, const char* item, bool isRegexp);
  /// Whether any item of a list matches.
  [[nodiscard]] bool MatchItem(WorkgroupList list, const char* subject) const;

  void AddUsers(const char* item, bool re) { AddItem(WorkgroupList::kUsers, item, re); }
  void AddGroups(const char* item, bool re) { AddItem(WorkgroupList::kGroups, item, re); }
  void AddPrograms(const char* item, bool re) { AddItem(WorkgroupList::kPrograms, item, re); }
  void AddArguments02(const char* item, bool re) { AddItem(WorkgroupList::kArguments02, item, re); }
  void AddUsers02(const char* item, bool re) { AddItem(WorkgroupList::kUsers02, item, re); }
  void AddGroups02(const char* item, bool re) { AddItem(WorkgroupList::kGroups02, item, re); }
  void AddPrograms02(const char* item, bool re) { AddItem(WorkgroupList::kPrograms02, item, re); }

  /// 1 or 0.
  [[nodiscard]] int MatchUsers(const char* s) const { return MatchItem(WorkgroupList::kUsers, s); }
  [[nodiscard]] int MatchGroups(const char* s) const {
    return MatchItem(WorkgroupList::kGroups, s);
  }
  [[nodiscard]] int MatchPrograms(const char* s) const {
    return MatchItem(WorkgroupList::kPrograms, s);
  }
  [[nodiscard]] int MatchArguments02(const char* s) const {
    return MatchItem(WorkgroupList::kArguments02, s);
  }
  [[nodiscard]] int MatchUsers02(const char* s) const {
    return MatchItem(WorkgroupList::kUsers02, s);
  }
  [[nodiscard]] int MatchGroups02(const char* s) const {
    return MatchItem(WorkgroupList::kGroups02, s);
  }
  [[nodiscard]] int MatchPrograms02(const char* s) const {
    return MatchItem(WorkgroupList::kPrograms02, s);
  }

  /// The items of a list, joined by ",", at most 29 characters; one that is cut ends in ">". Each
  /// getter has a static buffer, which its next call overwrites.
  [[nodiscard]] const char* Users() const { return ListText(WorkgroupList::kUsers); }
  [[nodiscard]] const char* Groups() const { return ListText(WorkgroupList::kGroups); }
  [[nodiscard]] const char* Programs() const { return ListText(WorkgroupList::kPrograms); }
  [[nodiscard]] const char* Arguments02() const { return ListText(WorkgroupList::kArguments02); }
  [[nodiscard]] const char* Users02() const { return ListText(WorkgroupList::kUsers02); }
  [[nodiscard]] const char* Groups02() const { return ListText(WorkgroupList::kGroups02); }
  [[nodiscard]] const char* Programs02() const { return ListText(WorkgroupList::kPrograms02); }

  /// Counts a process. Its figures count only if it has a start time; `elapsed` then grows by its
  /// age.
  void Add(const WorkgroupDelta& delta);

  /// One item, as the definition file has it.
  struct Rule {
    WorkgroupList list;
    std::string text;
    bool isRegexp;
  };
  /// The first item that takes a process, in the order of the tests: users, groups, programs, the
  /// same of the "_02" lists, arguments.
  [[nodiscard]] std::optional<Rule> FindRule(const char* user, const char* group,
                                             const char* program, const char* arguments) const;
  /// Whether FindRule finds one.
  [[nodiscard]] bool Matches(const char* user, const char* group, const char* program,
                             const char* arguments) const;

  std::uint32_t count = 0;  ///< processes of this pass
  WorkgroupTotals totals;

 private:
  struct Item {
    std::string text;
    std::unique_ptr<RegExp> expression;  ///< null for a literal
  };
  struct List {
    std::deque<Item> items;  // a deque, since `places` refers into it
    std::unordered_map<std::string_view, std::size_t> places;
    std::vector<std::size_t> expressions;  ///< places of those, in order
  };
  struct Found {
    WorkgroupList list;
    const Item* item;
  };

  [[nodiscard]] const List& At(WorkgroupList list) const {
    return m_lists[static_cast<std::size_t>(list)];
  }
  /// The first one that matches; costs no more for many literals than for one.
  [[nodiscard]] const Item* FindItem(WorkgroupList list, const char* subject) const;
  [[nodiscard]] Found FindFirst(const char* user, const char* group, const char* program,
                                const char* arguments) const;
  [[nodiscard]] const char* ListText(WorkgroupList list) const;
  void CopyLists(const WorkGroup& other);

  std::string m_name;
  std::array<List, kWorkgroupLists> m_lists;
};
