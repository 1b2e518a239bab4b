#include "agent/VersionLog.h"

#include <fstream>

#include "support/TraceLog.h"

void WriteVersionLog(const std::string& directory, const std::string& buildEnvironment,
                     const OsIdentity& identity) {
  constexpr int kBuildBits = 32;
  const std::string path = directory + "/log/version.log";
  std::ofstream out(path);
  if (!out) {
    MessageAt(20, 10101, "open()", static_cast<int>(out.rdstate()), path, "", "");
    return;
  }
  out << "Build Environment \t: " << buildEnvironment << " (" << kBuildBits << "-bit)" << std::endl;
  out << "Target OS Name\t\t: " << identity.sysname << std::endl;
  out << "Target OS Release\t: " << identity.release << " (" << identity.bits << "-bit)"
      << std::endl;
}
