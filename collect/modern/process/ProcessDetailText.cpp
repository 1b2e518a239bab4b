#include "collect/modern/process/ProcessDetailText.h"

#include <algorithm>
#include <array>

#include "collect/modern/HostLines.h"
#include "collect/modern/HostText.h"
#include "collect/modern/KeyedFigures.h"
#include "collect/modern/process/ProcessDetail.h"
#include "collect/modern/process/ProcessText.h"
#include "support/TimeValues.h"

namespace {

using DetailRow = KeyedFigure<ProcessDetail>;

constexpr auto kDetailStatusRows = SortedByKey(std::array{
    DetailRow{"Uid:", &ProcessDetail::uid},
    DetailRow{"RssAnon:", &ProcessDetail::anonBytes},
    DetailRow{"RssFile:", &ProcessDetail::fileBytes},
    DetailRow{"RssShmem:", &ProcessDetail::sharedBytes},
    DetailRow{"VmSwap:", &ProcessDetail::swapBytes},
    DetailRow{"VmHWM:", &ProcessDetail::peakBytes},
    DetailRow{"voluntary_ctxt_switches:", &ProcessDetail::voluntarySwitches},
    DetailRow{"nonvoluntary_ctxt_switches:", &ProcessDetail::otherSwitches},
});

constexpr auto kDetailIoRows = SortedByKey(std::array{
    DetailRow{"rchar:", &ProcessDetail::callReadBytes},
    DetailRow{"wchar:", &ProcessDetail::callWriteBytes},
    DetailRow{"syscr:", &ProcessDetail::readCalls},
    DetailRow{"syscw:", &ProcessDetail::writeCalls},
    DetailRow{"read_bytes:", &ProcessDetail::storageReadBytes},
    DetailRow{"write_bytes:", &ProcessDetail::storageWriteBytes},
});

constexpr double kNanosecond = 1e-9;
/// The kernel's PF_KTHREAD.
constexpr std::uint32_t kKernelThread = 0x00200000;

double SecondsOfTicks(std::uint64_t ticks) { return static_cast<double>(ticks) / TicksPerSecond(); }

/// Whose control group of version 1 tells most, first.
constexpr std::array<std::string_view, 3> kTellingControllers{"memory", "cpu", "name=systemd"};

/// The place of the best controller of a list that commas part; past the last for none.
std::size_t RankOfControllers(std::string_view list) {
  std::size_t best = kTellingControllers.size();
  while (!list.empty()) {
    const std::string_view one = list.substr(0, list.find(','));
    const auto* const found = std::ranges::find(kTellingControllers, one);
    best = std::min(best, static_cast<std::size_t>(found - kTellingControllers.begin()));
    list.remove_prefix(std::min(one.size() + 1, list.size()));
  }
  return best;
}

/// A line of /proc/PID/cgroup: "4:cpu,cpuacct:/path". No controllers are version 2.
struct GroupLine {
  std::string_view controllers;
  std::string_view path;  ///< empty if that is no such line
};
GroupLine SplitGroupLine(std::string_view line) {
  const std::size_t first = line.find(':');
  const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
  if (second == std::string_view::npos || !line.substr(second + 1).starts_with('/')) {
    return {};
  }
  return {line.substr(first + 1, second - first - 1), line.substr(second + 1)};
}

}  // namespace

bool TakeStatDetail(std::string_view text, double bootTime, ProcessDetail& detail) {
  ProcessStat stat;
  if (!ParseProcessStat(text, stat)) {
    return false;
  }
  detail.startTicks = stat.startTicks;
  detail.startTime = bootTime + SecondsOfTicks(stat.startTicks);
  detail.name = stat.name;
  detail.name.resize(TidyArguments(detail.name));
  detail.state = stat.state;
  detail.isOfKernel = (stat.kernelFlags & kKernelThread) != 0;
  detail.threads = stat.threads;
  detail.userSeconds = SecondsOfTicks(stat.userTicks);
  detail.systemSeconds = SecondsOfTicks(stat.systemTicks);
  detail.lastCpu = stat.processor < 0 ? kNotTold : stat.processor;
  return true;
}

void TakeStatusDetail(std::string_view text, ProcessDetail& detail) {
  TakeKeyedFigures(text, kDetailStatusRows, detail);
}

void TakeIoDetail(std::string_view text, ProcessDetail& detail) {
  TakeKeyedFigures(text, kDetailIoRows, detail);
}

void TakeSchedDetail(std::string_view text, ProcessDetail& detail) {
  std::uint64_t run = 0;
  std::uint64_t delay = 0;
  std::uint64_t slices = 0;
  if (!text.ends_with('\n') || !TakeCount(text, run) || !TakeCount(text, delay) ||
      !TakeCount(text, slices) || (run | delay | slices) == 0) {
    return;
  }
  detail.runDelaySeconds = static_cast<double>(delay) * kNanosecond;
}

std::string_view WaitChannelOf(std::string_view text) {
  constexpr std::size_t kLongestSymbol = 127;
  text = text.substr(0, text.find_first_of(std::string_view("\0\n", 2)));
  const bool isName =
      text.size() <= kLongestSymbol && text != "0" &&
      std::ranges::all_of(text, [](char letter) { return letter > ' ' && letter < '\x7f'; });
  return isName ? text : std::string_view{};
}

std::string_view ControlGroupOf(std::string_view text) {
  text = text.substr(0, text.rfind('\n') + 1);
  std::string_view unified;
  std::array<std::string_view, kTellingControllers.size()> groups;
  for (std::string_view line; NextTextLine(text, line);) {
    const GroupLine group = SplitGroupLine(line);
    if (group.controllers.empty()) {
      unified = group.path.empty() ? unified : group.path;
    } else if (const std::size_t rank = RankOfControllers(group.controllers);
               rank < groups.size()) {
      groups[rank] = group.path;
    }
  }
  if (unified.size() > 1) {
    return unified;
  }
  const auto* const telling =
      std::ranges::find_if(groups, [](std::string_view path) { return path.size() > 1; });
  if (telling != groups.end()) {
    return *telling;
  }
  const bool isRoot = !unified.empty() || std::ranges::count(groups, "/") != 0;
  return isRoot ? "/" : std::string_view{};
}
