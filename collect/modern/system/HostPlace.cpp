#include "collect/modern/system/HostPlace.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "collect/modern/HostFolder.h"
#include "collect/modern/HostLines.h"
#include "collect/modern/cpu/CpuList.h"
#include "collect/modern/system/HostFactsText.h"
#include "support/NotTold.h"

namespace {

/// Whether a Xen host is the domain that governs the others.
bool GovernsXen(const HostFolder& root) {
  return root.Line("proc/xen/capabilities").find("control_d") != std::string::npos;
}

/// What a clock source that only a guest has tells; empty for none.
std::string_view ClockOfGuest(const HostFolder& root) {
  const std::string clocks =
      root.Line("sys/devices/system/clocksource/clocksource0/available_clocksource");
  for (const auto& [clock, name] :
       {std::pair<std::string_view, std::string_view>{"kvm-clock", "kvm"},
        {"hyperv_clocksource", "microsoft"},
        {"xen", "xen"}}) {
    if (clocks.find(clock) != std::string::npos) {
      return name;
    }
  }
  return {};
}

std::string_view FirmwareOfGuest(const HostFolder& root) {
  const HostFolder dmi = root.Below("sys/class/dmi/id");
  if (!dmi.IsOpen()) {
    return {};
  }
  return VirtualisationOf({dmi.Line("sys_vendor"), dmi.Line("product_name"),
                           dmi.Line("board_vendor"), dmi.Line("bios_vendor")});
}

/// The first number of a list of processors such as "2,66"; kNotTold if there is none.
double FirstOfList(std::string_view list) {
  std::uint32_t first = 0;
  return TakeCount(list, first) ? first : kNotTold;
}

bool HasFile(const HostFolder& root, const char* name) {
  std::string text;
  return root.Read(name, text);
}

}  // namespace

std::string FindVirtualisation(const HostFolder& root, bool hasHypervisorFlag) {
  if (const std::string type = root.Line("sys/hypervisor/type"); IsPlainWord(type)) {
    return type == "xen" && GovernsXen(root) ? std::string{} : type;
  }
  const std::string_view clock = ClockOfGuest(root);
  std::string_view name = FirmwareOfGuest(root);
  if ((name.empty() || name == "qemu") && !clock.empty()) {
    name = clock;
  }
  return std::string(name.empty() && hasHypervisorFlag ? "other" : name);
}

std::string FindContainer(const HostFolder& root) {
  std::string text;
  if (root.Read("proc/1/environ", text)) {
    if (std::string name = ContainerOfEnvironment(text); !name.empty()) {
      return name;
    }
  }
  if (std::string name = root.Line("run/systemd/container"); IsPlainWord(name)) {
    return name;
  }
  return HasFile(root, ".dockerenv")          ? "docker"
         : HasFile(root, "run/.containerenv") ? "podman"
                                              : "";
}

ProcessorCounts CountProcessors(const HostFolder& root) {
  ProcessorCounts counts{kNotTold, kNotTold, kNotTold};
  const HostFolder folder = root.Below("sys/devices/system/cpu");
  const auto online = std::make_unique<CpuSet>();
  if (!folder.IsOpen() || !ParseCpuList(folder.Line("online"), *online) || online->none()) {
    return counts;
  }
  counts.threads = static_cast<double>(online->count());
  std::vector<double> packages;
  double cores = 0;
  std::array<char, 64> name;
  for (std::size_t cpu = 0; cpu < online->size(); ++cpu) {
    if (!online->test(cpu)) {
      continue;
    }
    std::snprintf(name.data(), name.size(), "cpu%zu/topology/physical_package_id", cpu);
    if (const double package = folder.Number(name.data()); IsTold(package)) {
      packages.push_back(package);
    }
    std::snprintf(name.data(), name.size(), "cpu%zu/topology/thread_siblings_list", cpu);
    cores += FirstOfList(folder.Line(name.data())) == static_cast<double>(cpu) ? 1 : 0;
  }
  if (!packages.empty()) {
    std::sort(packages.begin(), packages.end());
    counts.sockets =
        static_cast<double>(std::unique(packages.begin(), packages.end()) - packages.begin());
  }
  counts.cores = cores > 0 ? cores : kNotTold;
  return counts;
}
