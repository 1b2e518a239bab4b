#pragma once

#include <string>

/// Holds the product root for one daemon, whatever its working directory: its pipes, settings and
/// results stand there once. The lock lies on the file /opt/qmtrx/mond/qmtdmon.lock, which stays,
/// and ends with the object or the process.
class ProductLock {
 public:
  ProductLock() = default;
  ~ProductLock();
  ProductLock(const ProductLock&) = delete;
  ProductLock& operator=(const ProductLock&) = delete;

  /// Makes the file (0600) where it is missing, locks it and writes the process number into it.
  /// False if the lock can't be had; Reason() then names the file and why, with the number of the
  /// process that holds it. A root without the folder counts as free: the start fails later there.
  [[nodiscard]] bool Take();
  [[nodiscard]] const std::string& Reason() const { return m_reason; }

 private:
  int m_descriptor = -1;
  std::string m_reason;
};
