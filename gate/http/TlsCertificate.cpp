#include "gate/http/TlsCertificate.h"

#include <gnutls/abstract.h>
#include <gnutls/gnutls.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>

namespace {

constexpr unsigned kMaxChain = 16;
/// So long a handshake under way may still need the key of a former one.
constexpr std::chrono::seconds kKept{60};

/// A chain of certificates and the key of the first.
class Chain {
 public:
  Chain() = default;
  ~Chain() {
    for (unsigned place = 0; place < m_count; ++place) {
      ::gnutls_pcert_deinit(&m_certificates[place]);
    }
    if (m_key != nullptr) {
      ::gnutls_privkey_deinit(m_key);
    }
  }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  /// The library's code, 0 for success.
  int Load(const std::string& certificate, const std::string& key) {
    unsigned count = kMaxChain;
    const ::gnutls_datum_t certificateBytes = BytesOf(certificate);
    int code = ::gnutls_pcert_list_import_x509_raw(m_certificates.data(), &count, &certificateBytes,
                                                   GNUTLS_X509_FMT_PEM, 0);
    if (code < 0) {
      return code;
    }
    m_count = count;
    code = ::gnutls_privkey_init(&m_key);
    const ::gnutls_datum_t keyBytes = BytesOf(key);
    return code < 0 ? code
                    : ::gnutls_privkey_import_x509_raw(m_key, &keyBytes, GNUTLS_X509_FMT_PEM,
                                                       nullptr, 0);
  }
  void Show(::gnutls_pcert_st** certificates, unsigned* count, ::gnutls_privkey_t* key) {
    *certificates = m_certificates.data();
    *count = m_count;
    *key = m_key;
  }

 private:
  static ::gnutls_datum_t BytesOf(const std::string& text) {
    return {reinterpret_cast<unsigned char*>(const_cast<char*>(text.data())),
            static_cast<unsigned>(text.size())};
  }

  std::array<::gnutls_pcert_st, kMaxChain> m_certificates{};
  unsigned m_count = 0;
  ::gnutls_privkey_t m_key = nullptr;
};

struct KeptChain {
  std::unique_ptr<Chain> chain;
  std::chrono::steady_clock::time_point replaced;  ///< of those behind the first
};

/// The one in use in front.
std::deque<KeptChain>& Chains() {
  static std::deque<KeptChain> chains;
  return chains;
}

int RetrieveCertificate(::gnutls_session_t, const ::gnutls_datum_t*, int,
                        const ::gnutls_pk_algorithm_t*, int, ::gnutls_pcert_st** certificates,
                        unsigned* count, ::gnutls_privkey_t* key) {
  if (Chains().empty()) {
    return -1;
  }
  Chains().front().chain->Show(certificates, count, key);
  return 0;
}

}  // namespace

bool TlsCertificate::Use(const std::string& certificate, const std::string& key,
                         std::string& error) {
  auto chain = std::make_unique<Chain>();
  const int code = chain->Load(certificate, key);
  if (code < 0) {
    error = ::gnutls_strerror(code);
    return false;
  }
  const auto now = std::chrono::steady_clock::now();
  if (!Chains().empty()) {
    Chains().front().replaced = now;
  }
  Chains().push_front({std::move(chain), {}});
  while (Chains().size() > 1 && Chains().back().replaced + kKept < now) {
    Chains().pop_back();
  }
  return true;
}

void* TlsCertificate::Callback() { return reinterpret_cast<void*>(RetrieveCertificate); }
