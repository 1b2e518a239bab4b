#include "collect/modern/process/ProcessDetail.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "collect/ProcessWalk.h"
#include "collect/modern/HostFolder.h"
#include "collect/modern/HostText.h"
#include "collect/modern/process/ExecWait.h"
#include "collect/modern/process/KeptArguments.h"
#include "collect/modern/process/KeptParts.h"
#include "collect/modern/process/ProcessDetailText.h"
#include "collect/modern/process/ProcessFiles.h"
#include "collect/modern/process/ProcessText.h"
#include "collect/modern/process/TaskDetail.h"
#include "collect/modern/system/KernelStat.h"
#include "collect/process/ProcessSourceLINUX.h"
#include "support/Descriptor.h"
#include "support/HostPaths.h"
#include "support/HostReads.h"
#include "support/OsCalls.h"

namespace {

constexpr std::size_t kMostCommandLine = 1023;
constexpr double kMostFilesListed = 100'000;
/// Of all processes: the kernel makes an entry of each.
constexpr double kMostFilesListedInAll = 500000;

double PresentBoot() {
  std::string text;
  if (!ReadHostText(kKernelStatPath, text)) {
    return kNotTold;
  }
  const KernelStatFigures figures = ParseKernelStat(text);
  return figures.bootTime == 0 ? kNotTold : static_cast<double>(figures.bootTime);
}

/// The boot time that a walk went by, so that its rows and ours have the same start times; that of
/// now if it does not show.
double BootOf(std::span<const Process> walked) {
  for (const Process& process : walked) {
    if (process.modern.startTicks != 0 && process.startTime.seconds != 0) {
      return static_cast<double>(process.startTime.seconds) -
             static_cast<double>(TicksToNTIME(process.modern.startTicks).seconds);
    }
  }
  return PresentBoot();
}

/// Whether /proc is the kernel's and not copied: only there sizes of folders tell entries.
bool IsKernelsProc() {
  struct ::statfs64 status {};
  return Os().statfs64(HostPath("/proc").c_str(), &status) == 0 &&
         status.f_type == PROC_SUPER_MAGIC;
}

/// The text fit to be shown.
std::string Tidied(std::string_view text) {
  std::string own(text);
  own.resize(TidyArguments(own));
  return own;
}

/// Reads one process after another into one buffer.
class DetailReader {
 public:
  /// With what walks keep of command lines; without it where not all processes are read.
  explicit DetailReader(double bootTime, KeptArguments* kept = nullptr)
      : m_bootTime(bootTime), m_kept(kept) {}

  /// Fills the detail of the process whose folder is open and whose number it has; false for one
  /// that has ended, or stays in execve(2).
  [[nodiscard]] bool Read(Descriptor folder, ProcessDetail& detail);
  /// The same where the figures and the command line are there already.
  [[nodiscard]] bool ReadRest(Descriptor folder, ProcessDetail& detail);

 private:
  /// The text of one of its files, up to the limit if there is one, valid until the next call;
  /// empty if it can't be read.
  [[nodiscard]] std::string_view ReadFile(const char* name, std::size_t limit = kRoom);
  /// Whether the process whose folder is open keeps who reads on waiting, see ExecWait.h.
  [[nodiscard]] bool IsHeld(std::int32_t pid) {
    return StaysInExec(pid, [this](const char* name) { return ReadFile(name); });
  }
  void ReadCommandLine(ProcessDetail& detail);
  /// isHeld: what it waits in and its program are not asked for.
  void ReadSurroundings(ProcessDetail& detail, bool isHeld);
  void ReadExecutable(ProcessDetail& detail);
  [[nodiscard]] double ReadNumber(const char* name);
  [[nodiscard]] double CountFiles();
  [[nodiscard]] double ListFiles();

  /// A status has some 1,500 bytes; for many groups it goes on elsewhere.
  static constexpr std::size_t kRoom = 8192;

  double m_bootTime;
  KeptArguments* m_kept;
  bool m_isKernels = IsKernelsProc();
  bool m_sizesTell = false;  ///< a folder's size has told entries
  double m_listed = 0;       ///< entries of folders that had to be listed
  Descriptor m_folder;
  std::array<char, kRoom> m_text{};
  std::string m_longText;
};

constexpr std::string_view kWaitingStates = "SDITt";

bool DetailReader::Read(Descriptor folder, ProcessDetail& detail) {
  m_folder = std::move(folder);
  if (IsHeld(detail.pid)) {
    return false;
  }
  if (!TakeStatDetail(ReadFile("stat"), m_bootTime, detail)) {
    return false;
  }
  TakeIoDetail(ReadFile("io"), detail);
  ReadSurroundings(detail, false);
  TakeSchedDetail(ReadFile("schedstat"), detail);
  if (!detail.isOfKernel) {
    ReadCommandLine(detail);
  }
  // The last: one that has ended while it was read is found by it.
  const std::string_view status = ReadFile("status");
  TakeStatusDetail(status, detail);
  struct ::stat ignored {};
  return !status.empty() || StatHost(m_folder.Get(), "stat", &ignored, 0) == 0;
}

bool DetailReader::ReadRest(Descriptor folder, ProcessDetail& detail) {
  m_folder = std::move(folder);
  ReadSurroundings(detail, IsHeld(detail.pid));
  struct ::stat ignored {};
  return StatHost(m_folder.Get(), "stat", &ignored, 0) == 0;
}

void DetailReader::ReadCommandLine(ProcessDetail& detail) {
  if (MayHoldItsReader(detail.state)) {
    if (m_kept != nullptr) {
      detail.commandLine = m_kept->Find(detail.pid, detail.startTicks);
    }
    if (!detail.commandLine.empty() || !IsHarmlessWait(ReadFile("wchan"))) {
      return;
    }
  }
  detail.commandLine = Tidied(ReadFile("cmdline", kMostCommandLine));
  if (m_kept != nullptr) {
    m_kept->Keep(detail.pid, detail.startTicks, detail.commandLine);
  }
}

void DetailReader::ReadSurroundings(ProcessDetail& detail, bool isHeld) {
  // One that runs or has ended waits for nothing.
  if (kWaitingStates.find(detail.state) != std::string_view::npos && !isHeld) {
    detail.blockedIn = WaitChannelOf(ReadFile("wchan"));
  }
  if (!detail.isOfKernel && !isHeld) {
    ReadExecutable(detail);
  }
  detail.openFiles = CountFiles();
  detail.oomScore = ReadNumber("oom_score");
  detail.oomScoreAdjust = ReadNumber("oom_score_adj");
  detail.controlGroup = Tidied(ControlGroupOf(ReadFile("cgroup")));
}

std::string_view DetailReader::ReadFile(const char* name, std::size_t limit) {
  const Descriptor file(
      OpenHost(m_folder.Get(), name, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  return file.IsOpen() ? ReadText(file.Get(), std::span(m_text).first(limit),
                                  limit == kRoom ? &m_longText : nullptr)
                       : std::string_view();
}

void DetailReader::ReadExecutable(ProcessDetail& detail) {
  const ssize_t length = ReadHostLink(m_folder.Get(), "exe", m_text.data(), m_text.size());
  if (length > 0) {
    detail.executable = Tidied({m_text.data(), static_cast<std::size_t>(length)});
  }
}

double DetailReader::ReadNumber(const char* name) {
  const std::string_view text = ReadFile(name, 32);
  return text.ends_with('\n') ? HostNumber(text) : kNotTold;
}

double DetailReader::CountFiles() {
  struct ::stat status {};
  if (m_isKernels && StatHost(m_folder.Get(), "fd", &status, 0) == 0) {
    m_sizesTell = m_sizesTell || status.st_size > 0;
    if (m_sizesTell) {
      return static_cast<double>(status.st_size);
    }
  }
  return ListFiles();
}

double DetailReader::ListFiles() {
  if (m_listed >= kMostFilesListedInAll) {
    return kNotTold;
  }
  HostEntries entries(OpenHost(m_folder.Get(), "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!entries.IsOpen()) {
    return kNotTold;
  }
  double count = 0;
  errno = 0;
  while (count < kMostFilesListed) {
    const dirent* const entry = entries.Next();
    if (entry == nullptr) {
      break;
    }
    count += entry->d_name[0] == '.' ? 0 : 1;
  }
  m_listed += count;
  return errno == 0 ? count : kNotTold;
}

KeptArguments& KeptByDetails() {
  static KeptArguments kept;
  return kept;
}

/// Adds a row for the process, unless it has ended; whether there is one.
bool AddDetail(const ProcessWalk& walk, const char* pid, DetailReader& reader,
               std::vector<ProcessDetail>& rows) {
  ProcessDetail detail;
  const char* const end = pid + std::strlen(pid);
  if (const auto [stop, code] = std::from_chars(pid, end, detail.pid);
      code != std::errc{} || stop != end) {
    return false;
  }
  Descriptor folder(walk.Open(ProcessFolder(pid).PathOf({})));
  if (!folder.IsOpen() || !reader.Read(std::move(folder), detail)) {
    return false;
  }
  rows.push_back(std::move(detail));
  return true;
}

}  // namespace

void ReadProcessDetails(std::vector<ProcessDetail>& rows) {
  rows.clear();
  ProcessWalk walk(20);
  if (!walk.IsOpen()) {
    return;
  }
  DetailReader reader(PresentBoot(), &KeptByDetails());
  while (const char* pid = walk.Next()) {
    AddDetail(walk, pid, reader, rows);
  }
  KeptByDetails().EndWalk();
}

void ReadProcessDetails(std::span<const Process> walked, std::vector<ProcessDetail>& rows) {
  rows.clear();
  const ProcessWalk walk(20);
  if (!walk.IsOpen()) {
    return;
  }
  rows.reserve(walked.size());
  DetailReader reader(BootOf(walked), &KeptByDetails());
  for (const Process& process : walked) {
    const std::string pid = std::to_string(process.pid);
    const std::uint64_t startTicks = process.modern.startTicks;
    if (AddDetail(walk, pid.c_str(), reader, rows) && startTicks != 0 &&
        rows.back().startTicks != startTicks) {
      rows.pop_back();
    }
  }
  KeptByDetails().EndWalk();
}

void ReadTaskDetails(const std::vector<TaskGroup>& groups, std::span<const std::int32_t> missing,
                     bool isRead, std::vector<ProcessDetail>& rows) {
  rows.clear();
  KeptByDetails().Clear();
  const ProcessWalk walk(20);
  if (!walk.IsOpen()) {
    return;
  }
  rows.reserve(groups.size() + missing.size());
  const double boot = PresentBoot();
  DetailReader reader(boot);
  KeptParts& parts = KeptParts::Instance();
  const auto addMissing = [&](std::int32_t below) {
    for (; !missing.empty() && missing.front() < below; missing = missing.subspan(1)) {
      AddDetail(walk, std::to_string(missing.front()).c_str(), reader, rows);
    }
  };
  for (std::size_t index = 0; index < groups.size(); ++index) {
    const TaskGroup& group = groups[index];
    addMissing(group.task.tgid);
    if (isRead ? !parts.At(index).isRead : !parts.Read(walk, group, index, {})) {
      continue;
    }
    ProcessDetail detail;
    TakeTaskDetail(group, parts.At(index), boot, detail);
    if (const ProcessSurroundings* const kept = parts.Surroundings(group, index)) {
      static_cast<ProcessSurroundings&>(detail) = *kept;
      rows.push_back(std::move(detail));
      continue;
    }
    Descriptor folder(walk.Open(ProcessFolder(std::to_string(group.task.tgid).c_str()).PathOf({})));
    if (folder.IsOpen() && reader.ReadRest(std::move(folder), detail)) {
      parts.KeepSurroundings(group, index, detail);
      rows.push_back(std::move(detail));
    }
  }
  addMissing(std::numeric_limits<std::int32_t>::max());
}
