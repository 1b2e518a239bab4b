#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gate/access/Access.h"
#include "gate/console/ApiPages.h"
#include "gate/console/EventDesk.h"
#include "gate/metrics/MetricsPage.h"

/// What the gate serves and to whom: the metrics and the health pages; the console's page; and the
/// interface, which shows processes, users and files and so wants the role `read`.
class GatePages {
 public:
  explicit GatePages(DaemonDesk& desk);

  void ShowArguments(bool isShown);
  /// Null until it is known who may ask: nobody then.
  void SetAccess(std::unique_ptr<Access> access, bool hasAccounts);
  /// Logins that have failed since the start.
  [[nodiscard]] std::uint64_t Failures() const {
    return m_access == nullptr ? 0 : m_access->Failures();
  }
  void SetAddresses(std::vector<std::string> addresses) { m_addresses = std::move(addresses); }
  void Serve(const std::shared_ptr<HttpExchange>& exchange);

 private:
  using ExchangePtr = std::shared_ptr<HttpExchange>;

  [[nodiscard]] bool ShowsConsole(const HttpExchange& exchange) const;
  /// Answers who may not, else calls `serve`.
  void Admit(const ExchangePtr& exchange, Role wanted, std::function<void(const Verdict&)> serve);
  void ServeMetrics(const ExchangePtr& exchange);
  void ServeReady(const ExchangePtr& exchange);
  void ServeApi(const ExchangePtr& exchange);
  void ServeGate(HttpExchange& exchange, const Verdict& verdict) const;

  DaemonDesk& m_desk;
  MetricsPage m_metrics;
  ApiPages m_api;
  EventDesk m_events;
  std::unique_ptr<Access> m_access;
  bool m_hasAccounts = false;
  bool m_showsArguments = true;
  std::vector<std::string> m_addresses;
};
