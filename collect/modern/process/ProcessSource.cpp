#include "collect/modern/process/ProcessSource.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "collect/TextScanner.h"
#include "collect/modern/HostText.h"
#include "collect/modern/ToldOnce.h"
#include "collect/modern/process/ExecWait.h"
#include "collect/modern/process/ProcessFiles.h"
#include "collect/modern/process/ProcessRow.h"
#include "collect/modern/process/ProcessText.h"
#include "node/FigureRegistry.h"
#include "support/OsCalls.h"

namespace {

/// A thread group whose leader has ended is rare, and the first of its other threads lives.
constexpr int kMostThreadsTried = 16;
/// Digits of a process or thread; what has more is none.
constexpr std::size_t kLongestNumber = 10;

/// A process that has ended meanwhile.
bool HasEnded(int code) { return code == ENOENT || code == ESRCH; }
bool IsDenied(int code) { return code == EACCES || code == EPERM; }

constexpr std::string_view kStatColumns[] = {"policy (41)"};
std::span<const std::string_view> StatColumns() { return kStatColumns; }
std::span<const std::string_view> NoKeys() { return {}; }

/// Whether it has been told that processes are skipped; until there are none.
bool g_skippedTold = false;

}  // namespace

/// How one of a process's files is read, and what it is told by.
struct ModernProcessSource::FileRule {
  std::string_view leaf;
  std::size_t limit;  ///< bytes taken
  const char* path;   ///< in traces
  std::span<const std::string_view> (*keys)();
};

const std::array<ModernProcessSource::FileRule, ModernProcessSource::kFiles>
    ModernProcessSource::kFileRules{{{"stat", 2048, "/proc/PID/stat", StatColumns},
                                     {"statm", 1024, "/proc/PID/statm", NoKeys},
                                     {"status", kMostText, "/proc/PID/status", ProcessStatusKeys},
                                     {"io", 1024, "/proc/PID/io", ProcessIoKeys},
                                     {"limits", 4096, "/proc/PID/limits", ProcessLimitKeys}}};

namespace {

/// The figures come with the first walk, as the profile is chosen after the collector is made.
void PublishWalkFigures() {
  const auto add = [](const char* name, const char* help, std::uint32_t (*read)()) {
    FigureRegistry::Instance().Add(
        {name, help, FigureKind::kGauge, [read] { return static_cast<double>(read()); }, {}});
  };
  add("collect_process_skipped",
      "Processes without a row after the last collection, as they could not be read.",
      &ModernProcessSource::Skipped);
  add("collect_process_io_denied",
      "Processes whose reads and writes could not be read in the last collection, for want of "
      "rights.",
      &ModernProcessSource::IoDenied);
}

}  // namespace

ModernProcessSource::ModernProcessSource()
    : m_walk(20), m_pageBytes(static_cast<std::uint64_t>(Os().getpagesize())) {
  ++s_statistics.constructed;
  BeginFigures();
  if (!m_walk.IsOpen()) {
    m_pendingError = std::make_unique<UtlError>("Unable to open /proc", __FILE__, __LINE__);
    return;
  }
  m_bootTime = PresentBootTime();
}

void ModernProcessSource::BeginFigures() {
  static const bool isPublished = [] {
    PublishWalkFigures();
    return true;
  }();
  static_cast<void>(isPublished);
  s_skipped = 0;
  s_ioDenied = 0;
}

ModernProcessSource::~ModernProcessSource() { ++s_statistics.destroyed; }

void ModernProcessSource::read(Process* record) {
  m_more = false;
  if (!m_hasBegun) {
    Begin();
  }
  if (m_pendingError != nullptr) {
    return;
  }
  while (const char* pid = m_walk.Next()) {
    if (ReadProcess(pid, *record)) {
      m_more = true;
      return;
    }
    *record = Process{};
  }
  End();
}

void ModernProcessSource::Begin() {
  m_hasBegun = true;
  if (m_pCollector == nullptr) {
    return;
  }
  m_pCollector->GetProcessLimits()->clear();
  TakeWishes();
}

bool ModernProcessSource::ReadSingle(Collector* collector, std::int32_t pid, Process& record) {
  m_pCollector = collector;
  m_isSingle = true;
  if (m_pCollector != nullptr) {
    TakeWishes();
  }
  return m_walk.IsOpen() && ReadProcess(std::to_string(pid).c_str(), record);
}

void ModernProcessSource::TakeWishes() {
  if (m_pCollector->Wants(COLLECT_PROCESS_LIMITS)) {
    m_limits = m_pCollector->GetProcessLimits();
  }
  m_wantsFolder = m_pCollector->Wants(COLLECT_PROCESS_FOLDER);
}

void ModernProcessSource::End() {
  m_walk.Rewind();
  s_arguments.EndWalk();
  // That a single process lacks a file or an entry is no news: it ends, or is one of the kernel.
  for (std::size_t file = 0; file < kFiles; ++file) {
    const FileRule& rule = kFileRules[file];
    const Seen& seen = m_seen[file];
    if (!seen.there) {
      if (seen.missing) {
        MissingInHost(rule.path);
      }
      continue;
    }
    FoundInHost(rule.path);
    const std::span<const std::string_view> keys = rule.keys();
    for (std::size_t index = 0; index < keys.size(); ++index) {
      TellFound(rule.path, keys[index], (seen.entries >> index & 1U) != 0);
    }
  }
  m_seen = {};
  g_skippedTold = g_skippedTold && s_skipped != 0;
}

std::string_view ModernProcessSource::ReadFile(ProcessFolder& folder, FileOfProcess file) {
  const FileRule& rule = kFileRules[file];
  const char* const path = folder.PathOf(rule.leaf);
  const std::span<char> room = std::span(m_text).first(rule.limit);
  const std::string_view text =
      ReadText(m_walk, path, room, file == kStatus ? &m_longText : nullptr);
  if (!text.empty()) {
    m_seen[file].there = true;
    return text;
  }
  const int code = errno;
  m_seen[file].missing = m_seen[file].missing || !IsDenied(code);
  Trace(30, kWarning, "The file of a process can't be read. (en=%1, arg1=%2)", code, path);
  errno = code;
  return {};
}

void ModernProcessSource::Skip(const char* pid, FileOfProcess file, int code) {
  if (HasEnded(code)) {
    // A captured tree may lack the file alone.
    ProcessFolder folder(pid);
    const int descriptor = code == ENOENT ? m_walk.Open(folder.PathOf({})) : -1;
    if (descriptor < 0) {
      return;
    }
    ::close(descriptor);
  }
  ++s_skipped;
  Trace(g_skippedTold ? 30 : 20, kWarning,
        "A process has no row, since its file can't be read. (en=%1, arg1=/proc/%2/%3)", code, pid,
        kFileRules[file].leaf);
  g_skippedTold = true;
}

bool ModernProcessSource::ReadProcess(const char* pid, Process& record) {
  std::int64_t number = 0;
  if (std::strlen(pid) > kLongestNumber || !TextScanner(pid).Signed(number) ||
      number > std::numeric_limits<std::int32_t>::max()) {
    return false;
  }
  BeginProcessRow(static_cast<std::int32_t>(number), record);
  ProcessFolder folder(pid);
  std::optional<ProcessPages> pages = ReadPages(folder);
  if (pages && IsInExec(*pages)) {
    if (StaysInExec(record.pid, [&](const char* name) {
          return ReadText(m_walk, folder.PathOf(name), m_text);
        })) {
      Skip(pid, kStat, EBUSY);
      return false;
    }
    pages = ReadPages(folder);
  }
  const std::string_view line = ReadFile(folder, kStat);
  ProcessStat stat;
  if (line.empty() || !ParseProcessStat(line, stat)) {
    Skip(pid, kStat, line.empty() ? errno : EBADMSG);
    return false;
  }
  m_seen[kStat].entries |= stat.hasPolicy ? 1U : 0U;
  FillFromStat(stat, m_bootTime, record);
  ReadIo(folder, record);
  ProcessPath live;
  const bool isLed = stat.state != 'Z' || stat.threads < 2 || !FindLiveThread(pid, stat, live);
  FillFromThread(stat, m_pageBytes, record);
  ProcessFolder thread(isLed ? "" : live.data());
  if ((isLed || !ReadMemory(thread, ReadPages(thread), record)) &&
      !ReadMemory(folder, pages, record)) {
    Skip(pid, kStatus, errno);
    return false;
  }
  if (!isLed) {
    ReadSwitches(folder, record);
  }
  if (m_limits != nullptr) {
    m_limits->push_back(ReadLimits(folder));
  }
  return true;
}

std::optional<ProcessPages> ModernProcessSource::ReadPages(ProcessFolder& folder) {
  ProcessPages pages;
  return ParseProcessStatm(ReadFile(folder, kStatm), pages) ? std::optional(pages) : std::nullopt;
}

bool ModernProcessSource::ReadMemory(ProcessFolder& folder,
                                     const std::optional<ProcessPages>& pages, Process& record) {
  const std::string_view text = ReadFile(folder, kStatus);
  if (text.empty()) {
    return false;
  }
  ProcessStatus status;
  m_seen[kStatus].entries |= ParseProcessStatus(text, status);
  FillFromStatus(status, record);
  if (pages) {
    // The kernel sums its parts for this file; for stat it makes do with an estimate.
    FillResident(pages->resident, m_pageBytes, record);
  }
  FillPages(pages.value_or(ProcessPages{}), m_pageBytes, record);
  TakeArguments(folder, record);
  if (m_wantsFolder) {
    record.cwdInode = ReadFolderMark(m_walk, folder);
  }
  return true;
}

void ModernProcessSource::TakeArguments(ProcessFolder& folder, Process& record) {
  const std::uint64_t start = record.modern.startTicks;
  if (MayHoldItsReader(record.modern.state)) {
    const std::string_view kept = s_arguments.Find(record.pid, start);
    std::array<char, 64> wchan;
    if (!kept.empty() || !IsHarmlessWait(ReadText(m_walk, folder.PathOf("wchan"), wchan))) {
      kept.copy(record.cmdline.data(), record.cmdline.size());
      return;
    }
  }
  ReadArguments(m_walk, folder, record.cmdline);
  if (!m_isSingle) {
    s_arguments.Keep(record.pid, start, record.GetCmdline());
  }
}

void ModernProcessSource::ReadSwitches(ProcessFolder& folder, Process& record) {
  ProcessStatus status;
  m_seen[kStatus].entries |= ParseProcessStatus(ReadFile(folder, kStatus), status);
  FillSwitches(status, record);
}

void ModernProcessSource::ReadIo(ProcessFolder& folder, Process& record) {
  const std::string_view text = ReadFile(folder, kIo);
  record.modern.isIoUnknown = text.empty();
  if (text.empty()) {
    s_ioDenied += IsDenied(errno) ? 1 : 0;
    return;
  }
  ProcessIo io;
  m_seen[kIo].entries |= ParseProcessIo(text, io);
  FillIo(io, record);
}

ProcessLimits ModernProcessSource::ReadLimits(ProcessFolder& folder) {
  ProcessLimits limits;
  if (const std::string_view text = ReadFile(folder, kLimits); !text.empty()) {
    m_seen[kLimits].entries |= ParseProcessLimits(text, limits);
  }
  return limits;
}

bool ModernProcessSource::FindLiveThread(const char* pid, ProcessStat& stat, ProcessPath& name) {
  ProcessFolder process(pid);
  ProcessWalk threads = m_walk.Below(process.PathOf("task"));
  for (int tried = 0; threads.IsOpen() && tried < kMostThreadsTried; ++tried) {
    const char* const thread = threads.Next();
    if (thread == nullptr || std::strlen(thread) > kLongestNumber) {
      return false;
    }
    FormPath(name, {pid, "/task/", thread});
    ProcessFolder folder(name.data());
    ProcessStat own;
    if (ParseProcessStat(ReadFile(folder, kStat), own) && own.state != 'Z' && own.state != 'X') {
      stat.state = own.state;
      stat.virtualBytes = own.virtualBytes;
      stat.residentPages = own.residentPages;
      return true;
    }
  }
  return false;
}
