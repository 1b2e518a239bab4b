#pragma once

#include <atomic>
#include <mutex>

#include "client/ask/Connection.h"
#include "support/Descriptor.h"
#include "tests/support/TempFolder.h"

/// A folder of its own, whose path is told as a text.
class ScratchFolder {
 public:
  [[nodiscard]] std::string Path() const { return m_folder.Path(); }

 private:
  TempFolder m_folder;
};

/// A daemon of the tests: takes request lines on a Unix socket and sends what the script says.
class ScriptedServer {
 public:
  /// Bytes to send for a request; an empty text keeps silent, kHangUp ends the connection.
  using Script = std::function<std::string(const Json& request)>;
  inline static const std::string kHangUp{"\0hang up", 8};
  /// Before bytes of which one is to be sent each 10 ms.
  inline static const std::string kSlowly{"\0slowly", 7};

  /// Listens at `folder`/`name`, which may be longer than a socket address holds.
  ScriptedServer(const std::string& folder, const std::string& name, Script script);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  [[nodiscard]] const std::string& Path() const { return m_path; }
  /// The requests so far, without their "id".
  [[nodiscard]] std::vector<Json> Requests() const;
  [[nodiscard]] int Connections() const { return m_connections; }

 private:
  void Serve();
  void Talk(int client);
  [[nodiscard]] bool Stopped(int descriptor) const;

  std::string m_path;
  Script m_script;
  Descriptor m_listener;
  Descriptor m_stop;  ///< an event descriptor, readable at the end
  mutable std::mutex m_mutex;
  std::vector<Json> m_requests;
  std::atomic<int> m_connections = 0;
  std::thread m_thread;
};

/// `members` as a good answer to `request`, with its newline.
[[nodiscard]] std::string Answer(const Json& request, Json members);

/// The words of a command line without quotes.
[[nodiscard]] std::vector<std::string> WordsOf(const std::string& text);

/// How a program ended and what it wrote.
struct Outcome {
  int exit = -1;  ///< -1 if a signal ended it
  std::string out;
  std::string err;
};

struct RunOptions {
  std::vector<std::string> environment;  ///< "NAME=value" on top of an environment without colour
  bool terminal = false;                 ///< standard output is a terminal of 40 columns, 10 lines
  bool closedReader = false;             ///< nobody reads the standard output
  /// Called with the process id and what has come on standard output so far.
  std::function<void(int pid, const std::string& out)> onOutput;
};

/// Runs `program` to its end.
[[nodiscard]] Outcome RunProgram(const std::string& program, const std::vector<std::string>& words,
                                 const RunOptions& options = {});
