#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "helpers/bpf/TaskPin.h"
#include "helpers/bpf/TaskProgram.h"
#include "support/HostPaths.h"
#include "support/TaskFigures.h"

// Puts the kernel's part of the agent in its place: a program that writes what there is to know of
// every thread, pinned as a file that the daemon opens and reads without a right more. It ends at
// once; what it has pinned stays until it is taken away or the machine starts again.
//
//   qmt_bpf load [--mode MODE] [--group GROUP] [--pin FOLDER] [--verbose]
//   qmt_bpf unload [--pin FOLDER]
//   qmt_bpf status [--pin FOLDER]

namespace {

constexpr int kFailed = 1;
constexpr int kBadUsage = 2;
constexpr ::mode_t kMostRights = 0777;
/// Of the daemon, which the package makes.
constexpr const char* kDaemonGroup = "qmtmond";

struct Words {
  std::string command;
  std::string folder = HostPath("/sys/fs/bpf/qmtdmon");
  std::string group;  ///< empty: the daemon's where there is one, else this user's own
  ::mode_t mode = 0440;
  bool isTelling = false;
};

int Refuse(const std::string& reason, int value = kFailed) {
  std::fprintf(stderr, "qmt_bpf: %s\n", reason.c_str());
  return value;
}

template <class Number>
bool ReadNumber(std::string_view text, int base, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

/// One of the options that have a value; false, with the reason, if it can't be meant.
bool ReadOption(std::string_view name, const std::string& value, Words& words,
                std::string& reason) {
  constexpr int kOctal = 8;
  if (name == "--pin" && value.size() > 1 && value.front() == '/') {
    words.folder = value;
    return true;
  }
  if (name == "--group" && !value.empty()) {
    words.group = value;
    return true;
  }
  if (name == "--mode" && ReadNumber(value, kOctal, words.mode) && words.mode <= kMostRights) {
    return true;
  }
  reason = std::string(name) + " \"" + value + "\": --mode takes 0 to 0777, --group a name or a " +
           "number, --pin an absolute path";
  return false;
}

bool ReadWords(const std::vector<std::string>& given, Words& words, std::string& reason) {
  reason =
      "usage: qmt_bpf load [--mode MODE] [--group GROUP] [--pin FOLDER] [--verbose] | "
      "unload [--pin FOLDER] | status [--pin FOLDER]";
  for (std::size_t place = 0; place < given.size(); ++place) {
    const std::string& word = given[place];
    const bool isOfLoad = word == "--mode" || word == "--group";
    if (word == "--verbose" && words.command == "load") {
      words.isTelling = true;
    } else if (word == "--pin" || (isOfLoad && words.command == "load")) {
      if (place + 1 == given.size()) {
        return false;
      }
      if (!ReadOption(word, given[++place], words, reason)) {
        return false;
      }
    } else if (place == 0) {
      words.command = word;
    } else {
      return false;
    }
  }
  return words.command == "load" || words.command == "unload" || words.command == "status";
}

/// False if there is no group of this name.
bool FindGroup(const std::string& name, ::gid_t& group) {
  const struct ::group* found = ::getgrnam(name.empty() ? kDaemonGroup : name.c_str());
  if (found != nullptr) {
    group = found->gr_gid;
    return true;
  }
  if (name.empty()) {
    group = ::getegid();
    return true;
  }
  constexpr int kDecimal = 10;
  // The last number of all leaves a file's group as it is.
  return ReadNumber(name, kDecimal, group) && group != static_cast<::gid_t>(-1);
}

std::string GroupName(::gid_t group) {
  const struct ::group* found = ::getgrgid(group);
  return found == nullptr ? std::to_string(group) : found->gr_name;
}

std::string UserName(::uid_t user) {
  const struct ::passwd* found = ::getpwuid(user);
  return found == nullptr ? std::to_string(user) : found->pw_name;
}

int Load(const Words& words) {
  std::string reason;
  ::gid_t group = 0;
  if (!FindGroup(words.group, group)) {
    return Refuse("there is no group \"" + words.group + "\"", kBadUsage);
  }
  const Descriptor link = LoadTaskProgram(words.isTelling, reason);
  TaskPin pin(words.folder);
  if (!link.IsOpen() || !pin.Replace(link.Get(), group, words.mode, reason)) {
    return Refuse(reason);
  }
  std::printf("pinned at %s for group %s, mode %04o\n", pin.Path().c_str(),
              GroupName(group).c_str(), words.mode);
  return 0;
}

int Unload(const Words& words) {
  std::string reason;
  return TaskPin(words.folder).Remove(reason) ? 0 : Refuse(reason);
}

int Status(const Words& words) {
  const TaskPin pin(words.folder);
  PinState state;
  std::string reason;
  if (!pin.Look(state, reason)) {
    return Refuse(reason);
  }
  if (!state.isPinned) {
    return Refuse("nothing is pinned at " + pin.Path());
  }
  std::printf("%s: mode %04o, user %s, group %s\n", pin.Path().c_str(), state.mode,
              UserName(state.user).c_str(), GroupName(state.group).c_str());
  if (state.size == 0) {
    return Refuse(pin.Path() + " can't be read by this user, or tells nothing");
  }
  std::printf("version %u, %u bytes a thread\n", state.version, state.size);
  if (state.version != QMT_TASK_FIGURES_VERSION || state.size != sizeof(TaskFigures)) {
    return Refuse("it is of another version than this helper, which has version " +
                  std::to_string(QMT_TASK_FIGURES_VERSION) + " of " +
                  std::to_string(sizeof(TaskFigures)) + " bytes: load it anew");
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Words words;
  std::string reason;
  if (!ReadWords({argv + 1, argv + argc}, words, reason)) {
    return Refuse(reason, kBadUsage);
  }
  if (words.command == "load") {
    return Load(words);
  }
  return words.command == "unload" ? Unload(words) : Status(words);
}
