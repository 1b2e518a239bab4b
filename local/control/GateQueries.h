#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "local/control/ConsoleTokens.h"
#include "local/control/ControlRequest.h"
#include "local/log/RecentMessages.h"
#include "local/metrics/GateFigures.h"

/// What the program that serves by HTTP, the gate, works by. Paths are empty for none.
struct GateFacts {
  const char* mode = "none";        ///< who starts it: "child", "unit" or "none"
  std::vector<std::string> listen;  ///< addresses
  std::vector<std::string> names;
  std::string certificate;
  std::string key;
  std::string users;
  std::string tokens;
  bool arguments = true;
  std::string state;             ///< the folder that it may write to
  Json push = Json::Array();     ///< targets, as the operation `gate` tells them
  Json alarms = Json::Object();  ///< receivers of alarms, likewise
};

/// The operations of the gate: `gate`, `console_token`, `token_check` and `log`.
class GateQueries {
 public:
  /// Addresses that a gate may tell.
  static constexpr std::size_t kMostAddresses = 16;
  /// Between two console tokens, so that a reader doesn't drive out everybody's at once.
  static constexpr std::chrono::seconds kTokenPause{1};
  using LastMessages = std::function<std::vector<RecentMessage>(std::size_t count)>;

  GateQueries();

  void SetFacts(GateFacts facts) { m_facts = std::move(facts); }
  void SetLog(LastMessages log) { m_log = std::move(log); }
  void OnProblem(ProblemReport report) { m_report = std::move(report); }
  /// Where the gate listens, for as long as the connection on which it said so first; else empty.
  [[nodiscard]] std::vector<std::string> Addresses() const;
  /// What the same gate says of what it sends.
  [[nodiscard]] GateFigures Figures() const;

  void Gate(const ControlRequest& request, const std::string& host);
  void MakeToken(const ControlRequest& request);
  void CheckToken(const ControlRequest& request);
  void Log(const ControlRequest& request) const;

 private:
  /// What a gate tells of itself; nothing of what it leaves out.
  struct Told {
    std::optional<std::vector<std::string>> addresses;
    std::optional<std::vector<PushFigures>> push;
    std::optional<std::vector<NoticeFigures>> notices;
  };
  /// Whether it is there still that has told what is kept.
  [[nodiscard]] bool IsGateThere() const;
  [[nodiscard]] static std::optional<ControlError> ReadTold(const Json& message, Told& told);
  void Take(const ControlRequest& request, Told told);

  GateFacts m_facts;
  LastMessages m_log;
  ProblemReport m_report = [](const std::string&) {};
  ConsoleTokens m_tokens;
  std::optional<std::chrono::steady_clock::time_point> m_lastToken;
  std::vector<std::string> m_addresses;
  GateFigures m_figures;
  std::weak_ptr<ControlPeer> m_gate;  ///< who has told these
};
