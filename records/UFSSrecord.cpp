#include <string_view>
#include <unordered_map>

#include "collect/filesystem/FileSystemSource.h"
#include "collect/filesystem/StorageSource.h"
#include "collect/process/NameCache.h"
#include "records/DetailRows.h"
#include "records/FileSystemSizes.h"

namespace {

/// File systems by mount point; of several on one the last, which hides the others.
using MountPoints = std::unordered_map<std::string_view, const FileSystem*>;

MountPoints MountPointsOf(const std::vector<FileSystem>& fileSystems) {
  MountPoints points;
  for (const FileSystem& fileSystem : fileSystems) {
    points[fileSystem.GetMountPoint()] = &fileSystem;
  }
  return points;
}

recordPD_UFSS StorageRow(const Storage& source, const MountPoints& mounts, std::int32_t now) {
  auto row = NewRow<recordPD_UFSS>(now);
  row.fileSystem = source.GetPath();
  row.userId = source.kind;
  row.user = UserName(nullptr, source.kind);
  row.mbytesInUse = source.freeMB;
  if (const auto mount = mounts.find(source.GetPath()); mount != mounts.end()) {
    row.fileSystemSizeMbytes = TotalMbytes(*mount->second);
  }
  if (row.fileSystemSizeMbytes != 0.0) {
    row.mbytesInUsePercent = static_cast<float>(100.0 * row.mbytesInUse / row.fileSystemSizeMbytes);
  }
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_UFSS(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_UFSS", AddressOf(pEvent), AddressOf(pRequest));
  const MountPoints mounts = MountPointsOf(*m_pCollector->GetFileSystem());
  BuildDetailRows<recordPD_UFSS>(
      *m_pCollector->GetStorage(), *pEvent,
      [&](const Storage& source, std::int32_t now) { return StorageRow(source, mounts, now); });
  TraceExit("RecordBuilder::BuildPD_UFSS", 0);
  return nullptr;
}
