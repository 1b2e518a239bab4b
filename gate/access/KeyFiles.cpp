#include "gate/access/KeyFiles.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <type_traits>
#include <vector>

#include "gate/access/AccessError.h"
#include "gate/access/CheckedFile.h"
#include "support/SecretFile.h"

namespace {

/// One of the library's handles, with the function that frees it.
template <class Handle, auto Free>
struct FreeHandle {
  void operator()(Handle handle) const { Free(handle); }
};
template <class Handle, auto Free>
using HandlePtr = std::unique_ptr<std::remove_pointer_t<Handle>, FreeHandle<Handle, Free>>;
using KeyPtr = HandlePtr<gnutls_x509_privkey_t, gnutls_x509_privkey_deinit>;
using PairPtr = HandlePtr<gnutls_certificate_credentials_t, gnutls_certificate_free_credentials>;

/// The certificates of a file, the server's first.
class CertificateChain {
 public:
  explicit CertificateChain(const gnutls_datum_t& text)
      : m_result(gnutls_x509_crt_list_import2(&m_list, &m_count, &text, GNUTLS_X509_FMT_PEM, 0)) {}
  ~CertificateChain() {
    for (unsigned i = 0; i < m_count; ++i) {
      gnutls_x509_crt_deinit(m_list[i]);
    }
    gnutls_free(m_list);
  }
  CertificateChain(const CertificateChain&) = delete;
  CertificateChain& operator=(const CertificateChain&) = delete;

  [[nodiscard]] int Result() const {
    return m_count == 0 && m_result >= 0 ? GNUTLS_E_NO_CERTIFICATE_FOUND : m_result;
  }
  [[nodiscard]] std::int64_t Expires() const {
    return gnutls_x509_crt_get_expiration_time(m_list[0]);
  }

 private:
  gnutls_x509_crt_t* m_list = nullptr;
  unsigned m_count = 0;
  int m_result;
};

void Expect(int result, const std::string& path, const char* wrong) {
  if (result < 0) {
    throw AccessError(path + ": " + wrong + ": " + gnutls_strerror(result));
  }
}

gnutls_datum_t DatumOf(std::string& text) {
  return {reinterpret_cast<unsigned char*>(text.data()), static_cast<unsigned>(text.size())};
}

bool IsOwnGroup(gid_t group) {
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
  const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
  groups.resize(static_cast<std::size_t>(std::max(0, count)));
  return group == ::getegid() || std::find(groups.begin(), groups.end(), group) != groups.end();
}

}  // namespace

std::string ReadSecretFile(const std::string& path, const std::string& what) {
  CheckedFile file = ReadCheckedFile(path);
  const auto fail = [&](const std::string& wrong) { throw AccessError(path + ": " + wrong); };
  if (file.owner != 0 && file.owner != ::geteuid()) {
    fail("the " + what + " belongs to another user than root and the own");
  }
  const SecretModeFault fault = FaultOfSecretMode(file.mode);
  if (fault == SecretModeFault::kOthersReach) {
    fail("others may reach the " + what + "; \"chmod o= " + path + "\" ends that");
  }
  if (fault == SecretModeFault::kGroupWrites) {
    fail("its group may write to the " + what + "; \"chmod g-wx " + path + "\" ends that");
  }
  if ((file.mode & S_IRGRP) != 0 && !IsOwnGroup(file.group)) {
    fail("a group that is none of the own may read the " + what);
  }
  return std::move(file.text);
}

void CheckKeyFile(const std::string& path) { static_cast<void>(ReadSecretFile(path, "key")); }

CertificateTexts LoadCertificate(const std::string& certificatePath, const std::string& keyPath) {
  CertificateTexts texts{ReadCheckedFile(certificatePath).text, ReadSecretFile(keyPath, "key")};
  const gnutls_datum_t certificate = DatumOf(texts.certificate);
  const gnutls_datum_t key = DatumOf(texts.key);

  const CertificateChain chain(certificate);
  Expect(chain.Result(), certificatePath, "it holds no certificate as PEM");
  texts.expires = chain.Expires();

  gnutls_x509_privkey_t rawKey = nullptr;
  Expect(gnutls_x509_privkey_init(&rawKey), keyPath, "it can't be read");
  const KeyPtr keyOwner(rawKey);
  Expect(gnutls_x509_privkey_import2(rawKey, &key, GNUTLS_X509_FMT_PEM, nullptr, 0), keyPath,
         "it holds no key as PEM without a password");

  gnutls_certificate_credentials_t rawPair = nullptr;
  Expect(gnutls_certificate_allocate_credentials(&rawPair), keyPath, "it can't be read");
  const PairPtr pairOwner(rawPair);
  const int result = gnutls_certificate_set_x509_key_mem2(rawPair, &certificate, &key,
                                                          GNUTLS_X509_FMT_PEM, nullptr, 0);
  if (result == GNUTLS_E_CERTIFICATE_KEY_MISMATCH) {
    throw AccessError(keyPath + ": it is not the key of the certificate " + certificatePath);
  }
  Expect(result, certificatePath, "it can't be used");
  return texts;
}
