#pragma once

#include <string>

/// The certificate that listeners with TLS show. It may be replaced at any time: handshakes that
/// begin then see the new one.
class TlsCertificate {
 public:
  /// What the TLS library is to agree to: 1.2 and newer.
  static constexpr const char* kPriorities =
      "NORMAL:-VERS-TLS1.0:-VERS-TLS1.1:-VERS-DTLS-ALL:%SERVER_PRECEDENCE";

  /// Takes a certificate, with those that vouch for it behind it, and its key into use, both PEM.
  /// False, with the reason in `error`, if they are none; the former stays in use.
  [[nodiscard]] static bool Use(const std::string& certificate, const std::string& key,
                                std::string& error);
  /// What the HTTP library asks at each handshake: a gnutls_certificate_retrieve_function2.
  [[nodiscard]] static void* Callback();
};
