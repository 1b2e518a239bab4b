#include "support/UtlError.h"

#include <cstring>

#include "support/UtlTextLog.h"

namespace {

std::unique_ptr<std::string> OwnedText(const char* text) {
  return text == nullptr ? nullptr : std::make_unique<std::string>(text);
}

std::unique_ptr<std::string> OwnedCopy(const std::unique_ptr<std::string>& text) {
  return text == nullptr ? nullptr : std::make_unique<std::string>(*text);
}

std::unique_ptr<std::string> OwnedFile(const char* file) {
  const char* slash = file == nullptr ? nullptr : std::strrchr(file, '/');
  return OwnedText(slash == nullptr ? file : slash);
}

void WriteEntry(UtlTextLog::Severity severity, UtlError& error, const char* file, int line) {
  UtlTextLog& log = UtlTextLog::Instance();
  log.Text() << error.GetMessage();
  log.Entry(severity, file, line);
}

}  // namespace

UtlError::UtlError(const char* file, int line) : UtlError(nullptr, file, line) {}

UtlError::UtlError(const char* message, const char* file, int line)
    : m_message(OwnedText(message)), m_file(OwnedFile(file)), m_line(line) {}

UtlError::UtlError(const UtlError& other)
    : m_message(OwnedCopy(other.m_message)),
      m_file(OwnedCopy(other.m_file)),
      m_line(other.m_line) {}

UtlError::~UtlError() = default;

UtlError& UtlError::operator=(const UtlError& other) {
  if (this != &other) {
    m_stream.reset();
    m_message = OwnedCopy(other.m_message);
    if (m_file != nullptr) {
      m_file = OwnedCopy(other.m_file);
    }
    m_line = other.m_line;
  }
  return *this;
}

void UtlError::LogError(const char* file, int line) {
  WriteEntry(UtlTextLog::kSevere, *this, file, line);
}
void UtlError::LogWarning(const char* file, int line) {
  WriteEntry(UtlTextLog::kMild, *this, file, line);
}
void UtlError::LogInfo(const char* file, int line) {
  WriteEntry(UtlTextLog::kNote, *this, file, line);
}

const char* UtlError::GetMessage() {
  CloseStream();
  return m_message == nullptr ? "NO MESSAGE" : m_message->c_str();
}

const char* UtlError::GetFile() const { return m_file == nullptr ? "NO FILE" : m_file->c_str(); }

int UtlError::GetLine() const { return m_line; }

std::ostream& UtlError::GetStream() {
  m_message.reset();
  m_stream = std::make_unique<std::ostringstream>();
  return *m_stream;
}

void UtlError::CloseStream() {
  if (m_stream != nullptr) {
    m_message = std::make_unique<std::string>(m_stream->str());
    m_stream.reset();
  }
}
