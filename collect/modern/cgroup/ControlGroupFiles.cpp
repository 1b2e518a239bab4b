#include "collect/modern/cgroup/ControlGroupFiles.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>

#include "collect/modern/HostText.h"
#include "support/TrimmedText.h"

namespace {

constexpr double kGroupNanosecond = 1e-9;
constexpr double kGroupMicrosecond = 1e-6;
/// USER_HZ, which all that the kernel tells in ticks is in.
constexpr double kGroupTick = 0.01;

/// The key of a figure and the unit that its number is in.
template <class Figures>
struct GroupKey {
  std::string_view key;
  double Figures::*figure;
  double unit = 1;
};

/// The whole number that is all of the text.
double GroupNumber(std::string_view text) {
  std::uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number);
  return code == std::errc{} && stop == end ? static_cast<double>(number) : kNotTold;
}

/// Takes the lines "key number" of the keys, the first of each.
template <class Figures, std::size_t N>
void TakeGroupKeys(std::string_view text, const std::array<GroupKey<Figures>, N>& keys,
                   Figures& figures) {
  for (std::string_view line; NextTextLine(text, line);) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    for (const GroupKey<Figures>& one : keys) {
      if (one.key == line.substr(0, blank)) {
        if (blank < line.size() && !IsTold(figures.*one.figure)) {
          figures.*one.figure = GroupNumber(line.substr(blank + 1)) * one.unit;
        }
        break;
      }
    }
  }
}

void FillGroupFigure(double& figure, double other) {
  if (!IsTold(figure)) {
    figure = other;
  }
}

/// What memory.stat tells of the kernel's memory.
struct GroupKernelMemory {
  double whole = kNotTold;
  double stacks = kNotTold;
  double pageTables = kNotTold;
  double perCpu = kNotTold;
  double slab = kNotTold;
};

constexpr std::array kGroupCpuKeys = {
    GroupKey<ControlGroupCpu>{"usage_usec", &ControlGroupCpu::totalSeconds, kGroupMicrosecond},
    GroupKey<ControlGroupCpu>{"user_usec", &ControlGroupCpu::userSeconds, kGroupMicrosecond},
    GroupKey<ControlGroupCpu>{"system_usec", &ControlGroupCpu::systemSeconds, kGroupMicrosecond},
    GroupKey<ControlGroupCpu>{"nr_periods", &ControlGroupCpu::periods},
    GroupKey<ControlGroupCpu>{"nr_throttled", &ControlGroupCpu::throttledPeriods},
    GroupKey<ControlGroupCpu>{"throttled_usec", &ControlGroupCpu::throttledSeconds,
                              kGroupMicrosecond},
    GroupKey<ControlGroupCpu>{"throttled_time", &ControlGroupCpu::throttledSeconds,
                              kGroupNanosecond}};

constexpr std::array kGroupTickKeys = {
    GroupKey<ControlGroupCpu>{"user", &ControlGroupCpu::userSeconds, kGroupTick},
    GroupKey<ControlGroupCpu>{"system", &ControlGroupCpu::systemSeconds, kGroupTick}};

constexpr std::array kGroupMemoryKeys = {
    GroupKey<ControlGroupMemory>{"anon", &ControlGroupMemory::anonymous},
    GroupKey<ControlGroupMemory>{"file", &ControlGroupMemory::file}};

constexpr std::array kGroupKernelKeys = {
    GroupKey<GroupKernelMemory>{"kernel", &GroupKernelMemory::whole},
    GroupKey<GroupKernelMemory>{"kernel_stack", &GroupKernelMemory::stacks},
    GroupKey<GroupKernelMemory>{"pagetables", &GroupKernelMemory::pageTables},
    GroupKey<GroupKernelMemory>{"percpu", &GroupKernelMemory::perCpu},
    GroupKey<GroupKernelMemory>{"slab", &GroupKernelMemory::slab}};

constexpr std::array kGroupTotalKeys = {
    GroupKey<ControlGroupMemory>{"total_rss", &ControlGroupMemory::anonymous},
    GroupKey<ControlGroupMemory>{"total_cache", &ControlGroupMemory::file},
    GroupKey<ControlGroupMemory>{"total_swap", &ControlGroupMemory::swap}};

constexpr std::array kGroupOwnKeys = {
    GroupKey<ControlGroupMemory>{"rss", &ControlGroupMemory::anonymous},
    GroupKey<ControlGroupMemory>{"cache", &ControlGroupMemory::file},
    GroupKey<ControlGroupMemory>{"swap", &ControlGroupMemory::swap}};

constexpr std::array kGroupEventKeys = {
    GroupKey<ControlGroupMemory>{"oom_kill", &ControlGroupMemory::outOfMemoryKills},
    GroupKey<ControlGroupMemory>{"high", &ControlGroupMemory::highEvents},
    GroupKey<ControlGroupMemory>{"max", &ControlGroupMemory::maxEvents}};

struct GroupIoKey {
  std::string_view key;
  double ControlGroupIo::*figure;
};
constexpr GroupIoKey kGroupIoKeys[] = {{"rbytes=", &ControlGroupIo::bytesRead},
                                       {"wbytes=", &ControlGroupIo::bytesWritten},
                                       {"rios=", &ControlGroupIo::reads},
                                       {"wios=", &ControlGroupIo::writes}};

void AddGroupIoWord(std::string_view word, ControlGroupIo& sums) {
  for (const GroupIoKey& one : kGroupIoKeys) {
    if (word.starts_with(one.key)) {
      sums.*one.figure += OrZero(GroupNumber(word.substr(one.key.size())));
      return;
    }
  }
}

/// By their names, so that two looks can be compared in one pass.
std::vector<GroupIoKept::Device> GroupDevicesOf(std::string_view text) {
  std::vector<GroupIoKept::Device> devices;
  for (std::string_view line; NextTextLine(text, line);) {
    devices.emplace_back();
    TextScanner scanner(line);
    for (std::string_view word; scanner.Word(word);) {
      if (word.find('=') != std::string_view::npos) {
        AddGroupIoWord(word, devices.back().io);
        continue;
      }
      // Some kernels leave out the end of a line without figures.
      if (!devices.back().name.empty()) {
        devices.emplace_back();
      }
      devices.back().name = word;
    }
  }
  std::ranges::stable_sort(devices, {}, &GroupIoKept::Device::name);
  return devices;
}

void AddGroupIo(const ControlGroupIo& io, ControlGroupIo& sums) {
  for (const GroupIoKey& one : kGroupIoKeys) {
    sums.*one.figure += io.*one.figure;
  }
}

bool HasFallen(const ControlGroupIo& now, const ControlGroupIo& before) {
  return std::ranges::any_of(
      kGroupIoKeys, [&](const GroupIoKey& one) { return now.*one.figure < before.*one.figure; });
}

}  // namespace

void ParseGroupCpuStat(std::string_view text, ControlGroupCpu& cpu) {
  TakeGroupKeys(text, kGroupCpuKeys, cpu);
}

void ParseGroupCpuTicks(std::string_view text, ControlGroupCpu& cpu) {
  TakeGroupKeys(text, kGroupTickKeys, cpu);
}

void ParseGroupMemoryStat(std::string_view text, ControlGroupMemory& memory) {
  TakeGroupKeys(text, kGroupMemoryKeys, memory);
  GroupKernelMemory kernel;
  TakeGroupKeys(text, kGroupKernelKeys, kernel);
  FillGroupFigure(memory.kernel, kernel.whole);
  if (IsTold(kernel.slab)) {
    FillGroupFigure(memory.kernel, OrZero(kernel.stacks) + OrZero(kernel.pageTables) +
                                       OrZero(kernel.perCpu) + kernel.slab);
  }
}

void ParseGroupMemoryStatV1(std::string_view text, ControlGroupMemory& memory) {
  TakeGroupKeys(text, kGroupTotalKeys, memory);
  TakeGroupKeys(text, kGroupOwnKeys, memory);
}

double ParseGroupUsage(std::string_view text) {
  constexpr double kNanosecond = 1e-9;
  return GroupNumber(Trimmed(text, kWhiteSpace)) * kNanosecond;
}

void ParseGroupMemoryEvents(std::string_view text, ControlGroupMemory& memory) {
  TakeGroupKeys(text, kGroupEventKeys, memory);
}

void ParseGroupIoStat(std::string_view text, GroupIoKept& kept, ControlGroupIo& io) {
  std::vector<GroupIoKept::Device> devices = GroupDevicesOf(text);
  auto now = devices.cbegin();
  for (const GroupIoKept::Device& before : kept.devices) {
    while (now != devices.cend() && now->name < before.name) {
      ++now;
    }
    const bool isThere = now != devices.cend() && now->name == before.name;
    if (!isThere || HasFallen(now->io, before.io)) {
      AddGroupIo(before.io, kept.gone);
    }
    now += isThere ? 1 : 0;
  }
  kept.devices = std::move(devices);
  ControlGroupIo sums = kept.gone;
  for (const GroupIoKept::Device& device : kept.devices) {
    AddGroupIo(device.io, sums);
  }
  for (const GroupIoKey& one : kGroupIoKeys) {
    FillGroupFigure(io.*one.figure, sums.*one.figure);
  }
}

BlkioSums ParseBlkio(std::string_view text) {
  BlkioSums sums;
  for (std::string_view line; NextTextLine(text, line);) {
    TextScanner scanner(line);
    std::string_view direction;
    std::string_view number;
    if (!scanner.SkipWord() || !scanner.Word(direction) || !scanner.Word(number)) {
      continue;
    }
    if (direction == "Read") {
      sums.read += OrZero(GroupNumber(number));
    } else if (direction == "Write") {
      sums.write += OrZero(GroupNumber(number));
    }
  }
  return sums;
}

double CountIds(std::string_view text) {
  return static_cast<double>(std::count(text.begin(), text.end(), '\n'));
}
