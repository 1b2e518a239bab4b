#pragma once

#include <string>

class SectionReader;

/// Who the gate is to those whom it sends to, and whom it trusts. Each is empty for none.
struct SendingKeys {
  std::string user;
  std::string passwordFile;  ///< a path, as all that follow
  std::string tokenFile;
  std::string authority;  ///< certificates, PEM; none: those of the system
  std::string clientCertificate;
  std::string clientKey;
  bool isFaulty = false;  ///< what is there of them can't be used together
};

/// The keys "User", "Password File", "Token File" and "Certificate Authority" of a section.
[[nodiscard]] SendingKeys ReadSendingKeys(SectionReader& section);
/// Reads "Client Certificate" and "Client Key" as well.
void ReadClientKeys(SectionReader& section, SendingKeys& keys);
