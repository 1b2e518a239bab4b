#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "collect/modern/filesystem/FileSystemSource.h"
#include "collect/modern/filesystem/RemoteMount.h"

/// Any bytes as the kernel's table of mounts, and each source that it names as one of a server.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Mounts mounts = ParseMountinfo({reinterpret_cast<const char*>(data), size});
  const std::size_t count = mounts.entries.size();
  const std::vector<MountEntry> asked = MountsToAsk(ReachableMounts(std::move(mounts.entries)));
  for (const MountEntry& mount : asked) {
    const RemotePlace place = SplitRemoteSource(mount.type, mount.source);
    if (mount.mountPoint.empty() || place.host.size() + place.path.size() > mount.source.size()) {
      __builtin_trap();
    }
  }
  if (asked.size() > count) {
    __builtin_trap();
  }
  return 0;
}
