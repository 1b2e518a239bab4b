#pragma once

#include <string>

#include "support/Descriptor.h"

/// Tells whether the service runs already in a working directory, by a lock on its file
/// run/XYZ.lock, where XYZ are the service's letters. The lock ends with the process, however that
/// ends; the file stays.
class ServiceStatus {
 public:
  static constexpr short kRunsAlready = -85;
  static constexpr short kFailed = -1;

  explicit ServiceStatus(std::string directory = ".");

  /// Makes run/ (0755) and the file (0600) where they are missing, locks it and writes the process
  /// number into it. 0, kRunsAlready or kFailed; Reason() then says why. A number that can't be
  /// written (a full disk) is told by Reason() only: the service may start.
  [[nodiscard]] short Initialize(char first, char second, char third);
  /// Path and reason of the last failure; empty if there was none.
  [[nodiscard]] const std::string& Reason() const { return m_reason; }

  /// Notes the status and stores it in `out` too. Non-zero if the service isn't initialised.
  [[nodiscard]] int SetStatus(short status, const char* file, int line, short& out);
  /// The status last set; 0 if none was.
  [[nodiscard]] short Status() const { return m_status; }
  /// Empties the file and gives the lock up. Harmless if it isn't held.
  void Terminate();

 private:
  [[nodiscard]] short Fail(short result, std::string reason);

  std::string m_directory;
  Descriptor m_lock;
  std::string m_reason;
  short m_status = 0;
};
