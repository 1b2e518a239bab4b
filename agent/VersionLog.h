#pragma once

#include <string>

/// The operating system as the start of the service found it.
struct OsIdentity {
  std::string sysname;
  std::string release;
  int bits = 32;
};

/// Writes <directory>/log/version.log anew: build environment, name and release of the operating
/// system, one a line. A file that can't be opened is traced at level 20; the start goes on.
void WriteVersionLog(const std::string& directory, const std::string& buildEnvironment,
                     const OsIdentity& identity);
