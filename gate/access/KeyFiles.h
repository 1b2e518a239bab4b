#pragma once

#include <cstdint>
#include <string>

/// What a server of TLS shows and what it proves it by, as PEM.
struct CertificateTexts {
  std::string certificate;  ///< with those of its chain
  std::string key;
  std::int64_t expires = 0;  ///< of the first certificate, in seconds since the epoch
};

/// The text of a file with a secret: of a key, or whatever `what` calls it in words. Throws
/// AccessError unless it is a regular file of at most 1 MB that can be read, belongs to root or to
/// the own user, and can't be read or written by others: of a group only by one of the own, and
/// only read.
[[nodiscard]] std::string ReadSecretFile(const std::string& path, const std::string& what);
/// Throws as ReadSecretFile() does for a key.
void CheckKeyFile(const std::string& path);

/// Both files, once they prove to be a certificate and its key. Throws AccessError; CheckKeyFile()
/// is included.
[[nodiscard]] CertificateTexts LoadCertificate(const std::string& certificatePath,
                                               const std::string& keyPath);
