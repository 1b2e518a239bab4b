#pragma once

#include <cstdio>

#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

/// A product root as an installation leaves it, with the ini file's text.
class ProductRoot {
 public:
  explicit ProductRoot(const std::string& ini = "") {
    std::filesystem::create_directories(AgentFolder() / "log");
    std::ofstream(AgentFolder() / "qmtagt.ini") << ini;
    // What is missing is reported.
    std::ofstream(AgentFolder() / "wgfile").close();
    std::filesystem::create_symlink(QMT_HOSTUTIL_PROGRAM, AgentFolder() / "qmt_hostutil");
    std::filesystem::create_symlink(QMT_UFSS_PROGRAM, AgentFolder() / "qmt_ufss");
  }
  [[nodiscard]] const std::filesystem::path& Path() const { return m_folder.Path(); }
  [[nodiscard]] std::filesystem::path PipeFolder() const { return Path() / "opt/qmtrx/mond"; }
  [[nodiscard]] std::filesystem::path AgentFolder() const { return PipeFolder() / "agent"; }
  [[nodiscard]] std::string Read(const std::string& name) const { return m_folder.Read(name); }

 private:
  TempFolder m_folder;
};

/// The daemon's real program, started on a product root; killed with the object if it still runs.
class Daemon {
 public:
  /// Its standard error goes to the file `errorName` below the root.
  Daemon(const ProductRoot& root, std::string errorName)
      : m_root(root), m_errorName(std::move(errorName)), m_pid(Spawn()) {}
  ~Daemon() {
    if (m_pid > 0) {
      ::kill(m_pid, SIGKILL);
      ::waitpid(m_pid, nullptr, 0);
    }
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  [[nodiscard]] pid_t Pid() const { return m_pid; }
  void Signal(int signal) const { ASSERT_EQ(0, ::kill(m_pid, signal)); }
  [[nodiscard]] std::string Errors() const { return m_root.Read(m_errorName); }
  /// Waits until its standard error holds `text`; false after too long.
  [[nodiscard]] bool Says(const std::string& text) const {
    return WaitUntil([&] { return Errors().find(text) != std::string::npos; });
  }
  [[nodiscard]] bool IsRunning() { return !HasEnded(); }
  /// Waits for its end: the exit value, -1 after too long or after a killing signal.
  [[nodiscard]] int ExitValue() {
    return WaitUntil([&] { return HasEnded(); }) && WIFEXITED(m_status) ? WEXITSTATUS(m_status)
                                                                        : -1;
  }

 private:
  bool HasEnded() {
    if (m_pid > 0 && ::waitpid(m_pid, &m_status, WNOHANG) == m_pid) {
      m_pid = -1;
    }
    return m_pid <= 0;
  }

  [[nodiscard]] pid_t Spawn() const {
    const std::string errors = m_root.Path() / m_errorName;
    const std::string folder = m_root.AgentFolder();
    const std::string root = m_root.Path();
    const pid_t pid = ::fork();
    if (pid != 0) {
      return pid;
    }
    const int out = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (out < 0 || ::dup2(out, STDERR_FILENO) < 0 || ::chdir(folder.c_str()) != 0 ||
        ::setenv("QMT_PRODUCT_ROOT", root.c_str(), 1) != 0) {
      ::_exit(126);
    }
    ::execl(QMTDMON_PROGRAM, "qmtdmon", static_cast<char*>(nullptr));
    ::_exit(127);
  }

  const ProductRoot& m_root;
  std::string m_errorName;
  pid_t m_pid;
  int m_status = 0;
};

/// One that has told that it runs.
class RunningDaemon : public Daemon {
 public:
  explicit RunningDaemon(const ProductRoot& root, std::string errorName = "errors")
      : Daemon(root, std::move(errorName)) {
    EXPECT_TRUE(Says("QMTX10003-I")) << Errors();
  }
};

/// How a command ended.
struct Outcome {
  int exitValue;
  std::string output;
};

/// What a command of the shell prints.
inline Outcome RunCommand(const std::string& command) {
  std::FILE* const pipe = ::popen(command.c_str(), "r");
  Outcome outcome{-1, ""};
  std::array<char, 4096> piece{};
  while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), pipe)) {
    outcome.output.append(piece.data(), count);
  }
  outcome.exitValue = WEXITSTATUS(::pclose(pipe));
  return outcome;
}

/// What the client prints of the daemon below `root`.
inline Outcome AskDaemon(const ProductRoot& root, const std::string& words) {
  return RunCommand("QMT_PRODUCT_ROOT='" + root.Path().string() + "' " + QMTCTL_PROGRAM + " " +
                    words);
}

/// The same, errors included, as one text.
inline std::string ShownBy(const ProductRoot& root, const std::string& words) {
  const Outcome outcome = AskDaemon(root, words + " 2>&1");
  return outcome.exitValue == 0 ? outcome.output : "failed: " + outcome.output;
}
