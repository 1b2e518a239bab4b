#pragma once

#include <string>
#include <vector>

struct CertificateOptions {
  std::vector<std::string> hosts;  ///< names and addresses besides those of this host
  long days = 825;
  std::string out;  ///< the files' path without .crt and .key
};

/// Makes a key and a certificate that it signs itself, for this host's name, the loopback and
/// `hosts`, by openssl or certtool; prints the SHA-256 of the certificate. Throws UsageError for a
/// host that is neither a name nor an address, ClientError if a file is there already, or if
/// neither program is installed.
[[nodiscard]] int RunCertificateNew(const CertificateOptions& options);
