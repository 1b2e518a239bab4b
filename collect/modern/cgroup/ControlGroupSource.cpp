#include "collect/modern/cgroup/ControlGroupSource.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "collect/modern/HostFolder.h"
#include "collect/modern/HostText.h"
#include "collect/modern/cgroup/ControlGroupFolder.h"
#include "collect/modern/cgroup/ControlGroupMounts.h"
#include "collect/modern/cgroup/ControlGroupName.h"
#include "collect/modern/filesystem/Mountinfo.h"

namespace {

constexpr const char* kOwnMountinfo = "/proc/self/mountinfo";
constexpr std::size_t kDeepestGroup = 64;
constexpr std::size_t kMostLookedAt = 200000;
constexpr std::size_t kNoGroupRow = static_cast<std::size_t>(-1);

void AddToldGroupFigure(double& sum, double part) {
  if (IsTold(part)) {
    sum = IsTold(sum) ? sum + part : part;
  }
}

/// The folder that is mounted at a point, without a step over a link: a captured tree may hold one
/// where the host has none.
HostFolder OpenGroupMount(const char* prefix, std::string_view mountPoint) {
  HostFolder folder(*prefix == '\0' ? "/" : prefix);
  while (folder.IsOpen() && !mountPoint.empty()) {
    const std::string name(mountPoint.substr(0, mountPoint.find('/')));
    mountPoint.remove_prefix(std::min(name.size() + 1, mountPoint.size()));
    if (!name.empty() && name != "..") {
      folder = folder.Below(name.c_str(), false);
    }
  }
  return folder;
}

/// The folders of one group, by hierarchy; those without it are not open.
using GroupFolders = std::vector<HostFolder>;

struct GroupChild {
  std::string name;
  std::uint32_t hierarchies = 0;  ///< bits of those that have it
};

/// A group whose groups are being read.
struct OpenGroup {
  GroupFolders folders;
  std::vector<GroupChild> children;
  std::size_t next = 0;
  std::size_t pathLength = 0;
  std::size_t row = kNoGroupRow;
  std::size_t counting = 0;  ///< the hierarchy that its processes are counted in
  double processes = kNotTold;
  double threads = kNotTold;
  bool lacksThreads = false;  ///< its threads are the sum of those below it
  bool isPartial = false;     ///< not all of the groups below it have been looked at
};

/// Goes through all hierarchies at once, depth first. Only the folders on one path are open.
class GroupWalk {
 public:
  GroupWalk(std::vector<ControlGroup>& groups, const ControlGroupWalk& walk,
            const std::vector<ControlGroupHierarchy>& hierarchies)
      : m_groups(groups), m_walk(walk), m_hierarchies(hierarchies) {}

  void Run(GroupFolders roots) {
    Enter(std::move(roots));
    while (!m_open.empty()) {
      OpenGroup& group = m_open.back();
      if (group.next == group.children.size()) {
        Leave();
      } else {
        const GroupChild& child = group.children[group.next++];
        m_path.resize(group.pathLength);
        m_path += '/';
        m_path += child.name;
        Enter(FoldersBelow(group, child));
      }
    }
    ControlGroupFolder::EndWalk();
  }

 private:
  [[nodiscard]] std::size_t Depth() const { return m_open.size(); }

  GroupFolders FoldersBelow(const OpenGroup& group, const GroupChild& child) const {
    GroupFolders folders(m_hierarchies.size());
    for (std::size_t place = 0; place < folders.size(); ++place) {
      if ((child.hierarchies >> place & 1U) != 0) {
        folders[place] = group.folders[place].Below(child.name.c_str(), false);
      }
    }
    return folders;
  }

  /// Takes the group at m_path; none if it has vanished.
  void Enter(GroupFolders folders) {
    OpenGroup group;
    group.folders = std::move(folders);
    if (!CountProcesses(group)) {
      return;
    }
    group.pathLength = m_path.size();
    ControlGroupName name = NameControlGroup(m_path);
    const bool isKept =
        Depth() <= static_cast<std::size_t>(std::max(m_walk.depth, 0)) || IsNotableGroup(name);
    if (isKept && m_groups.size() < m_walk.mostGroups) {
      group.row = m_groups.size();
      AddRow(group, std::move(name));
    }
    ReadThreads(group);
    ListChildren(group);
    m_open.push_back(std::move(group));
  }

  /// In the first hierarchy that has the group. False if none has.
  bool CountProcesses(OpenGroup& group) {
    for (group.counting = 0; group.counting < group.folders.size(); ++group.counting) {
      HostFolder& folder = group.folders[group.counting];
      if (folder.IsOpen() && m_reader.CountProcesses(folder, group.processes)) {
        return true;
      }
      folder = HostFolder();
    }
    return false;
  }

  void AddRow(const OpenGroup& group, ControlGroupName name) {
    ControlGroup& row = m_groups.emplace_back();
    row.path = m_path.empty() ? "/" : m_path;
    row.kind = name.kind;
    row.runtime = name.runtime;
    row.containerId = std::move(name.containerId);
    row.containerName = std::move(name.containerName);
    row.pod = std::move(name.pod);
    // Version 2 comes last: it only tells what version 1 has not.
    for (const bool isUnified : {false, true}) {
      for (std::size_t place = 0; place < m_hierarchies.size(); ++place) {
        if (m_hierarchies[place].isUnified == isUnified && group.folders[place].IsOpen()) {
          ReadFigures(group.folders[place], m_hierarchies[place], row);
        }
      }
    }
  }

  void ReadFigures(const HostFolder& folder, const ControlGroupHierarchy& hierarchy,
                   ControlGroup& row) {
    if (hierarchy.isUnified) {
      m_reader.ReadVersion2(folder, hierarchy.controllers, row);
    } else {
      m_reader.ReadVersion1(folder, hierarchy.controllers, row);
    }
  }

  /// Only where a row takes them, the group's own or one above it.
  void ReadThreads(OpenGroup& group) {
    if (group.row == kNoGroupRow && (m_open.empty() || !m_open.back().lacksThreads)) {
      return;
    }
    for (std::size_t place = 0; place < m_hierarchies.size(); ++place) {
      if ((m_hierarchies[place].controllers & kGroupPids) != 0 && group.folders[place].IsOpen()) {
        group.threads = m_reader.Threads(group.folders[place]);
      }
    }
    group.lacksThreads = !IsTold(group.threads);
    if (group.lacksThreads) {
      group.threads = m_reader.CountThreads(group.folders[group.counting],
                                            m_hierarchies[group.counting].isUnified);
    }
  }

  void ListChildren(OpenGroup& group) {
    std::vector<GroupChild> found;
    for (std::size_t place = 0; place < group.folders.size(); ++place) {
      if (!group.folders[place].IsOpen()) {
        continue;
      }
      std::size_t left = Depth() < kDeepestGroup ? kMostLookedAt - m_found : 0;
      group.folders[place].ForEach([&](const char* name, bool isFolder) {
        if (!isFolder) {
          return true;
        }
        if (left == 0) {
          group.isPartial = true;
          return false;
        }
        --left;
        found.push_back({name, std::uint32_t{1} << place});
        return true;
      });
    }
    std::sort(found.begin(), found.end(), [](const GroupChild& left, const GroupChild& right) {
      return left.name < right.name;
    });
    for (GroupChild& child : found) {
      if (!group.children.empty() && group.children.back().name == child.name) {
        group.children.back().hierarchies |= child.hierarchies;
      } else {
        group.children.push_back(std::move(child));
      }
    }
    m_found = std::min(m_found + group.children.size(), kMostLookedAt);
  }

  void Leave() {
    const OpenGroup group = std::move(m_open.back());
    m_open.pop_back();
    if (group.row != kNoGroupRow) {
      ControlGroup& row = m_groups[group.row];
      row.processes = group.isPartial ? kNotTold : group.processes;
      row.threads = group.isPartial && group.lacksThreads ? kNotTold : group.threads;
    }
    // A group that is not in the hierarchy where those above it count has its processes elsewhere
    // in that one, so they are counted there.
    if (m_open.empty() || m_open.back().counting != group.counting) {
      return;
    }
    OpenGroup& above = m_open.back();
    above.isPartial = above.isPartial || group.isPartial;
    AddToldGroupFigure(above.processes, group.processes);
    if (above.lacksThreads) {
      AddToldGroupFigure(above.threads, group.threads);
    }
  }

  std::vector<ControlGroup>& m_groups;
  const ControlGroupWalk& m_walk;
  const std::vector<ControlGroupHierarchy>& m_hierarchies;
  ControlGroupFolder m_reader;
  std::vector<OpenGroup> m_open;  ///< from the root to where the walk is
  std::string m_path;             ///< of the group that is entered; the root's is empty
  std::size_t m_found = 0;        ///< groups so far, the root aside
};

}  // namespace

void ReadControlGroups(std::vector<ControlGroup>& groups, const ControlGroupWalk& walk) {
  groups.clear();
  std::string text;
  MountView view = ViewOfMounts();
  if (!ReadHostText(view.table, text)) {
    view = {kOwnMountinfo, ""};
    if (!ReadHostText(view.table, text)) {
      return;
    }
  }
  const std::vector<ControlGroupHierarchy> hierarchies = ParseControlGroupMounts(text);
  GroupFolders roots;
  for (const ControlGroupHierarchy& hierarchy : hierarchies) {
    roots.push_back(OpenGroupMount(view.prefix, hierarchy.mountPoint));
  }
  GroupWalk(groups, walk, hierarchies).Run(std::move(roots));
}
