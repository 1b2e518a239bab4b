#include "collect/process/NameCache.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <string>

#include "support/OsCalls.h"

namespace {

/// Owned names by identity.
using Names = std::map<int, std::string>;

Names& UserNames() {
  static Names names;
  return names;
}
Names& GroupNames() {
  static Names names;
  return names;
}

/// The look-up that both kinds share; `ask` returns the system's entry, `nameOf` its name.
template <class Entry, class Ask, class NameOf>
const char* Find(Names& names, Entry** out, int id, Ask ask, NameOf nameOf) {
  Entry* entry = nullptr;
  const char* name = nullptr;
  if (id == kNoIdentity) {
    name = "N/S";
  } else if (const auto known = names.find(id); known != names.end()) {
    name = known->second.c_str();
  } else if (entry = ask(); entry != nullptr && nameOf(*entry) != nullptr) {
    name = names.emplace(id, nameOf(*entry)).first->second.c_str();
  }
  if (out != nullptr) {
    *out = entry;
  }
  return name;
}

const char* FindUser(passwd** entry, int uid) {
  return Find(
      UserNames(), entry, uid, [uid] { return Os().getpwuid(static_cast<uid_t>(uid)); },
      [](const passwd& found) { return found.pw_name; });
}

const char* FindGroup(group** entry, int gid) {
  return Find(
      GroupNames(), entry, gid, [gid] { return Os().getgrgid(static_cast<gid_t>(gid)); },
      [](const group& found) { return found.gr_name; });
}

/// Tells a file from the one that stood in its place before; all zeros for none.
struct NameFileMark {
  ::dev_t device = 0;
  ::ino_t inode = 0;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  ::off_t size = 0;
  bool operator==(const NameFileMark&) const = default;
};
NameFileMark MarkOf(const char* path) {
  struct ::stat status {};
  if (Os().stat(path, &status) != 0) {
    return {};
  }
  return {status.st_dev, status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
          status.st_size};
}

}  // namespace

void ForgetOldNames() {
  constexpr std::time_t kLongestKept = 3600;
  static std::array<NameFileMark, 2> lastMarks;
  static std::time_t forgotten = 0;
  const std::array marks{MarkOf("/etc/passwd"), MarkOf("/etc/group")};
  const std::time_t now = Os().time(nullptr);
  if (marks != lastMarks || now < forgotten || now - forgotten >= kLongestKept) {
    ClearUserNames();
    ClearGroupNames();
    lastMarks = marks;
    forgotten = now;
  }
}

const char* UserName(passwd** entry, int uid) {
  static std::array<char, 32> unknown;
  if (const char* name = FindUser(entry, uid); name != nullptr) {
    return name;
  }
  std::snprintf(unknown.data(), unknown.size(), "N/A uid = %i", uid);
  return unknown.data();
}

const char* GroupName(group** entry, int gid) {
  static std::array<char, 32> unknown;
  if (const char* name = FindGroup(entry, gid); name != nullptr) {
    return name;
  }
  std::snprintf(unknown.data(), unknown.size(), "N/A gid = %i", gid);
  return unknown.data();
}

const char* KnownUserName(int uid) { return FindUser(nullptr, uid); }
const char* KnownGroupName(int gid) { return FindGroup(nullptr, gid); }

void ClearUserNames() { UserNames().clear(); }
void ClearGroupNames() { GroupNames().clear(); }
