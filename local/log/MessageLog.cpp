#include "local/log/MessageLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <utility>

#include "node/MessageCatalog.h"

namespace {

constexpr long kHighestLevel = 999;
constexpr int kAlwaysLevel = 1;

void ReadLevel(CMBIniFile& ini, const char* key, int& level) {
  long value = level;
  if (ini.ReadLong(&value, key, "Node", nullptr, nullptr) != 0 && value >= 0 &&
      value <= kHighestLevel) {
    level = static_cast<int>(value);
  }
}

/// Whether JOURNAL_STREAM ("device:inode") names the file behind the descriptor, so that who reads
/// it understands priorities.
bool IsJournal(int descriptor) {
  const std::string_view text = OrEmpty(std::getenv("JOURNAL_STREAM"));
  const char* end = text.data() + text.size();
  unsigned long long device = 0;
  unsigned long long inode = 0;
  const auto first = std::from_chars(text.data(), end, device);
  if (first.ec != std::errc{} || first.ptr == end || *first.ptr != ':') {
    return false;
  }
  const auto second = std::from_chars(first.ptr + 1, end, inode);
  struct stat status {};
  return second.ec == std::errc{} && second.ptr == end && ::fstat(descriptor, &status) == 0 &&
         status.st_dev == device && status.st_ino == inode;
}

char KindLetter(int kind) {
  switch (kind) {
    case kError:
      return 'E';
    case kWarning:
      return 'W';
    case kInformation:
      return 'I';
    default:
      return '?';
  }
}

/// The journal's priorities: 3 error, 4 warning, 6 information, 7 debug.
char Priority(int level, int kind) {
  if (level >= MessageLog::kDetailLevel && level != MessageLog::kCommonLogLevel) {
    return '7';
  }
  return kind == kError ? '3' : kind == kWarning ? '4' : '6';
}

std::string Place(const char* file, int line) {
  const std::string_view path = OrEmpty(file);
  std::string place(path.substr(path.rfind('/') + 1));
  return (place.empty() ? "?" : place) + ':' + std::to_string(line);
}

std::string Origin(const MessageLine& line) {
  if (line.level == MessageLog::kCommonLogLevel) {
    return "common:" + std::to_string(line.number);
  }
  return line.number != 0 ? std::to_string(line.number) : Place(line.sourceFile, line.sourceLine);
}

std::string LineOf(int level, int kind, std::string_view origin, std::string_view text) {
  std::string line;
  AppendMoment(line, std::chrono::system_clock::now());
  line += ' ' + std::to_string(::getpid()) + ' ' + std::to_string(level) + ' ' + KindLetter(kind);
  line += ' ';
  AppendLine(line, origin, MessageLog::kMaxText);
  line += ' ';
  AppendLine(line, text, MessageLog::kMaxText);
  return line += '\n';
}

}  // namespace

void ReadLogLevels(CMBIniFile& ini, MessageLogSettings& settings) {
  ReadLevel(ini, kLogLevelKey, settings.logLevel);
  ReadLevel(ini, kDataLevelKey, settings.dataLevel);
}

bool IsLevel(std::string_view text) {
  long value = -1;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  return status == std::errc{} && end == text.data() + text.size() && value >= 0 &&
         value <= kHighestLevel;
}

MessageLog::MessageLog(MessageLogSettings settings)
    : m_settings(std::move(settings)),
      m_isJournal(IsJournal(m_settings.errorDescriptor)),
      m_errors(m_settings.errorDescriptor),
      m_messages(m_settings.directory + "/log/qmtdmon.log", m_settings.maxFileBytes,
                 m_settings.oldFiles, m_settings.lookPause),
      m_data(m_settings.directory + "/log/qmtdmon.dat", m_settings.maxFileBytes,
             m_settings.oldFiles, m_settings.lookPause) {}

bool MessageLog::IsShown(int level) const {
  if (level == kCommonLogLevel) {
    return IsShown(kOperatorLevel);
  }
  return level <= kAlwaysLevel || level <= m_settings.logLevel;
}

template <class Action>
void MessageLog::Guarded(Action action) noexcept {
  try {
    action();
  } catch (...) {
    m_errors.Write("A message could not be written: no memory.\n");
  }
}

void MessageLog::PrintMsg(const MessageLine& line) noexcept {
  if (IsShown(line.level)) {
    Guarded([&] {
      Write(line.level, line.kind, Origin(line),
            ExpandMessage(line.format, line.argCount, line.args));
    });
  }
}

void MessageLog::EventText(const char* text) noexcept {
  Guarded([&] { Write(kAlwaysLevel, kInformation, "event", OrEmpty(text)); });
}

void MessageLog::DebugText(const char* file, int line, const char* text) noexcept {
  if (IsShown(kDetailLevel)) {
    Guarded([&] { Write(kDetailLevel, kInformation, Place(file, line), OrEmpty(text)); });
  }
}

void MessageLog::AssertLog(const char* expression, const char* file, int line) noexcept {
  Guarded([&] {
    Write(kAlwaysLevel, kError, Place(file, line),
          std::string("Assertion failed: ") + OrEmpty(expression));
  });
}

void MessageLog::Note(int level, int kind, std::string_view text) noexcept {
  if (IsShown(level)) {
    Guarded([&] { Write(level, kind, "node", text); });
  }
}

void MessageLog::Write(int level, int kind, std::string_view origin, std::string_view text) {
  const std::string line = LineOf(level, kind, origin, text);
  if (level != kCommonLogLevel) {
    WriteToErrors(level, kind, line);
  }
  if (level <= kOperatorLevel) {
    m_recent.Add(std::time(nullptr), kind, text);
  }
  std::string problem;
  if (!m_messages.Write(line, problem) && !problem.empty()) {
    WriteToErrors(
        kAlwaysLevel, kError,
        LineOf(kAlwaysLevel, kError, "node", "The message log can't be written: " + problem));
  }
}

void MessageLog::WriteToErrors(int level, int kind, std::string_view line) {
  std::string out;
  if (m_isJournal) {
    out = {'<', Priority(level, kind), '>'};
  }
  // One call, so that lines of several processes don't mix.
  m_errors.Write(out.append(line));
}

short MessageLog::PrintDat(const char* data, int length, int level, int, int* written) noexcept {
  constexpr int kLimit = std::numeric_limits<short>::max();
  if (written != nullptr) {
    *written = 0;
  }
  if (length < 0 || (data == nullptr && length > 0)) {
    return -1;
  }
  const auto taken = static_cast<short>(std::min(length, kLimit));
  if (level <= m_settings.dataLevel && taken > 0) {
    bool isWritten = false;
    Guarded([&] { isWritten = WriteData({data, static_cast<std::size_t>(taken)}); });
    if (!isWritten) {
      return -1;
    }
  }
  if (written != nullptr) {
    *written = taken;
  }
  return taken;
}

bool MessageLog::WriteData(std::string_view data) {
  std::string text;
  AppendHarmless(text, data, LineEnds::kKeep);
  std::string problem;
  const bool isWritten = m_data.Write(text, problem);
  if (!problem.empty()) {
    Note(kAlwaysLevel, kError, "The data trace can't be written: " + problem);
  }
  return isWritten;
}
