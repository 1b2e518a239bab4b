#pragma once

#include <memory>
#include <ostream>
#include <sstream>
#include <string>

/// A failure on its way up: an operation that can fail returns null or a heap-allocated error that
/// its receiver logs and deletes. All texts are copied and owned. Of a file name only the part from
/// the last '/' on is kept, with that '/'.
class UtlError {
 public:
  UtlError(const char* file, int line);
  UtlError(const char* message, const char* file, int line);
  UtlError(const UtlError& other);
  virtual ~UtlError();
  /// Copies message and line; the file only if this error had one.
  virtual UtlError& operator=(const UtlError& other);

  /// Write the error to the /tmp/logfile logger, which is silent unless enabled.
  virtual void LogError(const char* file, int line);
  virtual void LogWarning(const char* file, int line);
  virtual void LogInfo(const char* file, int line);

  /// The text, or "NO MESSAGE"; closes an open stream first. Owned by the error.
  [[nodiscard]] virtual const char* GetMessage();
  /// Whether there is a text, open or closed.
  [[nodiscard]] bool HasMessage() const { return m_message != nullptr || m_stream != nullptr; }
  /// The file, or "NO FILE". Owned by the error.
  [[nodiscard]] virtual const char* GetFile() const;
  [[nodiscard]] virtual int GetLine() const;
  /// Opens a stream for composing the message and drops the former message. Owned by the error.
  [[nodiscard]] virtual std::ostream& GetStream();
  /// Takes the open stream's text as message.
  virtual void CloseStream();

 private:
  std::unique_ptr<std::ostringstream> m_stream;
  std::unique_ptr<std::string> m_message;
  std::unique_ptr<std::string> m_file;
  int m_line;
};

/// How a body holds an error that an operation returned to it.
using UtlErrorPtr = std::unique_ptr<UtlError>;
