#pragma once

#include <gnutls/gnutls.h>

#include "tests/gate/GateHarness.h"

/// A reader by TLS, which takes whoever answers.
class TlsClient {
 public:
  explicit TlsClient(const std::string& address) : m_socket(ConnectLoopback(address)) {
    ::gnutls_certificate_allocate_credentials(&m_credentials);
    ::gnutls_init(&m_session, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL);
    ::gnutls_set_default_priority(m_session);
    ::gnutls_credentials_set(m_session, GNUTLS_CRD_CERTIFICATE, m_credentials);
    ::gnutls_transport_set_int(m_session, m_socket.Get());
  }
  ~TlsClient() {
    ::gnutls_deinit(m_session);
    ::gnutls_certificate_free_credentials(m_credentials);
  }
  TlsClient(const TlsClient&) = delete;
  TlsClient& operator=(const TlsClient&) = delete;

  /// "-" and what comes, up to `mark` if it comes; nothing without a connection.
  std::string Ask(const std::string& path, const std::string& login, const std::string& mark) {
    if (!m_socket.IsOpen()) {
      return "";
    }
    const std::string question =
        "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nAuthorization: " + login + "\r\n\r\n";
    return ::gnutls_handshake(m_session) == GNUTLS_E_SUCCESS &&
                   ::gnutls_record_send(m_session, question.data(), question.size()) > 0
               ? Receive(mark)
               : "-";
  }
  /// "-" and what comes further.
  std::string Receive(const std::string& mark) {
    std::string text = "-";
    char piece[16384];
    ssize_t count = 0;
    while (text.find(mark) == std::string::npos &&
           ((count = ::gnutls_record_recv(m_session, piece, sizeof piece)) > 0 ||
            count == GNUTLS_E_INTERRUPTED)) {
      text.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return text;
  }

 private:
  Descriptor m_socket;
  ::gnutls_certificate_credentials_t m_credentials = nullptr;
  ::gnutls_session_t m_session = nullptr;
};
