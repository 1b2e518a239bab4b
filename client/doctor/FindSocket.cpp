#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <vector>

#include "client/doctor/FindFacts.h"
#include "support/OsCalls.h"

namespace {

std::string UserName(uid_t user) {
  const ::passwd* entry = Os().getpwuid(user);
  return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::string GroupName(gid_t group) {
  const ::group* entry = Os().getgrgid(group);
  return entry == nullptr ? std::to_string(group) : entry->gr_name;
}

bool IsInGroup(gid_t group) {
  const int count = ::getgroups(0, nullptr);
  std::vector<gid_t> groups(count > 0 ? static_cast<std::size_t>(count) : 0);
  const int found = ::getgroups(count > 0 ? count : 0, groups.data());
  groups.resize(found > 0 ? static_cast<std::size_t>(found) : 0);
  groups.push_back(::getegid());
  return std::ranges::find(groups, group) != groups.end();
}

/// Whether the group's entry names the user.
bool IsListed(gid_t group, const std::string& user) {
  const ::group* entry = Os().getgrgid(group);
  for (char** member = entry == nullptr ? nullptr : entry->gr_mem;
       member != nullptr && *member != nullptr; ++member) {
    if (user == std::string_view(*member)) {
      return true;
    }
  }
  return false;
}

/// The socket's own state or, where a folder bars the way, that of the deepest folder that can be
/// looked at, which is the one whose group may pass.
bool LookAt(const std::string& path, struct ::stat& status) {
  std::filesystem::path place = path;
  while (!place.empty()) {
    if (::stat(place.c_str(), &status) == 0) {
      return true;
    }
    if (errno != EACCES) {
      return false;
    }
    const std::filesystem::path above = place.parent_path();
    place = above == place ? "" : above;
  }
  return false;
}

}  // namespace

SocketFacts FindSocket(const std::string& path) {
  SocketFacts facts;
  facts.path = path;
  const uid_t self = ::geteuid();
  facts.user = UserName(self);
  facts.isRoot = self == 0;
  struct ::stat status {};
  facts.error = ::stat(path.c_str(), &status) == 0 ? 0 : errno;
  facts.isSocket = facts.error == 0 && S_ISSOCK(status.st_mode);
  if (facts.isSocket || (facts.error == EACCES && LookAt(path, status))) {
    facts.owner = UserName(status.st_uid);
    facts.group = GroupName(status.st_gid);
    facts.isRootsGroup = status.st_gid == 0;
    facts.isOwner = status.st_uid == self;
    facts.isGroupWritable = (status.st_mode & S_IWGRP) != 0;
    facts.isInGroup = IsInGroup(status.st_gid);
    facts.isListed = IsListed(status.st_gid, facts.user);
  }
  return facts;
}
