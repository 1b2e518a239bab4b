#include <vector>

#include "records/DetailRows.h"
#include "records/FileSystemSizes.h"

namespace {

void FillInodes(recordPD_FSL& row, const FileSystem& source) {
  row.totalInodes = Whole(source.files);
  row.totalInodesFree = Whole(source.filesFree);
  row.totalInodesAvailable = Whole(source.filesAvail);
  row.totalInodesInUse = Whole(source.files - source.filesFree);
  row.totalInodesRsvd = Whole(source.filesFree - source.filesAvail);

  const SpaceShares shares = SharesOf(source.files, source.filesFree, source.filesAvail);
  row.totalInodesFreePercent = shares.free;
  row.totalInodesRsvdPercent = shares.reserved;
  row.totalInodesInUsePercent = shares.inUse;
  row.totalInodesAvailablePercent = shares.available;
}

recordPD_FSL LocalRow(const FileSystem& source, std::int32_t now) {
  auto row = NewRow<recordPD_FSL>(now);
  row.fileSystem = source.GetMountPoint();
  row.deviceName = source.GetDevice();
  row.fileSystemType = source.GetType();
  FillSizes(row, source, &recordPD_FSL::availableSpaceBlocks);
  FillInodes(row, source);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_FSL(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_FSL", AddressOf(pEvent), AddressOf(pRequest));
  std::vector<FileSystem> sources = *m_pCollector->GetFileSystem();
  std::erase_if(sources, [](const FileSystem& source) { return source.IsRemote(); });
  BuildDetailRows<recordPD_FSL>(sources, *pEvent, LocalRow);
  TraceExit("RecordBuilder::BuildPD_FSL", 0);
  return nullptr;
}
