#include "collect/modern/cgroup/ControlGroupName.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>

namespace {

constexpr std::string_view kContainerKind = "container";
constexpr std::string_view kScopeEnd = ".scope";
constexpr std::string_view kServiceEnd = ".service";
constexpr std::string_view kSliceEnd = ".slice";
constexpr std::size_t kLeastIdDigits = 12;
constexpr std::size_t kMostIdDigits = 64;

struct RuntimePrefix {
  std::string_view prefix;  ///< before the hyphen or colon that an id follows
  std::string_view runtime;
};
constexpr RuntimePrefix kContainerRuntimes[] = {
    {"docker", "docker"},        {"cri-containerd", "containerd"},
    {"nerdctl", "containerd"},   {"containerd", "containerd"},
    {"crio", "cri-o"},           {"libpod", "podman"},
    {"libpod-payload", "podman"}};

bool IsGroupHexDigit(char letter) {
  return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f');
}

bool IsGroupDecimal(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char l) { return l >= '0' && l <= '9'; });
}

bool IsContainerId(std::string_view text) {
  return text.size() >= kLeastIdDigits && text.size() <= kMostIdDigits &&
         std::all_of(text.begin(), text.end(), IsGroupHexDigit);
}

/// An id that can hardly be anything else.
bool IsWholeId(std::string_view text) {
  return text.size() == kMostIdDigits && IsContainerId(text);
}

/// Cuts the end off. False, with the text as it was, if it has another one or nothing else.
bool CutNameEnd(std::string_view& text, std::string_view end) {
  const bool isCut = text.size() > end.size() && text.ends_with(end);
  text.remove_suffix(isCut ? end.size() : 0);
  return isCut;
}

/// The same for the begin.
bool CutNameBegin(std::string_view& text, std::string_view begin) {
  const bool isCut = text.size() > begin.size() && text.starts_with(begin);
  text.remove_prefix(isCut ? begin.size() : 0);
  return isCut;
}

/// Takes the last name off a path; empty without one.
std::string_view TakeLastGroupName(std::string_view& path) {
  const std::size_t slash = path.rfind('/');
  const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
  const std::string_view name = path.substr(begin);
  path = path.substr(0, begin == 0 ? 0 : begin - 1);
  return name;
}

/// Undoes the service manager's escapes, as "\x2d" for a hyphen.
std::string WithoutUnitNameEscapes(std::string_view text) {
  const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; };
  std::string plain;
  plain.reserve(text.size());
  while (!text.empty()) {
    const bool isEscape = text.size() >= 4 && text[0] == '\\' && text[1] == 'x' &&
                          IsGroupHexDigit(text[2]) && IsGroupHexDigit(text[3]);
    const int byte = isEscape ? value(text[2]) * 16 + value(text[3]) : 0;
    plain += byte == 0 ? text.front() : static_cast<char>(byte);
    text.remove_prefix(byte == 0 ? 1 : 4);
  }
  return plain;
}

/// A pod's uid, of which some cgroup names write underscores for hyphens. Pods that a node runs by
/// itself have a uid without either.
std::optional<std::string> PodUid(std::string_view text) {
  constexpr std::size_t kDigits = 32;
  constexpr std::size_t kWithHyphens = 36;
  constexpr std::size_t kHyphens[] = {8, 13, 18, 23};
  if (text.size() != kDigits && text.size() != kWithHyphens) {
    return std::nullopt;
  }
  std::string uid(text);
  if (text.size() == kWithHyphens) {
    for (const std::size_t place : kHyphens) {
      if (uid[place] != '-' && uid[place] != '_') {
        return std::nullopt;
      }
      uid[place] = '0';
    }
  }
  if (!std::all_of(uid.begin(), uid.end(), IsGroupHexDigit)) {
    return std::nullopt;
  }
  if (text.size() == kWithHyphens) {
    for (const std::size_t place : kHyphens) {
      uid[place] = '-';
    }
  }
  return uid;
}

/// The uid in a pod's own name: "podUID", "kubepods-burstable-podUID.slice".
std::optional<std::string> PodOfName(std::string_view name) {
  if (CutNameEnd(name, kSliceEnd)) {
    const std::size_t place = name.rfind("-pod");
    if (name.find("kubepods") == std::string_view::npos || place == std::string_view::npos) {
      return std::nullopt;
    }
    name.remove_prefix(place + 1);
  }
  return CutNameBegin(name, "pod") ? PodUid(name) : std::nullopt;
}

/// The pod that a path leads into; empty without one.
std::string PodOfPath(std::string_view path) {
  while (!path.empty()) {
    std::string_view name = TakeLastGroupName(path);
    // "SLICE:RUNTIME:ID" is what a runtime makes of a slice that it takes for a folder.
    name = name.substr(0, name.find(':'));
    if (std::optional<std::string> pod = PodOfName(name)) {
      return *pod;
    }
  }
  return {};
}

/// "PREFIX-ID" or "SLICE:PREFIX:ID".
bool TakePrefixedId(std::string_view name, ControlGroupName& told) {
  const std::size_t mark = name.find_last_of("-:");
  if (mark == std::string_view::npos || !IsContainerId(name.substr(mark + 1))) {
    return false;
  }
  const std::string_view id = name.substr(mark + 1);
  std::string_view prefix = name.substr(0, mark);
  if (name[mark] == ':') {
    prefix.remove_prefix(prefix.rfind(':') + 1);
  }
  const auto* const known =
      std::find_if(std::begin(kContainerRuntimes), std::end(kContainerRuntimes),
                   [&](const RuntimePrefix& one) { return one.prefix == prefix; });
  const bool isKnown = known != std::end(kContainerRuntimes);
  // A monitor stands beside its container and bears its id.
  if (!isKnown && (!IsWholeId(id) || prefix.ends_with("conmon"))) {
    return false;
  }
  told.runtime = isKnown ? known->runtime : std::string_view{};
  told.containerId = id;
  return true;
}

/// An id alone, by what it lies in.
bool TakeBareId(std::string_view name, std::string_view parent, ControlGroupName& told) {
  const bool isDocker = parent == "docker";
  if (!IsWholeId(name) && !(IsContainerId(name) && (isDocker || PodOfName(parent)))) {
    return false;
  }
  told.runtime = isDocker ? "docker" : "";
  told.containerId = name;
  return true;
}

/// A machine that the service manager has been told of, with its escapes.
bool TakeMachine(std::string_view machine, ControlGroupName& told) {
  const std::string name = WithoutUnitNameEscapes(machine);
  std::string_view rest = name;
  if (rest.starts_with("qemu-")) {
    return false;  // a virtual machine
  }
  told.runtime = "nspawn";
  if (CutNameBegin(rest, "lxc-")) {
    told.runtime = "lxc";
    // A number of the machine's stands before its name.
    const std::size_t hyphen = rest.find('-');
    if (hyphen + 1 < rest.size() && hyphen != std::string_view::npos &&
        IsGroupDecimal(rest.substr(0, hyphen))) {
      rest.remove_prefix(hyphen + 1);
    }
  }
  told.containerName = rest;
  return true;
}

bool TakeNamedContainer(std::string_view name, std::string_view parent, ControlGroupName& told) {
  std::string_view rest = name;
  if (CutNameBegin(rest, "lxc.payload.") || parent == "lxc" || parent == "lxc.payload") {
    told.runtime = "lxc";
    told.containerName = rest;
    return true;
  }
  if (CutNameEnd(rest, kScopeEnd) && CutNameBegin(rest, "machine-")) {
    return TakeMachine(rest, told);
  }
  rest = name;
  if (CutNameEnd(rest, kServiceEnd) && CutNameBegin(rest, "systemd-nspawn@")) {
    told.runtime = "nspawn";
    told.containerName = WithoutUnitNameEscapes(rest);
    return true;
  }
  return false;
}

bool TakeContainer(std::string_view name, std::string_view parent, ControlGroupName& told) {
  std::string_view stem = name;
  CutNameEnd(stem, kScopeEnd);
  if (stem.ends_with(kServiceEnd) || stem.ends_with(kSliceEnd)) {
    stem = {};
  }
  return TakePrefixedId(stem, told) || TakeBareId(stem, parent, told) ||
         TakeNamedContainer(name, parent, told);
}

/// "session-2.scope" and "user@1000.service", right below "user-1000.slice".
bool IsUserSession(std::string_view name, std::string_view parent) {
  if (!CutNameEnd(parent, kSliceEnd) || !CutNameBegin(parent, "user-") || !IsGroupDecimal(parent)) {
    return false;
  }
  std::string_view user = name;
  return (name.starts_with("session-") && name.ends_with(kScopeEnd)) ||
         (CutNameEnd(user, kServiceEnd) && CutNameBegin(user, "user@") && user == parent);
}

std::string_view KindOfName(std::string_view name, std::string_view parent) {
  if (IsUserSession(name, parent)) {
    return "user session";
  }
  if (CutNameEnd(name, kServiceEnd)) {
    return "service";
  }
  if (CutNameEnd(name, kSliceEnd)) {
    return "slice";
  }
  return CutNameEnd(name, kScopeEnd) ? "scope" : "group";
}

}  // namespace

ControlGroupName NameControlGroup(std::string_view path) {
  ControlGroupName told;
  std::string_view rest = path;
  const std::string_view name = TakeLastGroupName(rest);
  if (name.empty()) {
    told.kind = "root";
    return told;
  }
  told.pod = PodOfPath(path);
  const std::string_view parent = TakeLastGroupName(rest);
  told.kind = TakeContainer(name, parent, told) ? kContainerKind : KindOfName(name, parent);
  return told;
}

bool IsNotableGroup(const ControlGroupName& name) {
  return name.kind != "group" && name.kind != "root";
}
