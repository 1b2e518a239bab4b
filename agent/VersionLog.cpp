#include "agent/VersionLog.h"

#include <fcntl.h>
#include <sys/types.h>

#include <cstdio>
#include <ios>

#include "support/RegularFile.h"
#include "support/TraceLog.h"

void WriteVersionLog(const std::string& directory, const std::string& buildEnvironment,
                     const OsIdentity& identity) {
  constexpr int kBuildBits = 32;
  constexpr mode_t kFileMode = 0666;
  const std::string path = directory + "/log/version.log";
  const TextFilePtr out = OpenRegularStream(path, O_WRONLY | O_CREAT | O_TRUNC, kFileMode, "w");
  if (out == nullptr) {
    MessageAt(20, 10101, "open()", static_cast<int>(std::ios::failbit), path, "", "");
    return;
  }
  std::fprintf(out.get(),
               "Build Environment \t: %s (%d-bit)\n"
               "Target OS Name\t\t: %s\n"
               "Target OS Release\t: %s (%d-bit)\n",
               buildEnvironment.c_str(), kBuildBits, identity.sysname.c_str(),
               identity.release.c_str(), identity.bits);
}
