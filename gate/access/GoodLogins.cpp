#include "gate/access/GoodLogins.h"

#include <gnutls/crypto.h>
#include <gnutls/gnutls.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kMaxLogins = 1024;

/// Its length in front, so that no two lists of texts are the same bytes.
void Append(std::string& bytes, std::string_view text) {
  const std::uint64_t size = text.size();
  bytes.append(reinterpret_cast<const char*>(&size), sizeof size);
  bytes += text;
}

}  // namespace

GoodLogins::GoodLogins() : m_secret(kKeyBytes, '\0') {
  if (gnutls_rnd(GNUTLS_RND_KEY, m_secret.data(), m_secret.size()) != 0) {
    throw std::runtime_error("there are no random bits");
  }
}

std::string GoodLogins::KeyOf(std::string_view kind, std::string_view name, std::string_view secret,
                              std::string_view hash) const {
  std::string bytes;
  for (const std::string_view text : {kind, name, secret, hash}) {
    Append(bytes, text);
  }
  std::string digest(kKeyBytes, '\0');
  const int result = gnutls_hmac_fast(GNUTLS_MAC_SHA256, m_secret.data(), m_secret.size(),
                                      bytes.data(), bytes.size(), digest.data());
  ::explicit_bzero(bytes.data(), bytes.size());
  if (result != 0) {
    throw std::runtime_error("there is no HMAC-SHA-256");
  }
  return digest;
}

std::optional<std::int64_t> GoodLogins::EndOf(const std::string& key, TimePoint now) const {
  const auto found = m_good.find(key);
  return found != m_good.end() && now < found->second.until ? std::optional(found->second.end)
                                                            : std::nullopt;
}

void GoodLogins::Add(const std::string& key, TimePoint until, std::int64_t end) {
  if (m_good.size() >= kMaxLogins) {
    m_good.clear();
  }
  m_good[key] = {until, end};
}
