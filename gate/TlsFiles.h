#pragma once

#include <chrono>
#include <string>

#include "gate/access/CheckedFile.h"

/// The files of the certificate in use. When they have changed they are taken into use anew; while
/// they are no certificate and its key, those before stay.
class TlsFiles {
 public:
  /// Reads both. Throws AccessError.
  TlsFiles(std::string certificate, std::string key);

  /// Looks whether they have changed, once a second at most.
  void Look();

 private:
  void Load();

  std::string m_certificate;
  std::string m_key;
  FileStamp m_certificateStamp;
  FileStamp m_keyStamp;
  std::chrono::steady_clock::time_point m_nextLook;
};
