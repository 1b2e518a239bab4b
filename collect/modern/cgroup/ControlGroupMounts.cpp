#include "collect/modern/cgroup/ControlGroupMounts.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "collect/modern/HostText.h"
#include "collect/modern/filesystem/Mountinfo.h"

namespace {

constexpr std::string_view kGroupTypeV1 = "cgroup";
constexpr std::string_view kGroupTypeV2 = "cgroup2";

struct ControllerName {
  std::string_view name;
  std::uint32_t bit;
};
constexpr ControllerName kControllerNames[] = {{"cpu", kGroupCpu},
                                               {"cpuacct", kGroupCpuAccounting},
                                               {"memory", kGroupMemory},
                                               {"blkio", kGroupBlockIo},
                                               {"pids", kGroupPids}};

/// A hierarchy as one of its mounts shows it.
struct GroupMount {
  ControlGroupHierarchy hierarchy;
  std::size_t rootLength = 0;  ///< of the path in the hierarchy that is mounted
};

/// The options of file systems of control groups by the ids of their mounts.
std::unordered_map<std::uint64_t, std::string_view> GroupOptions(std::string_view text) {
  std::unordered_map<std::uint64_t, std::string_view> options;
  MountLine mount;
  for (std::string_view line; NextTextLine(text, line);) {
    if (line.find(kGroupTypeV1) != std::string_view::npos && ParseMountLine(line, mount) &&
        mount.type == kGroupTypeV1) {
      options.emplace(mount.id, line.substr(line.rfind(' ') + 1));
    }
  }
  return options;
}

void TakeGroupOption(std::string_view option, ControlGroupHierarchy& hierarchy) {
  hierarchy.isNamed = hierarchy.isNamed || option == "name=systemd";
  for (const ControllerName& one : kControllerNames) {
    hierarchy.controllers |= option == one.name ? one.bit : 0U;
  }
}

void TakeGroupOptions(std::string_view options, ControlGroupHierarchy& hierarchy) {
  while (!options.empty()) {
    const std::string_view option = options.substr(0, options.find(','));
    TakeGroupOption(option, hierarchy);
    options.remove_prefix(std::min(option.size() + 1, options.size()));
  }
}

bool IsSameHierarchy(const ControlGroupHierarchy& one, const ControlGroupHierarchy& other) {
  return one.isUnified == other.isUnified && (one.isUnified || (one.isNamed && other.isNamed) ||
                                              (one.controllers & other.controllers) != 0);
}

/// No two hierarchies have a controller in common, so there are no more of them than controllers
/// and two.
void AddGroupMount(GroupMount mount, std::vector<GroupMount>& mounts) {
  const auto same = std::find_if(mounts.begin(), mounts.end(), [&](const GroupMount& other) {
    return IsSameHierarchy(mount.hierarchy, other.hierarchy);
  });
  if (same == mounts.end()) {
    mounts.push_back(std::move(mount));
  } else if (mount.rootLength < same->rootLength &&
             mount.hierarchy.controllers == same->hierarchy.controllers &&
             mount.hierarchy.isNamed == same->hierarchy.isNamed) {
    *same = std::move(mount);
  }
}

/// Each process is in all hierarchies, but in the root of those that nobody has sorted it into.
int CountingRank(const ControlGroupHierarchy& hierarchy) {
  if (hierarchy.isNamed || hierarchy.isUnified) {
    return hierarchy.isNamed ? 0 : 1;
  }
  const std::uint32_t ranks[] = {kGroupPids, kGroupMemory, kGroupCpuAccounting | kGroupCpu};
  int rank = 2;
  for (const std::uint32_t controllers : ranks) {
    if ((hierarchy.controllers & controllers) != 0) {
      return rank;
    }
    ++rank;
  }
  return rank;
}

}  // namespace

std::vector<ControlGroupHierarchy> ParseControlGroupMounts(std::string_view text) {
  const auto options = GroupOptions(text);
  std::vector<GroupMount> mounts;
  for (MountEntry& entry : ReachableMounts(ParseMountinfo(text).entries)) {
    GroupMount mount;
    mount.hierarchy.isUnified = entry.type == kGroupTypeV2;
    if (const auto found = options.find(entry.id);
        entry.type == kGroupTypeV1 && found != options.end()) {
      TakeGroupOptions(found->second, mount.hierarchy);
    }
    if (mount.hierarchy.isUnified || mount.hierarchy.isNamed || mount.hierarchy.controllers != 0) {
      mount.hierarchy.mountPoint = std::move(entry.mountPoint);
      mount.rootLength = entry.root.size();
      AddGroupMount(std::move(mount), mounts);
    }
  }
  std::vector<ControlGroupHierarchy> hierarchies;
  std::uint32_t free = kAllGroupControllers;
  for (GroupMount& mount : mounts) {
    free &= ~mount.hierarchy.controllers;
    hierarchies.push_back(std::move(mount.hierarchy));
  }
  for (ControlGroupHierarchy& hierarchy : hierarchies) {
    hierarchy.controllers |= hierarchy.isUnified ? free : 0U;
  }
  std::stable_sort(hierarchies.begin(), hierarchies.end(),
                   [](const ControlGroupHierarchy& left, const ControlGroupHierarchy& right) {
                     return CountingRank(left) < CountingRank(right);
                   });
  return hierarchies;
}
