#include <arpa/inet.h>

#include "records/FileSystemSizes.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"

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
  row.availableBlocks = FillSizes(row, source);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_FSR(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_FSR", AddressOf(pEvent), AddressOf(pRequest));
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  int count = 0;
  for (const FileSystem& source : *m_pCollector->GetFileSystem()) {
    if (source.IsRemote()) {
      const recordPD_FSR row = RemoteRow(source, now);
      DumpRecord(row, count++);
      pEvent->m_records.push_back(new cmbClassPD_FSR(&row));
    }
  }
  TraceCreated(__FILE__, __LINE__, RecordTraits<recordPD_FSR>::kName, count);
  TraceExit("RecordBuilder::BuildPD_FSR", 0);
  return nullptr;
}
