#include <arpa/inet.h>

#include <vector>

#include "records/DetailRows.h"
#include "records/FileSystemSizes.h"

namespace {

/// Whether the host is named by a dotted address. Other names are not looked up: that may take as
/// long as the server that is gone.
bool IsAddress(const std::string& host) {
  ::in_addr address{};
  return ::inet_pton(AF_INET, host.c_str(), &address) == 1;
}

recordPD_FSR RemoteRow(const FileSystem& source, std::int32_t now) {
  auto row = NewRow<recordPD_FSR>(now);
  row.fileSystem = source.GetMountPoint();
  row.remoteFileSystem = source.GetDevice();
  row.host = source.GetHost();
  if (IsAddress(source.GetHost())) {
    row.ipAddress = source.GetHost();
  }
  row.fileSystemType = source.GetType();
  FillSizes(row, source, &recordPD_FSR::availableBlocks);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_FSR(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_FSR", AddressOf(pEvent), AddressOf(pRequest));
  std::vector<FileSystem> sources = *m_pCollector->GetFileSystem();
  std::erase_if(sources, [](const FileSystem& source) { return !source.IsRemote(); });
  BuildDetailRows<recordPD_FSR>(sources, *pEvent, RemoteRow);
  TraceExit("RecordBuilder::BuildPD_FSR", 0);
  return nullptr;
}
