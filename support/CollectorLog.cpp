#include "support/CollectorLog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <string>

#include "support/OsCalls.h"
#include "support/RegularFile.h"
#include "support/TraceLog.h"

namespace {

constexpr const char* kFileName = "COLLECTOR.LOG";
constexpr mode_t kLogMode = 0664;
constexpr off_t kRotateSize = 0x6400000;
constexpr std::size_t kLineSize = 4097;

using Line = std::array<char, kLineSize>;

/// Null if there can be no such file.
TextFilePtr OpenLog(const std::string& name) {
  constexpr mode_t kCreated = 0666;
  return OpenRegularStream(name, O_RDWR | O_CREAT | O_TRUNC, kCreated, "w+");
}

/// "Mmm dd hh:mm:ss : "; returns its length.
std::size_t PutTime(Line& line) {
  const std::time_t now = Os().time(nullptr);
  std::tm parts{};
  if (::localtime_r(&now, &parts) == nullptr) {
    return 0;
  }
  static constexpr std::array kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const int length =
      std::snprintf(line.data(), line.size(),
                    "%s %2d %02d:%02d:%02d : ", kMonths.at(static_cast<std::size_t>(parts.tm_mon)),
                    parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return length < 0 ? 0 : static_cast<std::size_t>(length);
}

/// Room is kept for the line end, so that a cut line ends in one too.
void EndLine(Line& line) {
  const std::size_t length = std::strlen(line.data());
  if (length == 0 || line[length - 1] != '\n') {
    line[std::min(length, kLineSize - 2)] = '\n';
  }
}

}  // namespace

CollectorLog& CollectorLog::Instance() {
  static CollectorLog log;
  return log;
}

CollectorLog::CollectorLog() {
  if (g_collectorLogOn != 0) {
    m_file = OpenLog(kFileName);
    if (m_file != nullptr) {
      ::fchmod(::fileno(m_file.get()), kLogMode);
    }
  }
}

void CollectorLog::Log(const char* format, ...) {
  if (g_collectorLogOn == 0 || m_file == nullptr) {
    return;
  }
  Line line{};
  const std::size_t start = PutTime(line);
  std::va_list args;
  va_start(args, format);
  std::vsnprintf(line.data() + start, line.size() - start, format, args);
  va_end(args);
  EndLine(line);

  struct ::stat status {};
  if (::fstat(::fileno(m_file.get()), &status) == 0 && status.st_size >= kRotateSize) {
    Rotate();
  }
  if (m_file == nullptr) {
    return;
  }
  if (std::fputs(line.data(), m_file.get()) < 0 || std::fflush(m_file.get()) != 0) {
    const int error = errno;
    Trace(20, kWarning, "The error occured by OS API(fprintf).(en = %1, arg1 = %2, arg2 = %3).",
          error, AddressOf(m_file.get()), line.data());
    std::clearerr(m_file.get());
  }
}

void CollectorLog::Rotate() {
  ++m_rotations;
  const std::string name = std::string(kFileName) + '.' + std::to_string(m_rotations);
  m_file = OpenLog(name);
}
