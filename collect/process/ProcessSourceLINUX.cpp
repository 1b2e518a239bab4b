#include "collect/process/ProcessSourceLINUX.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "collect/ProcLib.h"
#include "collect/TextScanner.h"
#include "support/HostPaths.h"
#include "support/Switches.h"
#include "support/Uninterrupted.h"

namespace {

constexpr std::uint32_t kProcessRecordSize = 1132;

}  // namespace

/// How one of a process's files is read.
struct ProcessSourceUser::FileOfProcess {
  std::string_view leaf;
  std::size_t limit;  ///< bytes taken
  bool needsText;     ///< an empty file is a failure
  int level;          ///< of the traces of failure
  const char* openFailed;
  const char* readFailed;
};

constexpr ProcessSourceUser::FileOfProcess ProcessSourceUser::kStat{
    "stat",
    1023,
    true,
    20,
    "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)",
    "The error occurred by OS API(fgets). (en=%1, arg1=%2, arg2=%3, arg3=%4)"};
constexpr ProcessSourceUser::FileOfProcess ProcessSourceUser::kStatm{
    "statm",
    1023,
    true,
    30,
    "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)",
    "The error occurred by OS API(fgets). (en=%1, arg1=%2, arg2=%3, arg3=%4)"};
constexpr ProcessSourceUser::FileOfProcess ProcessSourceUser::kCmdline{
    "cmdline",
    120,
    false,
    30,
    "The error occurred by OS API(open). (en=%1, arg1=%2, arg2=%3)",
    "The error occurred by OS API(read). (en=%1, arg1=%2, arg2=%3, arg3=%4)"};
constexpr ProcessSourceUser::FileOfProcess ProcessSourceUser::kStatus{
    "status",
    1024,
    true,
    20,
    "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)",
    "The error occurred by OS API(fread). (en=%1, arg1=%2, arg2=%3, arg3=%4)"};

ProcessSourceUser::ProcessSourceUser() {
  TraceEntry("ProcessSourceUser::ProcessSourceUser");
  ++s_statistics.constructed;
  s_skipped = 0;
  m_walk = ProcessWalk(20);
  if (!m_walk.IsOpen()) {
    m_pendingError = std::make_unique<UtlError>("Unable to open /proc", __FILE__, __LINE__);
  } else {
    m_bootTime = ProcLib::GetBootTime();
    if (m_bootTime < 0) {
      m_pendingError = std::make_unique<UtlError>("Unable to get Boot Time", __FILE__, __LINE__);
      Trace(20, kError, "An error occured in a function (ProcLib::GetBootTime). (rc=%1)",
            "MOND_FAILURE");
    }
  }
  TraceExit("ProcessSourceUser::ProcessSourceUser");
}

ProcessSourceUser::~ProcessSourceUser() { ++s_statistics.destroyed; }

void ProcessSourceUser::read(x_proc* record) {
  TraceEntry("ProcessSourceUser::read");
  m_more = false;
  if (m_pendingError == nullptr) {
    while (const char* pid = m_walk.Next()) {
      if (ReadProcess(pid, *record)) {
        m_more = true;
        break;
      }
    }
    if (!m_more) {
      m_walk.Rewind();
    }
  }
  TraceExit("ProcessSourceUser::read");
}

int ProcessSourceUser::ReadFile(ProcessFolder& folder, const FileOfProcess& file,
                                char* buffer) const {
  const char* const path = folder.PathOf(file.leaf);
  const int descriptor = m_walk.Open(path);
  if (descriptor < 0) {
    Trace(file.level, kError, file.openFailed, errno, path, "r");
    return -1;
  }
  // The kernel gives such a file in one piece.
  const ssize_t length = Uninterrupted([&] { return ::read(descriptor, buffer, file.limit); });
  const int code = errno;
  ::close(descriptor);
  if (length < 0 || (length == 0 && file.needsText)) {
    Trace(file.level, kError, file.readFailed, length < 0 ? code : 0, path, file.limit, length);
    return -1;
  }
  buffer[length] = '\0';
  return static_cast<int>(length);
}

bool ProcessSourceUser::ReadProcess(const char* pid, x_proc& record) {
  ProcessFolder folder(pid);
  if (ReadFile(folder, kStat, m_stat.data()) < 0) {
    return false;
  }
  const bool haveStatm = ReadFile(folder, kStatm, m_statm.data()) >= 0;
  const int cmdlineLength = ReadFile(folder, kCmdline, m_cmdline.data());
  if (ReadFile(folder, kStatus, m_status.data()) < 0) {
    return false;
  }
  record = x_proc{};
  record.size = kProcessRecordSize;
  TextScanner(pid).Signed(record.pid);
  if (Get_Stat_Info(m_stat.data(), &record) != 0) {
    ++s_skipped;
    Trace(20, kError,
          "An error occured in a function (ProcessSourceUser::Get_Stat_Info). (rc=%1, arg1=%2, "
          "arg2=%3)",
          -1, pid, m_stat.data());
    return false;
  }
  if (Get_Status_Info(m_status.data(), &record) != 0) {
    ++s_skipped;
    Trace(20, kError,
          "An error occured in a function (ProcessSourceUser::Get_Status_Info). (rc=%1, arg1=%2, "
          "arg2=%3)",
          -1, pid, m_status.data());
    return false;
  }
  if (g_kernelVariant == kNewestKernel) {
    if (ProcLib::IsNumberedName(record.name.data(), "kswapd") == 0) {
      record.flags |= kProcessMemMgmt;
    }
    record.codeKB = 0;
    record.dataKB = 0;
  }
  record.cwdInode = LinkInode("/proc/%s/cwd", pid);
  record.rootInode = LinkInode("/proc/%s/root", pid);
  if (haveStatm && Get_Statm_Info(m_statm.data(), &record) != 0) {
    Trace(30, kError,
          "An error occured in a function (ProcessSourceUser::Get_Statm_Info).(rc=%1, arg1=%2, "
          "arg2=%3)",
          -1, pid, m_statm.data());
  }
  if (cmdlineLength >= 0) {
    Get_CmdLine_Info(m_cmdline.data(), cmdlineLength);
    std::memcpy(record.cmdline.data(), m_cmdline.data(),
                ::strnlen(m_cmdline.data(), record.cmdline.size()));
  }
  return true;
}

std::uint64_t ProcessSourceUser::LinkInode(const char* format, const char* pid) const {
  const std::uint64_t inode = ReadLink(format, pid);
  if (inode == 0) {
    Trace(30, kError,
          "An error occured in a function (ProcessSourceUser::ReadLink).(rc=%1, arg1=%2, arg2=%3)",
          inode, format, pid);
  }
  return inode;
}

std::uint64_t ProcessSourceUser::ReadLink(const char* format, const char* pid) const {
  const std::string_view text(format);
  if (!m_walk.IsOpen()) {
    return 0;
  }
  const std::size_t place = std::min(text.find("%s"), text.size());
  const std::string_view head = text.substr(0, place);
  const std::string_view tail = text.substr(std::min(place + 2, text.size()));
  ProcessPath path;
  FormPath(path, {head, pid, tail});

  std::array<char, 256> target;
  const ssize_t length =
      head.starts_with("/proc/")
          ? m_walk.ReadLink(path.data(), target.data(), target.size())
          : ReadHostLink(AT_FDCWD, HostPath(path.data()).c_str(), target.data(), target.size());
  if (length < 0 || static_cast<std::size_t>(length) == target.size()) {
    Trace(30, kError, "The error occurred by OS API(readlink). (en=%1, arg1=%2, arg2=%3, arg3=%4)",
          length < 0 ? errno : ENAMETOOLONG, path.data(), length, target.size());
    return 0;
  }
  target[static_cast<std::size_t>(length)] = '\0';
  struct ::stat status {};
  if (StatHost(AT_FDCWD, HostPath(target.data()).c_str(), &status) != 0) {
    Trace(30, kError, "The error occurred by OS API(stat). (en=%1, arg1=%2, arg2=%3)", errno,
          target.data(), path.data());
    return 0;
  }
  return status.st_ino;
}
