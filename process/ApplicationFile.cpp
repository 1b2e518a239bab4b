#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include "process/ApplicationMonitor.h"
#include "support/AtomicFile.h"
#include "support/HostPaths.h"
#include "support/TextFile.h"

// The file of the monitored applications: "A", tab, name for each application, and below it its
// conditions: "P", tab, kind, tab, minimum, tab, maximum, tab, pattern.

namespace {

constexpr const char* kTab = "\t";
constexpr const char* kForbidden = "\\:,;*?\"'<>|";
constexpr std::size_t kMaxLine = 255;
/// Far beyond the largest file that a full list makes.
constexpr std::size_t kMaxFile = 1 << 20;

/// The whole file; false with a reason if it can't be read.
bool Load(std::FILE* file, std::string& text, std::string& reason) {
  std::array<char, 16384> piece;
  while (text.size() <= kMaxFile) {
    const std::size_t got = std::fread(piece.data(), 1, piece.size(), file);
    if (got == 0) {
      break;
    }
    text.append(piece.data(), got);
  }
  if (std::ferror(file) != 0) {
    reason = std::strerror(errno);
  } else if (text.size() > kMaxFile) {
    reason = "the file is larger than " + std::to_string(kMaxFile) + " bytes";
  }
  return reason.empty();
}

/// Makes `copy` of a file that has been read: the system may forbid links to other users' files,
/// and some file systems have none.
bool Copy(const std::string& file, const std::string& copy) {
  std::string text;
  std::string reason;
  const TextFilePtr stream = OpenTextFile(file);
  return stream != nullptr && Load(stream.get(), text, reason) &&
         ReplaceFileLike(file, copy, text, reason);
}

/// Gives the file a second name with ".bak" behind it; true also if there is no file.
bool KeepOld(const std::string& file) {
  const std::string kept = file + ".bak";
  const std::string fresh = kept + ".new";
  ::unlink(fresh.c_str());
  if (::link(file.c_str(), fresh.c_str()) != 0) {
    return errno == ENOENT || Copy(file, kept);
  }
  const bool isKept = ::rename(fresh.c_str(), kept.c_str()) == 0;
  // It is still there if it failed, and if both were names of one file already.
  ::unlink(fresh.c_str());
  return isKept;
}

/// Null behind the last one. Tabs that stand together part two fields, as one does.
const char* NextField(char*& fields) { return ::strtok_r(nullptr, kTab, &fields); }

/// The number at the front of a field, 0 without one, within the limits of its type.
int NumberOf(const char* field) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<int>(
      std::clamp<long long>(std::strtoll(field, nullptr, 10), Limits::min(), Limits::max()));
}

bool IsNumber(const char* field) {
  const char* digits = field[0] == '-' ? field + 1 : field;
  return digits[0] != '\0' && std::strspn(digits, "0123456789") == std::strlen(digits);
}

/// What of a condition's three numbers can't be meant; empty if nothing.
std::string FaultOfNumbers(const std::array<const char*, 3>& fields,
                           const ProcessCondition& condition) {
  static constexpr std::array kNames{"kind", "minimum", "maximum"};
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (!IsNumber(fields[i])) {
      return std::string("the ") + kNames[i] + " is not a number";
    }
  }
  const int kind = NumberOf(fields[0]);
  if (kind < ApplicationMonitor::kNone || kind > ApplicationMonitor::kCommandLine) {
    return "the kind is none of 0, 1 and 2, so that the condition never matches";
  }
  if (condition.rangeMin > condition.rangeMax || condition.rangeMax < 0) {
    return "the range is empty, so that the condition is never met";
  }
  return {};
}

}  // namespace

int ApplicationMonitor::read(const char* path) { return ReadFile(ProductPath(path)); }

int ApplicationMonitor::ReadFile(const std::string& file) {
  StartReading();
  const TextFilePtr stream = OpenTextFile(file);
  if (stream == nullptr && errno == ENOENT) {
    return 1;
  }
  std::string text;
  std::string reason;
  if (stream == nullptr) {
    reason = errno == EINVAL ? "it is not a regular file" : std::strerror(errno);
  }
  if (stream == nullptr || !Load(stream.get(), text, reason)) {
    m_isFileUnread = true;
    AddFault(0, reason);
    return 0;
  }
  return ReadText(text);
}

void ApplicationMonitor::StartReading() {
  m_applications.clear();
  m_faults.clear();
  m_currentProcess = 0;
  m_isFileUnread = false;
  m_isFileFaulty = false;
}

int ApplicationMonitor::ReadText(std::string_view text) {
  StartReading();
  int result = 1;
  for (int line = 1; !text.empty(); ++line) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    LineVerdict verdict = TakeText(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (!verdict.isTaken) {
      result = 0;
    }
    if (!verdict.fault.empty()) {
      AddFault(line, std::move(verdict.fault));
    }
  }
  return result;
}

void ApplicationMonitor::AddFault(int line, std::string text) {
  m_isFileFaulty = true;
  if (m_faults.size() < kMaxFaults) {
    m_faults.push_back({line, std::move(text)});
  }
}

ApplicationMonitor::LineVerdict ApplicationMonitor::TakeText(std::string_view line) {
  if (line.size() > kMaxLine) {
    return {false, "the line is longer than 255 bytes"};
  }
  if (line.find('\0') != std::string_view::npos) {
    return {false, "the line holds a zero byte"};
  }
  std::array<char, kMaxLine + 1> buffer{};
  line.copy(buffer.data(), line.size());
  LineVerdict verdict = TakeLine(buffer.data());
  if (verdict.fault.empty() && line.ends_with('\r')) {
    verdict.fault = "the line ends in a carriage return, which counts to its last field";
  }
  return verdict;
}

int ApplicationMonitor::parseLine(char* line) { return TakeLine(line).isTaken ? 1 : 0; }

ApplicationMonitor::LineVerdict ApplicationMonitor::TakeLine(char* line) {
  char* rest = nullptr;
  const char* word = ::strtok_r(line, kTab, &rest);
  if (word == nullptr) {
    return {};
  }
  switch (word[0]) {
    case 'A':
      return TakeApplication(rest);
    case 'P':
      return TakeCondition(rest);
    default:
      return {true, "the line begins with neither \"A\" nor \"P\" and is ignored"};
  }
}

ApplicationMonitor::LineVerdict ApplicationMonitor::TakeApplication(char* fields) {
  const char* name = NextField(fields);
  if (name == nullptr) {
    return {false, "the application has no name"};
  }
  if (GetCount() >= kMaxApplications) {
    return {false, "there are more than 64 applications"};
  }
  if (const char* forbidden = std::strpbrk(name, kForbidden)) {
    return {false, std::string("the name holds the character ") + *forbidden};
  }
  ApplicationEntry& entry = m_applications.emplace_back();
  entry.name = name;
  m_currentProcess = 0;
  if (std::strlen(name) > std::strlen(entry.name.c_str())) {
    return {true, "the name is longer than 63 characters and is cut"};
  }
  if (NextField(fields) != nullptr) {
    return {true, "what stands behind the name is ignored"};
  }
  return {};
}

ApplicationMonitor::LineVerdict ApplicationMonitor::TakeCondition(char* fields) {
  if (m_applications.empty()) {
    return {false, "the process stands before the first application"};
  }
  if (m_currentProcess >= kProcesses) {
    return {false, "the application has more than 15 processes"};
  }
  std::array<const char*, 3> numbers{};
  for (const char*& number : numbers) {
    number = NextField(fields);
    if (number == nullptr) {
      return {false, "the process lacks its kind, minimum or maximum"};
    }
  }
  const char* pattern = NextField(fields);
  ProcessCondition& condition =
      m_applications.back().processes[static_cast<std::size_t>(m_currentProcess)];
  ++m_currentProcess;
  const int kind = NumberOf(numbers[0]);
  condition.kind = static_cast<std::uint8_t>(
      kind <= std::numeric_limits<std::uint8_t>::max() ? std::max(kind, 0) : 0);
  condition.rangeMin = NumberOf(numbers[1]);
  condition.rangeMax = NumberOf(numbers[2]);
  condition.pattern = pattern;
  if (std::string fault = FaultOfNumbers(numbers, condition); !fault.empty()) {
    return {true, std::move(fault)};
  }
  if (pattern != nullptr && std::strlen(pattern) > std::strlen(condition.pattern.c_str())) {
    return {true, "the pattern is longer than 127 characters and is cut"};
  }
  if (NextField(fields) != nullptr) {
    return {true, "what stands behind the pattern is ignored"};
  }
  return {};
}

std::string ApplicationMonitor::FileText() const {
  std::string text;
  for (const ApplicationEntry& application : m_applications) {
    text += std::string("A\t") + application.name.c_str() + "\n";
    for (const ProcessCondition& condition : application.processes) {
      text += "P\t" + std::to_string(condition.kind) + "\t" + std::to_string(condition.rangeMin) +
              "\t" + std::to_string(condition.rangeMax) + "\t" + condition.pattern.c_str() + "\n";
    }
  }
  return text;
}

int ApplicationMonitor::write(const char* path) {
  const std::string file = ProductPath(path);
  if (m_isFileUnread) {
    errno = 0;
    return 0;
  }
  if (m_isFileFaulty && !KeepOld(file)) {
    return 0;
  }
  std::string reason;
  const bool isDone =
      m_applications.empty() ? ::unlink(file.c_str()) == 0 : ReplaceFile(file, FileText(), reason);
  if (!isDone) {
    return 0;
  }
  if (m_applications.empty()) {
    SyncFolderOf(file);
  }
  m_isFileFaulty = false;
  return 1;
}
