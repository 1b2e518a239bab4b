#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "gate/send/SendRequest.h"

/// Tells a receiver's first failure and that it works again, not each failure between. Of its
/// address no more than the server is told: what follows may be a secret.
class FailureNote {
 public:
  FailureNote(const std::string& url, std::function<void(const std::string&)> report);

  void Fail(const SendResult& result);
  void Work();
  /// An alarm was refused for good; it is told once an hour.
  void Refuse(const std::string& alarm, const SendResult& result);

 private:
  std::string m_server;
  std::function<void(const std::string&)> m_report;
  bool m_isFailing = false;
  std::chrono::steady_clock::time_point m_nextRefusalTold;
};
