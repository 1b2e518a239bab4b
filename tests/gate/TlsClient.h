#pragma once

#include <memory>
#include <string>

/// A reader by TLS, which takes whoever answers.
class TlsClient {
 public:
  explicit TlsClient(const std::string& address);
  ~TlsClient();
  TlsClient(const TlsClient&) = delete;
  TlsClient& operator=(const TlsClient&) = delete;

  /// "-" and what comes, up to `mark` if it comes; nothing without a connection.
  std::string Ask(const std::string& path, const std::string& login, const std::string& mark);
  /// "-" and what comes further.
  std::string Receive(const std::string& mark);

 private:
  struct Session;
  std::unique_ptr<Session> m_session;
};
