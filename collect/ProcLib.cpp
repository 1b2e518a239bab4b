#include "collect/ProcLib.h"

#include <cerrno>
#include <cstring>

#include "collect/HostFile.h"
#include "support/TraceLog.h"
#include "support/UtlError.h"

namespace {

constexpr std::array<const char*, 10> kProcPaths{
    "/proc/stat",         "/proc/interrupts", "/proc/cpuinfo", "/proc/net/rpc/nfs",
    "/proc/net/rpc/nfsd", "/proc/partitions", "/proc/uptime",  "/proc/loadavg",
    "/proc/diskstats",    "/proc/vmstat"};

constexpr std::size_t kKeyLimit = 31;

/// Parts a line into its first word and what stands behind the one character after it.
bool SplitLine(std::string_view line, std::string_view delim, std::string_view& key,
               std::string_view& value) {
  const std::size_t begin = line.find_first_not_of(delim);
  if (begin == std::string_view::npos) {
    return false;
  }
  const std::size_t end = line.find_first_of(delim, begin);
  if (end == std::string_view::npos || end + 1 == line.size()) {
    return false;
  }
  key = line.substr(begin, end - begin);
  value = line.substr(end + 1);
  return true;
}

}  // namespace

const char* ProcLib::FilePath(int index) {
  return index < 0 || static_cast<std::size_t>(index) >= kProcPaths.size()
             ? nullptr
             : kProcPaths[static_cast<std::size_t>(index)];
}

ProcLib::FilePtr ProcLib::Open(const char* path) { return OpenHostFile(path); }

UtlError* ProcLib::Initialize(int index) {
  TraceEntry("ProcLib::Initialize", index);
  const char* path = FilePath(index);
  m_fp.reset();
  errno = EINVAL;
  m_fp = path == nullptr ? nullptr : Open(path);
  m_numLines = 0;
  if (m_fp != nullptr) {
    TraceExit("ProcLib::Initialize", 0);
    return nullptr;
  }
  const int code = errno;
  path = path == nullptr ? "" : path;
  auto error = std::make_unique<UtlError>(__FILE__, __LINE__);
  error->GetStream() << "ProcLib::Initialize(file=" << path << "): fopen(" << path
                     << ") failed! errno: " << code;
  error->CloseStream();
  Trace(20, kError, "The error occurred by OS API(fopen). (en=%1, arg1=%2, arg2=%3, arg3=%4)", code,
        path, "r", index);
  TraceExit("ProcLib::Initialize", -1);
  return error.release();
}

std::FILE* ProcLib::GetProcFp(const char* path) {
  m_fp.reset();
  m_fp = Open(path);
  m_numLines = 0;
  if (m_fp == nullptr) {
    MessageAt(20, 10100, "fopen", errno, path, "r", "");
  }
  return m_fp.get();
}

int ProcLib::GetLine(ProcLine& line) {
  if (m_fp == nullptr ||
      std::fgets(line.data(), static_cast<int>(line.size()), m_fp.get()) == nullptr) {
    return -1;
  }
  return 0;
}

int ProcLib::GetString(ProcLine& line) {
  if (GetLine(line) != 0) {
    if (m_fp != nullptr && std::ferror(m_fp.get()) != 0) {
      Trace(30, kError,
            "Error has occured in function (ProcLib::GetString) due to OS API (fgets) .");
    }
    return -1;
  }
  // A line that begins with a NUL has no last character.
  if (const std::size_t length = std::strlen(line.data()); length != 0) {
    line[length - 1] = '\0';
  }
  return 0;
}

int ProcLib::GetNumLines() {
  if (m_numLines == 0) {
    if (m_fp == nullptr) {
      return -1;
    }
    std::rewind(m_fp.get());
    int count = 0;
    for (ProcLine line; GetString(line) == 0;) {
      ++count;
    }
    m_numLines = count < 1 ? -1 : count;
    std::rewind(m_fp.get());
  }
  return m_numLines;
}

int ProcLib::BuildProcMap(const char* delim) {
  if (m_fp == nullptr) {
    return -1;
  }
  // One pass makes the map and, unless an earlier call has, counts the lines.
  const bool counted = m_numLines != 0;
  const auto limit = static_cast<std::size_t>(m_numLines > 0 ? m_numLines : 0);
  int numLines = 0;
  m_map.clear();
  m_mapText.clear();
  // What an earlier call left in the stream's buffer is not read again.
  std::fflush(m_fp.get());
  std::rewind(m_fp.get());
  ProcLine line;
  while ((!counted || m_map.size() < limit) && GetString(line) == 0) {
    std::string_view key;
    std::string_view value;
    ++numLines;
    if (SplitLine(line.data(), delim, key, value)) {
      key = key.substr(0, kKeyLimit);
      m_map.push_back({m_mapText.size(), key.size(), value.size()});
      m_mapText.append(key).append(value);
    }
  }
  std::rewind(m_fp.get());
  if (!counted) {
    m_numLines = numLines < 1 ? -1 : numLines;
  }
  if (m_numLines == -1) {
    Trace(30, kError, "An error occured in a function (ProcLib::GetNumLines).(rc=%1).", m_numLines);
    return -1;
  }
  return 0;
}

int ProcLib::GetProcMapValue(const char* key, ProcLine& out) const {
  const std::string_view text = m_mapText;
  for (const ProcMapEntry& entry : m_map) {
    if (text.substr(entry.begin, entry.keyLength).find(key) != std::string_view::npos) {
      const std::string_view value = text.substr(entry.begin + entry.keyLength, entry.valueLength);
      out[value.copy(out.data(), out.size() - 1)] = '\0';
      return 0;
    }
  }
  return -1;
}

int ProcLib::IsNumeric(const char* text) {
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') {
      return -1;
    }
  }
  return 0;
}

int ProcLib::IsNumberedName(const char* name, const char* prefix) {
  const std::size_t length = std::strlen(prefix);
  if (std::strlen(name) <= length || std::strncmp(name, prefix, length) != 0) {
    return -1;
  }
  const char* number = name + length;
  if (number[0] == '0' && number[1] != '\0') {
    return -1;
  }
  return IsNumeric(number);
}
