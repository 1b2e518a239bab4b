#include "tests/gate/TlsClient.h"

#include <gnutls/gnutls.h>

#include "tests/gate/GateHarness.h"

struct TlsClient::Session {
  Descriptor socket;
  ::gnutls_certificate_credentials_t credentials = nullptr;
  ::gnutls_session_t tls = nullptr;
};

TlsClient::TlsClient(const std::string& address)
    : m_session(new Session{.socket = ConnectLoopback(address)}) {
  ::gnutls_certificate_allocate_credentials(&m_session->credentials);
  ::gnutls_init(&m_session->tls, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL);
  ::gnutls_set_default_priority(m_session->tls);
  ::gnutls_credentials_set(m_session->tls, GNUTLS_CRD_CERTIFICATE, m_session->credentials);
  ::gnutls_transport_set_int(m_session->tls, m_session->socket.Get());
}

TlsClient::~TlsClient() {
  ::gnutls_deinit(m_session->tls);
  ::gnutls_certificate_free_credentials(m_session->credentials);
}

std::string TlsClient::Ask(const std::string& path, const std::string& login,
                           const std::string& mark) {
  if (!m_session->socket.IsOpen()) {
    return "";
  }
  const std::string question =
      "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nAuthorization: " + login + "\r\n\r\n";
  return ::gnutls_handshake(m_session->tls) == GNUTLS_E_SUCCESS &&
                 ::gnutls_record_send(m_session->tls, question.data(), question.size()) > 0
             ? Receive(mark)
             : "-";
}

std::string TlsClient::Receive(const std::string& mark) {
  std::string text = "-";
  char piece[16384];
  ssize_t count = 0;
  while (text.find(mark) == std::string::npos &&
         ((count = ::gnutls_record_recv(m_session->tls, piece, sizeof piece)) > 0 ||
          count == GNUTLS_E_INTERRUPTED)) {
    text.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
  }
  return text;
}
