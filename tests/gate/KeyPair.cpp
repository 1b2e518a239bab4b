#include "tests/gate/KeyPair.h"

#include <gnutls/x509.h>
#include <sys/stat.h>

#include <array>
#include <fstream>
#include <string>

void MakeKeyPair(const std::filesystem::path& stem, std::time_t expires) {
  gnutls_x509_privkey_t key = nullptr;
  gnutls_x509_crt_t certificate = nullptr;
  gnutls_x509_privkey_init(&key);
  gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                               GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0);
  gnutls_x509_crt_init(&certificate);
  gnutls_x509_crt_set_version(certificate, 3);
  gnutls_x509_crt_set_serial(certificate, "1", 1);
  gnutls_x509_crt_set_activation_time(certificate, expires - 2000);
  gnutls_x509_crt_set_expiration_time(certificate, expires);
  gnutls_x509_crt_set_key(certificate, key);
  gnutls_x509_crt_sign2(certificate, certificate, key, GNUTLS_DIG_SHA256, 0);
  const auto write = [&stem](const char* ending, const char* text, std::size_t size) {
    const std::string path = stem.string() + ending;
    std::ofstream(path).write(text, static_cast<std::streamsize>(size));
    ::chmod(path.c_str(), 0600);
  };
  std::array<char, 8192> text{};
  std::size_t size = text.size();
  gnutls_x509_privkey_export(key, GNUTLS_X509_FMT_PEM, text.data(), &size);
  write(".key", text.data(), size);
  size = text.size();
  gnutls_x509_crt_export(certificate, GNUTLS_X509_FMT_PEM, text.data(), &size);
  write(".crt", text.data(), size);
  gnutls_x509_privkey_deinit(key);
  gnutls_x509_crt_deinit(certificate);
}
