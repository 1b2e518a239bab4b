#pragma once

#include <sys/types.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

/// The /tmp/logfile logger: takes error texts while it is enabled, and is silent otherwise. Nothing
/// in the running program enables it. The file is opened for appending at the first entry that is
/// written, and only if it is a regular file that no symbolic link stands for.
class UtlTextLog {
 public:
  enum Severity { kSevere = 0, kMild = 1, kNote = 2 };

  /// The one instance, made on first use.
  static UtlTextLog& Instance();
  UtlTextLog();
  ~UtlTextLog();
  UtlTextLog(const UtlTextLog&) = delete;
  UtlTextLog& operator=(const UtlTextLog&) = delete;

  /// Closes the file in either case; the next entry opens it anew, under a separator line.
  void SetEnabled(bool enabled);
  /// Collects the text of the next entry.
  [[nodiscard]] std::ostream& Text() { return m_text; }
  /// Writes the collected text as one entry raised at `file` and `line`, if the logger is enabled;
  /// the collected text is gone in any case. A file that can't be opened loses the entry.
  void Entry(Severity severity, const char* file, int line);

 private:
  class File;
  [[nodiscard]] bool Ready();

  bool m_enabled = false;
  bool m_separated = false;
  std::ostringstream m_text;
  std::unique_ptr<File> m_file;
  std::string m_userName;
  pid_t m_processId;
};
