#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "collect/ProcessStatus.h"
#include "collect/ProcessWalk.h"
#include "collect/system/SystemSourceLINUX.h"

namespace {

/// Goes on to the line that has the key.
bool FindLine(LineReader& reader, ProcLine& line, std::string_view key) {
  while (reader.Next(line)) {
    if (HasStatusKey(line.data(), key)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::uint32_t SystemSourceUser::CountProcesses() {
  ProcessWalk walk(20);
  std::uint32_t count = 0;
  while (walk.IsOpen() && walk.Next() != nullptr) {
    ++count;
  }
  return count;
}

int SystemSourceUser::CountUser(unsigned int* result) {
  ProcessWalk walk(30);
  if (!walk.IsOpen()) {
    return -1;
  }
  LineReader reader;
  while (const char* pid = walk.Next()) {
    ProcessFolder folder(pid);
    const char* const path = folder.PathOf("status");
    const int descriptor = walk.Open(path);
    if (descriptor < 0) {
      Trace(30, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3)", errno,
            path, "r");
      return -1;
    }
    reader.Start(descriptor);
    if (const std::optional<unsigned int> uid = UserOf(reader, path)) {
      AddUser(m_userIds, *uid);
    }
    if (::close(descriptor) != 0) {
      Trace(30, kError, "The error occurred by OS API(fclose). (en=%1, arg1=%2)", errno, path);
    }
  }
  *result = static_cast<unsigned int>(m_userIds.size());
  return 0;
}

std::optional<unsigned int> SystemSourceUser::UserOf(LineReader& reader, const char* path) {
  ProcLine line;
  if (!FindLine(reader, line, kStatusUid)) {
    Trace(30, kError,
          "An error occurred in a function (SystemSourceUser :: GetLine).(rc=%1, arg1=%2, arg2=%3, "
          "arg3=%4)",
          -1, path, line.data(), kStatusUid);
    return std::nullopt;
  }
  TextScanner scanner = StatusValues(line.data(), kStatusUid);
  unsigned int uid = 0;
  if (!scanner.Unsigned(uid)) {
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
