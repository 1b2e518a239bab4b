#include "collect/log/FileEvent.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "support/HostPaths.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kMaxPath = 4095;
constexpr char kFilterSeparator = '\t';

}  // namespace

FileEvent::FileEvent(const char* path, const char* id, const char* filter)
    : m_path(std::string(path).substr(0, kMaxPath)), m_id(id) {
  static_cast<void>(openEventFn());
  AddFilter(filter);
}

void FileEvent::AddFilter(const char* filter) {
  if (std::strcmp(filter, "*") == 0) {
    m_matchesAll = true;
  } else {
    addRegex(filter);
  }
}

void FileEvent::addRegex(const char* text) {
  TraceEntry("FileEvent::addRegex", text);
  std::string_view rest(text);
  while (!rest.empty()) {
    const std::string piece(rest.substr(0, rest.find(kFilterSeparator)));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    if (!piece.empty()) {
      m_filters.push_back(std::make_unique<RegExp>(piece.c_str()));
    }
  }
  TraceExit("FileEvent::addRegex");
}

UtlErrorPtr FileEvent::Failure(const char* operation, const char* call, int line) const {
  const int code = errno;
  auto failure = std::make_unique<UtlError>(__FILE__, line);
  failure->GetStream() << operation << "(mess=" << m_path << "): " << call << '(' << m_path
                       << ") failed! errno: " << code;
  failure->CloseStream();
  return failure;
}

UtlErrorPtr FileEvent::OpenFailure(const char* call, int line) const {
  const int code = errno;
  const std::string format = std::string("An error occurred in ") + call + "(%1). (%2) (err=%3)";
  Trace(20, kError, {format.c_str(), __FILE__, line}, m_path, std::strerror(code), code);
  errno = code;
  return Failure("FileEvent::openEventFn", call, line);
}

UtlErrorPtr FileEvent::openEventFn() {
  TraceEntry("FileEvent::openEventFn", m_path);
  m_stream.reset();
  m_failure = Open();
  TraceExit("FileEvent::openEventFn");
  return m_failure == nullptr ? nullptr : std::make_unique<UtlError>(*m_failure);
}

UtlErrorPtr FileEvent::Open() {
  const std::string path = HostPath(m_path);
  struct ::stat status {};
  if (Os().stat(path.c_str(), &status) != 0) {
    return OpenFailure("stat", __LINE__);
  }
  m_offset = status.st_size;
  TextFilePtr stream = OpenTextFile(path);
  if (stream == nullptr) {
    return OpenFailure("open", __LINE__);
  }
  if (std::fseek(stream.get(), m_offset, SEEK_SET) != 0) {
    return OpenFailure("fseek", __LINE__);
  }
  m_stream = std::move(stream);
  return nullptr;
}

FileEvent::LineEnd FileEvent::ReadLine() {
  m_line.clear();
  // A former end of the file would hide what has been appended since.
  std::clearerr(m_stream.get());
  if (m_isInLongLine) {
    const LineEnd rest = ReadToNewline(0);
    if (rest != LineEnd::kNewline) {
      return rest == LineEnd::kTooLong ? LineEnd::kEndOfFile : rest;
    }
    m_isInLongLine = false;
    m_offset = std::ftell(m_stream.get());
  }
  return ReadToNewline(kKeptBytes);
}

FileEvent::LineEnd FileEvent::ReadToNewline(std::size_t keptBytes) {
  m_isCut = false;
  for (std::size_t length = 0; length < kMaxLineBytes; ++length) {
    const int c = ::getc_unlocked(m_stream.get());
    if (c == EOF) {
      return std::ferror(m_stream.get()) != 0 ? LineEnd::kFailed : LineEnd::kEndOfFile;
    }
    if (c == '\n') {
      return LineEnd::kNewline;
    }
    if (length < keptBytes) {
      m_line.push_back(static_cast<char>(c));
    } else {
      m_isCut = true;
    }
  }
  return LineEnd::kTooLong;
}

bool FileEvent::IsTaken() const {
  return m_matchesAll || std::any_of(m_filters.begin(), m_filters.end(), [&](const auto& filter) {
           return filter->match(m_line.c_str(), m_isCut) != 0;
         });
}

void FileEvent::Format(x_messages& out, unsigned serial) const {
  const std::string label = m_id.empty() ? m_path.substr(m_path.rfind('/') + 1) : m_id;
  out.size = x_messages::kSize;
  out.id = serial;
  out.text.fill('\0');
  std::snprintf(out.text.data(), out.text.size(), "qmtdmon %s: %s", label.c_str(), m_line.c_str());
}

std::pair<bool, UtlErrorPtr> FileEvent::collect(x_messages& out, unsigned& serial) try {
  TraceEntry("FileEvent::collect", m_path);
  if (m_failure != nullptr) {
    TraceExit("FileEvent::collect");
    return {false, std::make_unique<UtlError>(*m_failure)};
  }
  const LineEnd end = ReadLine();
  UtlErrorPtr failure;
  if (end == LineEnd::kFailed) {
    failure = Failure("FileEvent::collect", "fgets", __LINE__);
  } else if (IsTaken()) {
    Format(out, serial + 1);
    ++serial;
  }
  m_isInLongLine = m_isInLongLine || end == LineEnd::kTooLong;
  m_offset = std::ftell(m_stream.get());
  TraceExit("FileEvent::collect");
  return {end == LineEnd::kNewline || end == LineEnd::kTooLong, std::move(failure)};
} catch (const std::bad_alloc&) {
  Trace(20, kError,
        "error number (%3).error occurred by class function(%1).error occurred by function(%2).",
        "FileEvent::collect()", "malloc()", ENOMEM);
  // The line is read again as a whole.
  std::fseek(m_stream.get(), m_offset, SEEK_SET);
  errno = ENOMEM;
  TraceExit("FileEvent::collect");
  return {false, Failure("FileEvent::collect", "malloc", __LINE__)};
}
