#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "json/Json.h"

/// What stands around a gate at test, in a process of its own: the daemon that it asks, who reads
/// from it and whom it sends to. What came of it are files of the working directory: `address` if
/// the gate has had one, `pages` with a line for each that was read, `sent` with what the gate has
/// sent, each once, `told` with what it told the daemon, `status` as waitpid(2) tells it, and
/// `hung` if it did not stop by its signal.
class GateSurroundings {
 public:
  explicit GateSurroundings(pid_t gate) : m_gate(gate) {}
  virtual ~GateSurroundings() = default;
  GateSurroundings(const GateSurroundings&) = delete;
  GateSurroundings& operator=(const GateSurroundings&) = delete;

  virtual void Walk() = 0;
  /// Stops the gate by its signal and writes the files.
  void Stop();

 protected:
  static void Write(const std::string& name, const std::string& text);
  /// Within the time that anything here may take; false, soon, once the gate is over.
  bool WaitFor(const std::function<bool()>& isDone);
  /// Waits for the gate's listener; false if it has none.
  bool HasListener();
  [[nodiscard]] std::string Address();
  [[nodiscard]] bool IsOver();
  /// The daemon's answer to `metrics`.
  static std::string AnswerMetrics(const std::string& page);
  /// The daemon's answer to `gate`, whose questions tell how it goes.
  std::string AnswerSettings(const Json& request, const Json& settings);
  /// Asks up to four times for what `ask` gives "right" for, else how it went; notes each. Nothing
  /// is for a connection that could not be made, as to a listener that is just made anew.
  void ReadUntilRight(const std::string& name, const std::function<std::string()>& ask);
  /// Notes what has come to a server.
  void NoteSent(const std::string& line);
  [[nodiscard]] std::size_t CountSent();

 private:
  pid_t m_gate;
  int m_status = 0;
  bool m_isOver = false;
  std::mutex m_mutex;
  std::string m_address;
  std::string m_told;
  std::string m_pages;
  std::set<std::string> m_sent;
};

/// Makes what stands around that gate.
using GateScene = std::unique_ptr<GateSurroundings> (*)(pid_t gate);

/// Is scraped by HTTP, pushes kPushedRows rows of two records to a server, is scraped again, and
/// pushes one row more.
[[nodiscard]] std::unique_ptr<GateSurroundings> MakePushScene(pid_t gate);
inline constexpr int kPushedRows = 8;

/// Serves the console's page, the API, an account, a stream of events and metrics by TLS, and sends
/// the begin and the end of alarms to an Alertmanager and a webhook.
[[nodiscard]] std::unique_ptr<GateSurroundings> MakeConsoleScene(pid_t gate);
