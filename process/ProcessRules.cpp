#include "process/ProcessRules.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "process/ProcessComparison.h"
#include "process/ProcessRow.h"
#include "support/LowWord.h"

namespace {

// What kernels 2.4 and 2.6 tell.

namespace classic_rules {

const char* State(const Process& process) { return StateText(process.GetState()); }

const char* SchedulerClass(const Process& /*process*/) { return "Unavailable"; }

void PutNoFlags(const Process& /*process*/, Text<120>& /*field*/) {}

ProcessSizes Sizes(const Process& process) {
  return {.real = process.residentBytes >> 10,
          .virtualMem = process.virtualSize >> 10,
          .total = process.totalBytes >> 10,
          .stack = LowWord(process.stackKB),
          .text = LowWord(process.codeKB),
          .data = LowWord(process.dataKB)};
}

ProcessIoTotal IoTotal(const Process& process) {
  return {.kbytes = static_cast<float>(process.ioKbytes)};
}

tagUTIME NoAge(const Process& /*process*/, std::int32_t /*now*/) { return {}; }

std::int32_t StartSecond(std::int32_t startTime, std::int32_t /*now*/) { return startTime; }

bool IsSame(const ProcessStart& a, const ProcessStart& b) { return a.seconds == b.seconds; }

bool IsSameNumber(const ProcessStart& /*a*/, const ProcessStart& /*b*/) { return true; }

std::uint32_t Growth(std::uint32_t now, std::uint32_t before) { return now - before; }

/// The difference of a total that wraps at 4 Gbytes.
float IoGrowth(const ProcessIoTotal& now, const ProcessIoTotal& before) {
  constexpr double kWrapsAbove = 2097152.0;
  constexpr double kWrap = 4194303.9990234375;
  const float delta = now.kbytes - before.kbytes;
  if (!(delta < 0.0F)) {
    return delta;
  }
  return now.kbytes > kWrapsAbove ? static_cast<float>(delta + kWrap) : 0.0F;
}

std::uint64_t RealKbytes(const Process& process) { return RoundedKbytes(process.residentBytes); }

std::uint64_t VirtualKbytes(const Process& process) { return RoundedKbytes(process.virtualSize); }

std::uint32_t Flags(const Process& process) { return process.flags; }

std::uint32_t StateCounted(const Process& process) { return process.state; }

bool IsInUse(const Process& /*process*/, bool isActive) { return isActive; }

}  // namespace classic_rules

// What the kernels of today tell.

namespace modern_rules {

constexpr std::uint32_t kKernelThread = 0x00200000;
constexpr std::uint32_t kSwapDaemon = 0x00020000;

/// Sizes are levels: one that the word can't hold is shown as the greatest.
std::uint32_t SizeWord(std::uint64_t kbytes) {
  return LowWord(std::min<std::uint64_t>(kbytes, std::numeric_limits<std::uint32_t>::max()));
}

const char* State(const Process& process) {
  switch (process.modern.state) {
    case 'R':
      return "RUN";
    case 'S':
      return "SLEEP";
    case 'D':
      return "DISK";
    case 'I':
      return "IDLE";
    case 'Z':
      return "ZOMBIE";
    case 'T':
    case 't':
      return "STOP";
    case 'X':
    case 'x':
      return "DEAD";
    default:
      return "OTHER";
  }
}

const char* SchedulerClass(const Process& process) {
  static constexpr std::array kClasses{"TS", "FF", "RR", "B", "ISO", "IDL", "DLN", "EXT"};
  return process.modern.policy < kClasses.size() ? kClasses[process.modern.policy] : "?";
}

struct FlagWord {
  std::uint32_t bit;
  std::string_view word;
};
/// Those that mean the same in all kernels from 5.0 on.
constexpr std::array kFlagWords{
    FlagWord{0x00000002, "PF_IDLE"},           FlagWord{0x00000004, "PF_EXITING"},
    FlagWord{0x00000020, "PF_WQ_WORKER"},      FlagWord{0x00000040, "PF_FORKNOEXEC"},
    FlagWord{0x00000080, "PF_MCE_PROCESS"},    FlagWord{0x00000100, "PF_SUPERPRIV"},
    FlagWord{0x00000200, "PF_DUMPCORE"},       FlagWord{0x00000400, "PF_SIGNALED"},
    FlagWord{0x00000800, "PF_MEMALLOC"},       FlagWord{0x00001000, "PF_NPROC_EXCEEDED"},
    FlagWord{0x00008000, "PF_NOFREEZE"},       FlagWord{kSwapDaemon, "PF_KSWAPD"},
    FlagWord{0x00040000, "PF_MEMALLOC_NOFS"},  FlagWord{0x00080000, "PF_MEMALLOC_NOIO"},
    FlagWord{kKernelThread, "PF_KTHREAD"},     FlagWord{0x00400000, "PF_RANDOMIZE"},
    FlagWord{0x04000000, "PF_NO_SETAFFINITY"}, FlagWord{0x08000000, "PF_MCE_EARLY"},
    FlagWord{0x80000000, "PF_SUSPEND_TASK"}};

/// What the field can't hold is left out from a comma on.
void PutFlags(const Process& process, Text<120>& field) {
  std::array<char, sizeof(Text<120>)> text{};
  std::size_t used = 0;
  for (const FlagWord& flag : kFlagWords) {
    if ((process.modern.kernelFlags & flag.bit) == 0) {
      continue;
    }
    const std::size_t comma = used == 0 ? 0 : 1;
    if (used + comma + flag.word.size() >= text.size()) {
      break;
    }
    if (comma != 0) {
      text[used++] = ',';
    }
    used += flag.word.copy(text.data() + used, flag.word.size());
  }
  field = text.data();
}

ProcessSizes Sizes(const Process& process) {
  return {.real = SizeWord(process.modern.residentKB),
          .virtualMem = SizeWord(process.modern.virtualKB),
          .total = SizeWord(process.modern.totalKB),
          .stack = SizeWord(process.stackKB),
          .heap = SizeWord(process.modern.heapKB),
          .sharedLib = SizeWord(process.modern.sharedLibKB),
          .text = SizeWord(process.codeKB),
          .data = SizeWord(process.dataKB)};
}

constexpr double Kbytes(std::uint64_t bytes) { return static_cast<double>(bytes) / 1024; }

ProcessIoTotal IoTotal(const Process& process) {
  return {.kbytes = static_cast<float>(Kbytes(process.modern.ioBytes)),
          .bytes = process.modern.ioBytes,
          .isUnknown = process.modern.isIoUnknown};
}

/// None for a process whose start is not known, or seems to lie in the future, as after a step of
/// the clock.
tagUTIME Age(const Process& process, std::int32_t now) {
  const tagUTIME start = process.GetStartTime();
  const bool isPast = start.seconds != 0 && start < tagUTIME{now, 0};
  return isPast ? tagUTIME{now, 0} - start : tagUTIME{};
}

std::int32_t KnownStartSecond(std::int32_t startTime, std::int32_t now) {
  return startTime == 0 ? now : startTime;
}

/// The seconds since 1970 move when the host's clock is set, the ticks don't.
bool IsSame(const ProcessStart& a, const ProcessStart& b) { return a.ticks == b.ticks; }

/// A counter that has wrapped is below by more than half of its range; one that fell by less could
/// not be read this time.
std::uint32_t Growth(std::uint32_t now, std::uint32_t before) {
  constexpr std::uint32_t kHalf = 0x80000000;
  return now < before && before - now < kHalf ? 0 : now - before;
}

float IoGrowth(const ProcessIoTotal& now, const ProcessIoTotal& before) {
  return now.bytes < before.bytes ? 0.0F : static_cast<float>(Kbytes(now.bytes - before.bytes));
}

std::uint64_t RealKbytes(const Process& process) { return process.modern.residentKB; }

std::uint64_t VirtualKbytes(const Process& process) { return process.modern.virtualKB; }

std::uint32_t Flags(const Process& process) {
  const std::uint32_t flags = process.modern.kernelFlags;
  const bool isKernel = (flags & kKernelThread) != 0;
  const bool isSwapDaemon = (flags & kSwapDaemon) != 0 ||
                            (isKernel && std::string_view(process.GetName()).starts_with("kswapd"));
  return (process.modern.swapKB == 0 ? kProcessInCore : 0U) | (isKernel ? kProcessSystem : 0U) |
         (isSwapDaemon ? kProcessMemMgmt : 0U);
}

/// Each process is in one of four, so that they add up to all.
std::uint32_t StateCounted(const Process& process) {
  switch (process.modern.state) {
    case 'R':
      return kStateRunning;
    case 'Z':
    case 'X':
    case 'x':
      return kStateZombie;
    case 'T':
    case 't':
      return kStateStopped;
    default:
      return kStateSleeping;
  }
}

/// Who has a terminal is there, though idle.
bool IsInUse(const Process& process, bool /*isActive*/) { return process.tty != kNoTerminal; }

}  // namespace modern_rules

constexpr ProcessRules kClassicRules{.stateText = classic_rules::State,
                                     .schedulerClass = classic_rules::SchedulerClass,
                                     .putFlags = classic_rules::PutNoFlags,
                                     .sizes = classic_rules::Sizes,
                                     .ioTotal = classic_rules::IoTotal,
                                     .age = classic_rules::NoAge,
                                     .countsFrom = classic_rules::StartSecond,
                                     .isSame = classic_rules::IsSame,
                                     .isSameInWorkgroups = classic_rules::IsSameNumber,
                                     .growth = classic_rules::Growth,
                                     .ioGrowth = classic_rules::IoGrowth,
                                     .hasDefunctNames = true,
                                     .keepsMarks = false,
                                     .realKbytes = classic_rules::RealKbytes,
                                     .virtualKbytes = classic_rules::VirtualKbytes,
                                     .sizeWord = LowWord,
                                     .hasGroupRates = false,
                                     .summaryFlags = classic_rules::Flags,
                                     .summaryState = classic_rules::StateCounted,
                                     .needsTerminalFile = true,
                                     .isInUse = classic_rules::IsInUse,
                                     .tellsUseAtOnce = false};

constexpr ProcessRules kModernRules{.stateText = modern_rules::State,
                                    .schedulerClass = modern_rules::SchedulerClass,
                                    .putFlags = modern_rules::PutFlags,
                                    .sizes = modern_rules::Sizes,
                                    .ioTotal = modern_rules::IoTotal,
                                    .age = modern_rules::Age,
                                    .countsFrom = modern_rules::KnownStartSecond,
                                    .isSame = modern_rules::IsSame,
                                    .isSameInWorkgroups = modern_rules::IsSame,
                                    .growth = modern_rules::Growth,
                                    .ioGrowth = modern_rules::IoGrowth,
                                    .hasDefunctNames = false,
                                    .keepsMarks = true,
                                    .realKbytes = modern_rules::RealKbytes,
                                    .virtualKbytes = modern_rules::VirtualKbytes,
                                    .sizeWord = modern_rules::SizeWord,
                                    .hasGroupRates = true,
                                    .summaryFlags = modern_rules::Flags,
                                    .summaryState = modern_rules::StateCounted,
                                    .needsTerminalFile = false,
                                    .isInUse = modern_rules::IsInUse,
                                    .tellsUseAtOnce = true};

}  // namespace

const ProcessRules& ProcessRulesOf(HostProfile profile) {
  return profile == HostProfile::kModern ? kModernRules : kClassicRules;
}
