#include <array>
#include <bit>
#include <cstring>

#include "collect/ProcessStatus.h"
#include "collect/TextScanner.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "node/Trace.h"
#include "support/LowWord.h"
#include "support/OsCalls.h"
#include "support/Switches.h"

// The parsers of the texts that the kernel gives of one process.

namespace {

constexpr std::int32_t kPriorityBase = 60;

std::uint64_t PageSize() { return static_cast<std::uint64_t>(Os().getpagesize()); }

std::uint32_t FlagsOf(const x_proc& record) {
  std::uint32_t flags = record.state == kStateUninterruptible ? 0U : +kProcessInCore;
  if (g_kernelVariant != kNewestKernel && (record.pid == 0 || record.pid == 5)) {
    flags |= kProcessMemMgmt;
  }
  return flags;
}

/// The keys looked for in /proc/PID/status.
enum StatusKey : std::size_t { kName, kUid, kGid, kVmData, kVmStk, kVmExe, kStatusKeys };
constexpr std::array<std::string_view, kStatusKeys> kStatusKeyTexts{
    "Name:", kStatusUid, "Gid:", "VmData:", "VmStk:", "VmExe:"};
/// The text from each key on; no text where the key is missing.
using StatusLines = std::array<std::string_view, kStatusKeys>;

/// The first four bytes of a text as one number, which tells all keys apart.
constexpr std::size_t kMarkSize = 4;
constexpr std::uint32_t MarkOf(std::string_view text) {
  std::array<char, kMarkSize> bytes{};
  text.copy(bytes.data(), bytes.size());
  return std::bit_cast<std::uint32_t>(bytes);
}

/// The only key that a line may have; kStatusKeys for none.
StatusKey KeyByMark(std::string_view line) {
  switch (MarkOf(line)) {
    case MarkOf(kStatusKeyTexts[kName]):
      return kName;
    case MarkOf(kStatusKeyTexts[kUid]):
      return kUid;
    case MarkOf(kStatusKeyTexts[kGid]):
      return kGid;
    case MarkOf(kStatusKeyTexts[kVmData]):
      return kVmData;
    case MarkOf(kStatusKeyTexts[kVmStk]):
      return kVmStk;
    case MarkOf(kStatusKeyTexts[kVmExe]):
      return kVmExe;
    default:
      return kStatusKeys;
  }
}

/// Finds all keys in one pass.
StatusLines FindKeys(std::string_view text) {
  StatusLines lines;
  for (std::size_t found = 0; found < kStatusKeys && text.size() >= kMarkSize;) {
    if (const StatusKey key = KeyByMark(text);
        key != kStatusKeys && lines[key].empty() && HasStatusKey(text, kStatusKeyTexts[key])) {
      lines[key] = text;
      ++found;
    }
    const std::size_t end = text.find('\n');
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

/// A scanner of what stands behind a key, which is there.
TextScanner ValuesOf(const StatusLines& lines, StatusKey key) {
  return StatusValues(lines[key], kStatusKeyTexts[key]);
}

bool TraceMissing(const StatusLines& lines, StatusKey key) {
  if (!lines[key].empty()) {
    return false;
  }
  Trace(30, kError, "An error occurred in a function (strstr). (rc=%1, arg1=%2, arg2=%3)", 0,
        "/proc/PID/status", kStatusKeyTexts[key]);
  return true;
}

void TraceScan(int count, std::string_view text, const char* format) {
  Trace(30, kError, "An error occurred in a function (sscanf). (rc=%1, arg1=%2, arg2=%3)", count,
        text.substr(0, text.find('\n')), format);
}

void ScanIdentities(const StatusLines& lines, StatusKey key, std::int32_t& real,
                    std::int32_t& effective, std::int32_t& saved) {
  if (TraceMissing(lines, key)) {
    return;
  }
  TextScanner scanner = ValuesOf(lines, key);
  if (!scanner.Signed(real) || !scanner.Signed(effective) || !scanner.Signed(saved)) {
    TraceScan(scanner.Count(), lines[key], "%*s %d %d %d");
  }
}

void ScanSize(const StatusLines& lines, StatusKey key, std::uint64_t& kilobytes) {
  if (TraceMissing(lines, key)) {
    return;
  }
  TextScanner scanner = ValuesOf(lines, key);
  std::int32_t size = 0;
  if (!scanner.Signed(size)) {
    TraceScan(scanner.Count(), lines[key], "%*s %d");
    return;
  }
  kilobytes = static_cast<std::uint32_t>(size);
}

}  // namespace

int ProcessSourceUser::Get_Stat_Info(const char* line, x_proc* record) const {
  const std::string_view whole(line);
  TextScanner scanner(whole.substr(0, whole.find('\n')));
  char state = '\0';
  std::int32_t tty = 0;
  std::uint32_t kernelFlags = 0;
  std::uint64_t userTicks = 0;
  std::uint64_t systemTicks = 0;
  std::uint64_t startTicks = 0;
  std::uint64_t residentPages = 0;

  // In the order of the line; what is skipped is told at its place.
  scanner.SkipNumbers(1);  // process number
  scanner.SkipWord();      // command name
  scanner.Letter(state);
  scanner.Signed(record->ppid);
  scanner.Signed(record->pgrp);
  scanner.Signed(record->session);
  scanner.Signed(tty);
  scanner.SkipNumbers(1);  // foreground group of the terminal
  scanner.Unsigned(kernelFlags);
  scanner.Unsigned(record->minorFaults);
  scanner.SkipNumbers(1);  // minor faults of children
  scanner.Unsigned(record->majorFaults);
  scanner.SkipNumbers(1);  // major faults of children
  scanner.Unsigned(userTicks);
  scanner.Unsigned(systemTicks);
  scanner.SkipNumbers(2);  // times of children
  scanner.Signed(record->priority);
  scanner.Signed(record->nice);
  scanner.SkipNumbers(2);  // threads, interval timer
  scanner.Unsigned(startTicks);
  scanner.Unsigned(record->virtualSize);
  scanner.Unsigned(residentPages);
  scanner.SkipNumbers(11);  // limit, addresses, signal masks, wait channel
  scanner.Unsigned(record->swaps);
  if (scanner.Count() != 16) {
    Trace(30, kError, "An error occurred in a function (sscanf). (rc=%1, arg1=%2, arg2=%3)",
          scanner.Count(), line,
          "%*d %*s %c %d %d %d %d %*d %d %lu %*lu %lu %*lu %lu %lu %*d %*d %d %d %*lu %*lu %lu "
          "%lu %d %*lu %*lu %*lu %*lu %*lu %*lu %*d %*d %*d %*d %*lu %d %*lu %*d %*d");
    return -1;
  }

  record->residentBytes = static_cast<std::uint32_t>(residentPages * PageSize());
  record->userTime = TicksToNTIME(userTicks);
  record->systemTime = TicksToNTIME(systemTicks);
  record->cpuTime = {WrappedSum(record->userTime.seconds, record->systemTime.seconds),
                     WrappedSum(record->userTime.nanoseconds, record->systemTime.nanoseconds)};
  record->startTime = TicksToNTIME(startTicks);
  record->startTime.seconds = WrappedSum(record->startTime.seconds, m_bootTime);
  record->state = ProcessStateOf(state);
  record->tty = tty == 0 ? kNoTerminal : static_cast<std::uint32_t>(tty);
  record->flags = FlagsOf(*record);
  record->priority = WrappedSum(record->priority, kPriorityBase);
  return 0;
}

int ProcessSourceUser::Get_Statm_Info(const char* line, x_proc* record) const {
  const std::string_view whole(line);
  TextScanner scanner(whole.substr(0, whole.find('\n')));
  std::int64_t total = 0;
  std::int64_t shared = 0;
  if (!scanner.Signed(total) || !scanner.SkipNumbers(1) || !scanner.Signed(shared)) {
    return -1;
  }
  record->totalBytes = static_cast<std::uint32_t>(static_cast<std::uint64_t>(total) * PageSize());
  record->sharedKB = static_cast<double>((static_cast<std::uint64_t>(shared) * PageSize()) >> 10);
  return 0;
}

int ProcessSourceUser::Get_Status_Info(const char* text, x_proc* record) const {
  const StatusLines lines = FindKeys(text);
  if (TraceMissing(lines, kName)) {
    return -1;
  }
  TextScanner scanner = ValuesOf(lines, kName);
  std::string_view name;
  if (!scanner.Word(name)) {
    TraceScan(scanner.Count(), lines[kName], "%*s %s");
    return -1;
  }
  record->name.fill('\0');
  name.copy(record->name.data(), record->name.size() - 1);
  ScanIdentities(lines, kUid, record->ruid, record->euid, record->suid);
  ScanIdentities(lines, kGid, record->rgid, record->egid, record->sgid);
  ScanSize(lines, kVmData, record->dataKB);
  ScanSize(lines, kVmStk, record->stackKB);
  ScanSize(lines, kVmExe, record->codeKB);
  return 0;
}

void ProcessSourceUser::Get_CmdLine_Info(char* text, int length) {
  if (length < 1) {
    return;
  }
  const char* const last = text + length - 1;
  while ((text = static_cast<char*>(
              std::memchr(text, '\0', static_cast<std::size_t>(last - text)))) != nullptr) {
    *text = ' ';
  }
}

const char* ProcessSourceUser::LoadFlagString(std::uint32_t flags) {
  struct FlagName {
    int bit;
    const char* name;
  };
  constexpr std::array kNames{FlagName{0, "PF_ALIGNWARN,"}, FlagName{1, "PF_STARTING,"},
                              FlagName{2, "PF_EXITING,"},   FlagName{6, "PF_FORKNOEXEC,"},
                              FlagName{8, "PF_SUPERPRIV,"}, FlagName{9, "PF_DUMPCORE,"},
                              FlagName{10, "PF_SIGNALED,"}, FlagName{11, "PF_MEMALLOC,"},
                              FlagName{20, "PF_USEDFPU,"},  FlagName{22, "PF_ATOMICALLOC,"}};
  static std::string text;
  constexpr std::size_t kTextSize = 256;
  text.clear();
  for (const FlagName& flag : kNames) {
    if ((flags >> flag.bit & 1U) != 0) {
      text += flag.name;
    }
  }
  if (!text.empty()) {
    text.pop_back();
  }
  if (text.size() >= kTextSize) {
    MBDebugAssertLog("strlen(FlagStr) < sizeof(FlagStr)", __FILE__, __LINE__);
  }
  return text.c_str();
}
