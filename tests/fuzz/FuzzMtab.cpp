#include <sys/vfs.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "collect/filesystem/FileSystemSource.h"
#include "collect/filesystem/QuotaSource.h"
#include "helpers/ufss/Mounts.h"
#include "support/OsCalls.h"
#include "tests/scripted/ProcessTree.h"

/// Any bytes as the table of mounts, of which every one answers; the helper that scans them asks
/// the system.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const process_tree::HostTree host;
  Os().statfs64 = [](const char*, struct ::statfs64*) { return 0; };
  Os().quotactl = [](int, const char*, int, char*) { return 0; };
  host.Write("/etc/mtab", std::string_view(reinterpret_cast<const char*>(data), size));
  std::vector<FileSystem> rows;
  FileSystemSourceUser source;
  const UtlErrorPtr error(source.readAll(nullptr, rows));
  std::vector<Quota> quotas;
  QuotaSourceUser quotaSource;
  const UtlErrorPtr quotaError(quotaSource.readAll(nullptr, quotas));
  std::vector<LocalMount> mounts;
  if (!FindLocalMounts(host.Path("/etc/mtab"), mounts)) {
    std::abort();
  }
  return 0;
}
