#include "collect/modern/system/HostFactsText.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"

namespace {

constexpr std::size_t kMostReleaseText = 255;
constexpr std::size_t kMachineIdDigits = 32;
constexpr std::size_t kLongestPlainWord = 64;

constexpr bool IsFactDigit(char letter) { return letter >= '0' && letter <= '9'; }
constexpr bool IsFactLetter(char letter) {
  const auto lower = static_cast<char>(letter | 0x20);
  return lower >= 'a' && lower <= 'z';
}

/// The value of a shell's assignment: parts without quotes and with them, up to a blank.
std::string Unquoted(std::string_view text) {
  std::string value;
  char quote = '\0';
  for (std::size_t at = 0; at < text.size() && value.size() < kMostReleaseText; ++at) {
    const char letter = text[at];
    const bool isLast = at + 1 == text.size();
    if (quote == '\0' && (letter == ' ' || letter == '\t')) {
      break;
    }
    if (quote == '\0' ? letter == '"' || letter == '\'' : letter == quote) {
      quote = quote == '\0' ? letter : '\0';
    } else if (letter == '\\' && quote != '\'' && !isLast &&
               (quote == '\0' ||
                std::string_view("\"\\$`").find(text[at + 1]) != std::string_view::npos)) {
      value += text[++at];
    } else {
      value += letter;
    }
  }
  std::ranges::replace_if(
      value,
      [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == '\x7f'; },
      ' ');
  return std::string(Trimmed(value, " "));
}

struct DmiSign {
  std::string_view begin;
  std::string_view name;
};
/// What a text of the firmware of a virtual machine begins with. The order counts: a cloud and a
/// tool on top name themselves more closely than the hypervisor.
constexpr DmiSign kDmiSigns[] = {
    {"Amazon EC2", "amazon"},
    {"Google Compute Engine", "google"},
    {"KVM", "kvm"},
    {"OpenStack", "kvm"},
    {"KubeVirt", "kvm"},
    {"oVirt", "kvm"},
    {"RHEV", "kvm"},
    {"Alibaba Cloud ECS", "kvm"},
    {"VMware", "vmware"},
    {"VMW", "vmware"},
    {"VirtualBox", "oracle"},
    {"innotek GmbH", "oracle"},
    {"HVM domU", "xen"},
    {"Xen", "xen"},
    {"Bochs", "bochs"},
    {"Parallels", "parallels"},
    {"BHYVE", "bhyve"},
    {"Hyper-V", "microsoft"},
    {"Apple Virtualization", "apple"},
    {"QEMU", "qemu"},
};

}  // namespace

OsRelease ParseOsRelease(std::string_view text) {
  OsRelease release;
  for (std::string_view line; NextTextLine(text, line);) {
    line = WithoutEdgeBlanks(line);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      continue;
    }
    const std::string_view name = line.substr(0, equals);
    std::string* const value = name == "PRETTY_NAME"  ? &release.prettyName
                               : name == "ID"         ? &release.id
                               : name == "VERSION_ID" ? &release.versionId
                                                      : nullptr;
    if (value != nullptr) {
      *value = Unquoted(line.substr(equals + 1));
    }
  }
  return release;
}

std::string ParseMachineId(std::string_view text) {
  std::string id(Trimmed(text.substr(0, text.find('\n')), " \t\r"));
  const bool isRight =
      id.size() == kMachineIdDigits && std::ranges::all_of(id, [](char letter) {
        return IsFactDigit(letter) || (IsFactLetter(letter) && (letter | 0x20) <= 'f');
      });
  if (!isRight) {
    return {};
  }
  std::ranges::transform(id, id.begin(), [](char letter) {
    return IsFactDigit(letter) ? letter : static_cast<char>(letter | 0x20);
  });
  return id;
}

FileHandles ParseFileNr(std::string_view text) {
  FileHandles handles;
  std::uint64_t allocated = 0;
  std::uint64_t free = 0;
  std::uint64_t most = 0;
  if (!TakeCount(text, allocated) || !TakeCount(text, free) || free > allocated) {
    return handles;
  }
  handles.used = static_cast<double>(allocated - free);
  if (TakeCount(text, most) && most < std::numeric_limits<std::int64_t>::max()) {
    handles.most = static_cast<double>(most);
  }
  return handles;
}

double ParseTaskCount(std::string_view loadavg) {
  for (int field = 0; field < 3; ++field) {
    loadavg.remove_prefix(std::min(loadavg.find(' '), loadavg.size()));
    loadavg.remove_prefix(loadavg.empty() ? 0 : 1);
  }
  std::uint64_t runnable = 0;
  std::uint64_t tasks = 0;
  if (!TakeCount(loadavg, runnable) || !loadavg.starts_with('/')) {
    return kNotTold;
  }
  loadavg.remove_prefix(1);
  return TakeCount(loadavg, tasks) ? static_cast<double>(tasks) : kNotTold;
}

std::string_view VirtualisationOf(const DmiTexts& dmi) {
  // A cloud gives out whole machines under the vendor's name too.
  if (dmi.product.find(".metal") != std::string::npos) {
    return {};
  }
  for (const DmiSign& sign : kDmiSigns) {
    for (const std::string* text : {&dmi.product, &dmi.vendor, &dmi.board, &dmi.bios}) {
      if (text->starts_with(sign.begin)) {
        return sign.name;
      }
    }
  }
  // This vendor makes real machines too.
  const bool isHyperV =
      dmi.vendor.starts_with("Microsoft Corporation") && dmi.product.starts_with("Virtual Machine");
  return isHyperV ? "microsoft" : std::string_view{};
}

bool IsPlainWord(std::string_view text) {
  return !text.empty() && text.size() <= kLongestPlainWord &&
         std::ranges::all_of(text, [](char letter) {
           return IsFactDigit(letter) || IsFactLetter(letter) || letter == '.' || letter == '_' ||
                  letter == '-';
         });
}

std::string ContainerOfEnvironment(std::string_view environment) {
  constexpr std::string_view kAssignment = "container=";
  while (!environment.empty()) {
    const std::string_view one = environment.substr(0, environment.find('\0'));
    if (one.starts_with(kAssignment)) {
      const std::string_view value = one.substr(kAssignment.size());
      return IsPlainWord(value) ? std::string(value) : std::string{};
    }
    environment.remove_prefix(std::min(one.size() + 1, environment.size()));
  }
  return {};
}
