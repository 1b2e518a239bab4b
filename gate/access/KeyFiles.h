#pragma once

#include <cstdint>
#include <string>

/// What a server of TLS shows and what it proves it by, as PEM.
struct CertificateTexts {
  std::string certificate;  ///< with those of its chain
  std::string key;
  std::int64_t expires = 0;  ///< of the first certificate, in seconds since the epoch
};

/// Throws AccessError unless the key is a regular file that can be read, belongs to root or to the
/// own user, and can't be read or written by others: of a group only by one of the own, and only
/// read.
void CheckKeyFile(const std::string& path);

/// Both files, once they prove to be a certificate and its key. Throws AccessError; CheckKeyFile()
/// is included.
[[nodiscard]] CertificateTexts LoadCertificate(const std::string& certificatePath,
                                               const std::string& keyPath);
