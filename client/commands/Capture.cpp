#include "client/commands/Capture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"
#include "client/capture/Archive.h"
#include "client/capture/CaptureFolder.h"
#include "client/capture/CaptureMask.h"
#include "client/capture/GrowingFolder.h"
#include "client/capture/KeptHistory.h"
#include "client/capture/OwnChild.h"
#include "client/files/Programs.h"
#include "client/show/TimeText.h"

namespace {

constexpr std::string_view kArchiveEnd = ".tar.zst";
/// Names of archives that are not written, each with a blank behind it.
constexpr std::string_view kOtherEnds = ".tar .zst .tzst .gz .tgz .xz .txz .bz2 .zip .7z ";
constexpr std::int64_t kDefaultStretch = 3600;

/// Packs under a name that goes if that fails; the file gets its own once all of it is there.
void PackTo(const std::string& folder, const std::string& file, int stop) {
  const std::string growing = file + '.' + std::to_string(::getpid()) + ".new";
  struct ::stat status {};
  if (::lstat(growing.c_str(), &status) == 0) {
    throw ClientError(growing + ": it exists already");
  }
  try {
    PackFolder(folder, growing, stop);
  } catch (...) {
    ::unlink(growing.c_str());
    throw;
  }
  NameArchive(growing, file);
}

/// The profile that was asked for, else that of the daemon, where one answers.
std::string ProfileOf(const std::string& socket, const std::string& chosen, int stop) {
  std::string profile = chosen;
  try {
    if (profile.empty()) {
      Connection daemon(socket, stop);
      profile = ReadStatus(daemon.Ask({{"op", "status"}})).hostProfile;
    }
  } catch (const ClientError&) {
    // Whether there is one is told with its history.
  }
  return profile.empty() ? "modern" : profile;
}

/// Gives how many rows there were; says so where there is no daemon to ask.
std::uint64_t TakeHistory(const std::string& socket, const GrowingFolder& folder,
                          std::int64_t since, int stop) {
  try {
    Connection daemon(socket, stop);
    return WriteKeptHistory(daemon, folder.Place(), since, std::time(nullptr));
  } catch (const ClientError& error) {
    Complain("there is no history in the capture: " + folder.Named(error.what()));
    folder.Remove(kHistoryName);
    return 0;
  }
}

bool IsPacked(const CaptureOptions& options) { return options.target.ends_with(kArchiveEnd); }

/// Replaces what is private, and looks that nothing of it is left.
void MakePrivate(const std::string& folder, int stop) {
  CaptureMask mask(folder, stop);
  mask.Replace();
  mask.Check();
}

/// What the program had to say for itself last.
std::string LastWords(const std::string& log) {
  constexpr std::string_view kName = "qmtdmon: ";
  const std::string text = ReadWhole(log);
  const std::size_t own = text.rfind(kName);
  if (own != text.npos) {
    return text.substr(own + kName.size(), text.find('\n', own) - own - kName.size());
  }
  const std::size_t end = text.find_last_not_of('\n');
  const std::size_t begin = end == text.npos ? 0 : text.rfind('\n', end) + 1;
  return end == text.npos ? "it says nothing" : text.substr(begin, end + 1 - begin);
}

void ReadHost(const CaptureOptions& options, const std::string& profile, const std::string& folder,
              int stop) {
  const TemporaryFolder work;
  const std::string log = work.Path() + "/log";
  OwnChild child({.words = {FindProgram("qmtdmon", "agent"), "--capture", folder, "--every",
                            std::to_string(options.everySeconds), "--count",
                            std::to_string(options.count), "--profile", profile},
                  .variables = {},
                  .folder = {},
                  .log = log});
  child.Wait(stop);
  if (child.ExitValue() != 0) {
    throw ClientError("the host was not read: " + LastWords(log));
  }
}

/// What a capture came to.
struct CaptureSize {
  std::uint64_t bytes = 0;
  std::uint64_t samples = 0;
  std::uint64_t refused = 0;  ///< questions that the system answers root alone
};

std::uint64_t CountText(const std::string& text, std::string_view word) {
  std::uint64_t count = 0;
  for (std::size_t place = text.find(word); place != text.npos;
       place = text.find(word, place + word.size())) {
    ++count;
  }
  return count;
}

CaptureSize SizeOf(const std::string& folder, int stop) {
  CaptureSize size;
  for (const FolderEntry& entry : ListFolder(folder)) {
    EndIfStopped(stop);
    const std::string path = folder + '/' + entry.path;
    std::error_code error;
    size.bytes += entry.isFolder ? 0 : std::filesystem::file_size(path, error);
    if (entry.path.starts_with("samples/") && entry.path.ends_with("/calls.jsonl")) {
      const std::string text = ReadWhole(path);
      size.refused += CountText(text, "\"errno\":" + std::to_string(EACCES)) +
                      CountText(text, "\"errno\":" + std::to_string(EPERM) + '}') +
                      CountText(text, "\"errno\":" + std::to_string(EPERM) + ',');
      ++size.samples;
    }
  }
  return size;
}

std::string ClosingLine(const CaptureOptions& options, const CaptureSize& size, std::uint64_t bytes,
                        std::uint64_t rows, double seconds) {
  char figures[160];
  std::snprintf(figures, sizeof(figures), "%.1f MB, %llu sample%s, %llu rows of history, %.1f s",
                static_cast<double>(bytes) / 1e6, static_cast<unsigned long long>(size.samples),
                size.samples == 1 ? "" : "s", static_cast<unsigned long long>(rows), seconds);
  std::string text = SafeText(options.target) + ": " + figures;
  if (size.refused > 0) {
    text += "; " + std::to_string(size.refused) + " reads were refused" +
            (::geteuid() == 0 ? "" : ", root may read more");
  }
  return text + '\n';
}

/// All that comes behind the host and its history.
CaptureSize Finish(const CaptureOptions& options, GrowingFolder& folder, int stop) {
  try {
    if (options.isPrivate) {
      MakePrivate(folder.Place(), stop);
    }
    const CaptureSize size = SizeOf(folder.Place(), stop);
    if (IsPacked(options)) {
      PackTo(folder.Place(), options.target, stop);
    } else {
      folder.Keep();
    }
    return size;
  } catch (const ClientError& error) {
    throw ClientError(folder.Named(error.what()));
  }
}

void Capture(const CommonOptions& common, const CaptureOptions& options, int stop) {
  const auto begin = std::chrono::steady_clock::now();
  const std::int64_t now = std::time(nullptr);
  const std::int64_t since =
      options.since.empty() ? now - kDefaultStretch : ParseTime(options.since, now);
  const bool isFile = IsPacked(options);
  const std::string end = std::filesystem::path(options.target).extension().string();
  if (!isFile && kOtherEnds.find(end + ' ') != kOtherEnds.npos && !end.empty()) {
    throw UsageError(options.target + ": a packed capture has a name that ends in .tar.zst");
  }
  struct ::stat status {};
  if (isFile && ::lstat(options.target.c_str(), &status) == 0) {
    throw ClientError(options.target + ": it exists already");
  }
  std::optional<TemporaryFolder> work;
  if (isFile) {
    work.emplace();
  }
  GrowingFolder folder(isFile ? work->Path() + "/capture" : options.target);
  ReadHost(options, ProfileOf(common.socket, options.profile, stop), folder.Path(), stop);
  const std::uint64_t rows = TakeHistory(common.socket, folder, since, stop);
  const CaptureSize size = Finish(options, folder, stop);
  const std::uint64_t bytes = isFile ? std::filesystem::file_size(options.target) : size.bytes;
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  WriteOutput(ClosingLine(options, size, bytes, rows, passed.count()));
}

}  // namespace

int RunCaptureCommand(const CommonOptions& common, const CaptureOptions& options) {
  const StopSignals stop;
  EndAtHangUp();
  try {
    Capture(common, options, stop.Get());
  } catch (const Interrupted&) {
    Complain("interrupted: nothing was kept");
    return kExitFailed;
  }
  return kExitDone;
}
