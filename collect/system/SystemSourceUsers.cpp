#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "collect/TextScanner.h"
#include "collect/system/SystemSourceLINUX.h"
#include "support/HostPaths.h"

namespace {

constexpr char kProc[] = "/proc";
/// The slash behind it counts.
constexpr std::size_t kProcPrefix = sizeof(kProc);

/// The next entry of /proc that is a process; null at the end.
const char* NextProcess(DIR* directory) {
  while (const dirent* entry = ::readdir(directory)) {
    if (ProcLib::IsNumeric(entry->d_name) == 0) {
      return entry->d_name;
    }
  }
  return nullptr;
}

/// Goes on to the line that begins with the key: a process may have it in its name.
bool FindLine(LineReader& reader, ProcLine& line, std::string_view key) {
  while (reader.Next(line)) {
    if (std::string_view(line.data()).starts_with(key)) {
      return true;
    }
  }
  return false;
}

struct CloseDir {
  void operator()(DIR* directory) const { ::closedir(directory); }
};

}  // namespace

std::uint32_t SystemSourceUser::CountProcesses() {
  DIR* directory = ::opendir(HostPath(kProc).c_str());
  if (directory == nullptr) {
    Trace(20, kError, "The error occurred by OS API(opendir). (en=%1, arg1=%2)", errno, kProc);
    return 0;
  }
  std::uint32_t count = 0;
  while (NextProcess(directory) != nullptr) {
    ++count;
  }
  if (::closedir(directory) != 0) {
    Trace(20, kError, "The error occurred by OS API(closedir). (en=%1, arg1=%2)", errno, kProc);
  }
  return count;
}

int SystemSourceUser::CountUser(unsigned int* result) {
  const std::unique_ptr<DIR, CloseDir> directory(::opendir(HostPath(kProc).c_str()));
  if (directory == nullptr) {
    Trace(30, kError, "The error occurred by OS API(opendir). (en=%1, arg1=%2)", errno, kProc);
    return -1;
  }
  LineReader reader;
  // "/proc/", a directory name of the longest kind and the file's name.
  std::array<char, 288> path;
  while (const char* pid = NextProcess(directory.get())) {
    std::snprintf(path.data(), path.size(), "%s/%s/status", kProc, pid);
    // Relative to the open /proc, which spares the kernel the walk; a pipe in a captured tree must
    // not block the agent.
    const int descriptor = ::openat(::dirfd(directory.get()), path.data() + kProcPrefix,
                                    O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (descriptor < 0) {
      Trace(30, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)", errno,
            path.data(), "r");
      return -1;
    }
    reader.Start(descriptor);
    if (const std::optional<unsigned int> uid = UserOf(reader, path.data())) {
      AddUser(m_userIds, *uid);
    }
    if (::close(descriptor) != 0) {
      Trace(30, kError, "The error occurred by OS API(fclose). (en=%1, arg1=%2)", errno,
            path.data());
    }
  }
  *result = static_cast<unsigned int>(m_userIds.size());
  return 0;
}

std::optional<unsigned int> SystemSourceUser::UserOf(LineReader& reader, const char* path) {
  ProcLine line;
  if (!FindLine(reader, line, "Uid:")) {
    Trace(30, kError,
          "An error occurred in a function (SystemSourceUser :: GetLine).(rc=%1, arg1=%2, arg2=%3, "
          "arg3=%4)",
          -1, path, line.data(), "Uid:");
    return std::nullopt;
  }
  TextScanner scanner(line.data());
  unsigned int uid = 0;
  if (!scanner.SkipWord() || !scanner.Unsigned(uid)) {
    Trace(30, kError, "An error occurred by OS API (sscanf).(en=%1, arg1=%2, arg2=%3)", errno,
          line.data(), "%*s %u");
    return std::nullopt;
  }
  return uid;
}

void SystemSourceUser::AddUser(std::vector<unsigned int>& users, unsigned int uid) {
  if (std::find(users.begin(), users.end(), uid) == users.end()) {
    users.push_back(uid);
  }
}

int SystemSourceUser::GetLine(std::FILE* file, char** line, const char* key) {
  while (std::fgets(*line, static_cast<int>(std::tuple_size_v<ProcLine>), file) != nullptr) {
    if (std::strstr(*line, key) != nullptr) {
      return 0;
    }
  }
  return -1;
}
