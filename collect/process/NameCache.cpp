#include "collect/process/NameCache.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "support/OsCalls.h"

namespace {

/// What the system has last told of an identity.
struct KeptName {
  std::optional<std::string> name;
  std::uint64_t generation = 0;  ///< of the names when it was asked
  std::uint64_t turn = 0;        ///< likewise
};
/// Owned names by identity.
struct Names {
  std::map<int, KeptName> kept;
  /// A name that is kept of another one is asked for anew. Before the first one what the system
  /// does not know is not kept.
  std::uint64_t generation = 0;
  std::uint64_t turn = 0;  ///< the same of identities without a name

  [[nodiscard]] bool IsOld(const KeptName& one) const {
    return one.name ? one.generation != generation : one.turn != turn;
  }
};

Names& UserNames() {
  static Names names;
  return names;
}
Names& GroupNames() {
  static Names names;
  return names;
}

/// Whether a look-up may do better the next time; all else says that there is no such identity, or
/// that who would know it is away.
bool IsPassing(int code) {
  return code == EINTR || code == EIO || code == EMFILE || code == ENFILE || code == ENOMEM ||
         code == ERANGE;
}

/// The look-up that both kinds share; `ask` returns the system's entry, `nameOf` its name.
template <class Entry, class Ask, class NameOf>
const char* Find(Names& names, Entry** out, int id, Ask ask, NameOf nameOf) {
  Entry* entry = nullptr;
  const char* name = nullptr;
  const auto known = names.kept.find(id);
  if (id == kNoIdentity) {
    name = "N/S";
  } else if (known != names.kept.end() && !names.IsOld(known->second)) {
    name = known->second.name ? known->second.name->c_str() : nullptr;
  } else {
    errno = 0;
    entry = ask();
    const bool isFound = entry != nullptr && nameOf(*entry) != nullptr;
    if (isFound || (names.generation != 0 && !IsPassing(errno))) {
      KeptName& kept = names.kept[id];
      kept.generation = names.generation;
      kept.turn = names.turn;
      // Who knew the name may be away.
      kept.name = isFound ? std::optional<std::string>(nameOf(*entry)) : std::move(kept.name);
      name = kept.name ? kept.name->c_str() : nullptr;
    } else if (known != names.kept.end() && known->second.name) {
      name = known->second.name->c_str();
    }
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
  std::int64_t seconds = 0;  ///< of its last change, also of its times
  std::int64_t nanoseconds = 0;
  ::off_t size = 0;
  bool operator==(const NameFileMark&) const = default;
};
NameFileMark MarkOf(const char* path) {
  struct ::stat status {};
  if (Os().stat(path, &status) != 0) {
    return {};
  }
  return {status.st_dev, status.st_ino, status.st_ctim.tv_sec, status.st_ctim.tv_nsec,
          status.st_size};
}

}  // namespace

void RenewOldNames() {
  constexpr std::time_t kLongestKept = 3600;
  constexpr std::time_t kLongestWithout = 60;
  static std::array<NameFileMark, 2> lastMarks;
  static std::time_t renewed = 0;
  static std::time_t turned = 0;
  const std::array marks{MarkOf("/etc/passwd"), MarkOf("/etc/group")};
  const std::time_t now = Os().time(nullptr);
  const bool areOld = marks != lastMarks || now < renewed || now - renewed >= kLongestKept;
  if (areOld) {
    lastMarks = marks;
    renewed = now;
  }
  const bool isTurn = areOld || now < turned || now - turned >= kLongestWithout;
  turned = isTurn ? now : turned;
  for (Names* const names : {&UserNames(), &GroupNames()}) {
    names->turn += isTurn ? 1 : 0;
    names->generation += areOld ? 1 : 0;
    if (areOld) {
      std::erase_if(names->kept, [names](const auto& one) {
        return one.second.generation + 1 < names->generation;
      });
    }
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

void ClearUserNames() { UserNames() = {}; }
void ClearGroupNames() { GroupNames() = {}; }
