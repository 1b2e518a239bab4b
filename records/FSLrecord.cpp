#include "records/FileSystemSizes.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"

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
  row.availableSpaceBlocks = FillSizes(row, source);
  FillInodes(row, source);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_FSL(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_FSL", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  int count = 0;
  for (const FileSystem& source : *m_pCollector->GetFileSystem()) {
    if (!source.IsRemote()) {
      const recordPD_FSL row = LocalRow(source, now);
      DumpRecord(row, count++);
      pEvent->m_records.push_back(new cmbClassPD_FSL(&row));
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<recordPD_FSL>::kName, count);
  TraceExit("RecordBuilder::BuildPD_FSL", 0);
  return nullptr;
}
