#include "support/UtlTextLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "support/HostPaths.h"
#include "support/OsCalls.h"

namespace {

constexpr std::array kSeverityNames{"ERROR - ", "WARNING - ", "INFO - "};
constexpr mode_t kOwnersMode = 0600;

std::string UserName() {
  const ::passwd* user = Os().getpwuid(::getuid());
  return user == nullptr || user->pw_name == nullptr ? std::string{} : user->pw_name;
}

std::string TimeText() {
  const std::time_t now = Os().time(nullptr);
  std::tm parts{};
  std::array<char, 64> text{};
  if (::localtime_r(&now, &parts) == nullptr) {
    return {};
  }
  return {text.data(), std::strftime(text.data(), text.size(), "%d-%h-%Y %T", &parts)};
}

const char* BaseName(const char* file) {
  const char* slash = std::strrchr(file, '/');
  return slash == nullptr ? file : slash + 1;
}

}  // namespace

/// The open file; bad once a write has failed.
class UtlTextLog::File {
 public:
  /// Others may write to the folder of the log: whatever stands there under its name is opened
  /// without following it, without waiting for it, and used only if it is a plain file of the
  /// agent's own.
  File()
      : m_descriptor(::open(ProductPath("/tmp/logfile").c_str(),
                            O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                            kOwnersMode)) {
    struct ::stat status {};
    m_good = m_descriptor >= 0 && ::fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
             status.st_uid == ::geteuid() && status.st_nlink == 1;
  }
  ~File() {
    if (m_descriptor >= 0) {
      ::close(m_descriptor);
    }
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  [[nodiscard]] bool IsGood() const { return m_good; }
  void Write(const std::string& text) {
    m_good = m_good &&
             ::write(m_descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }

 private:
  int m_descriptor;
  bool m_good = false;
};

UtlTextLog& UtlTextLog::Instance() {
  static UtlTextLog log;
  return log;
}

UtlTextLog::UtlTextLog() : m_processId(::getpid()) {}
UtlTextLog::~UtlTextLog() = default;

void UtlTextLog::SetEnabled(bool enabled) {
  m_enabled = enabled;
  m_separated = false;
  m_file.reset();
}

bool UtlTextLog::Ready() {
  if (m_file == nullptr || !m_file->IsGood()) {
    m_file.reset();
    m_file = std::make_unique<File>();
    m_userName = UserName();
    m_processId = ::getpid();
  }
  return m_file->IsGood();
}

void UtlTextLog::Entry(Severity severity, const char* file, int line) {
  const std::string text = m_text.str();
  m_text.str({});
  m_text.clear();
  if (!m_enabled || !Ready()) {
    return;
  }
  std::ostringstream entry;
  if (!m_separated) {
    entry << "====================\n";
    m_separated = true;
  }
  entry << kSeverityNames.at(severity) << m_userName << "/proc " << m_processId << '\t'
        << TimeText() << '\t' << BaseName(file == nullptr ? "" : file) << ':' << line << '\n'
        << m_processId << ": " << text << '\n';
  m_file->Write(entry.str());
}
