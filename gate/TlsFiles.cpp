#include "gate/TlsFiles.h"

#include <new>
#include <utility>

#include "gate/GateLog.h"
#include "gate/access/AccessError.h"
#include "gate/access/KeyFiles.h"
#include "gate/http/TlsCertificate.h"

TlsFiles::TlsFiles(std::string certificate, std::string key)
    : m_certificate(std::move(certificate)), m_key(std::move(key)) {
  Load();
}

void TlsFiles::Load() {
  m_certificateStamp = StampOf(m_certificate);
  m_keyStamp = StampOf(m_key);
  const CertificateTexts texts = LoadCertificate(m_certificate, m_key);
  std::string error;
  if (!TlsCertificate::Use(texts.certificate, texts.key, error)) {
    throw AccessError(m_certificate + ": " + error);
  }
}

void TlsFiles::Look() {
  const auto now = std::chrono::steady_clock::now();
  if (now < m_nextLook) {
    return;
  }
  m_nextLook = now + std::chrono::seconds(1);
  if (StampOf(m_certificate) == m_certificateStamp && StampOf(m_key) == m_keyStamp) {
    return;
  }
  try {
    Load();
    GateLog(m_certificate + ": the certificate has changed and is in use");
  } catch (const std::bad_alloc&) {
    m_keyStamp = {};
    throw;
  } catch (const PassingAccessError& error) {
    m_keyStamp = {};
    GateLog(std::string(error.what()) + "; the former certificate stays in use for now");
  } catch (const AccessError& error) {
    // Of two files that change one after the other the first alone fits nothing; the stamps are
    // those of now, so the second is another change.
    GateLog(std::string(error.what()) + "; the former certificate stays in use");
  }
}
