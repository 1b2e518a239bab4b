#include <string>

#include "collect/filesystem/QuotaSource.h"
#include "collect/process/NameCache.h"
#include "records/DetailRows.h"

namespace {

/// 0 without a limit.
float LimitPercent(std::uint32_t used, std::uint32_t limit) {
  return limit == 0 ? 0.0F : static_cast<float>(100.0 * used / limit);
}

/// The directory that the path's last part stands in.
std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  const std::size_t end = path.find_last_not_of('/', slash);
  return end == std::string::npos ? "/" : path.substr(0, end + 1);
}

recordPD_UFSQ QuotaRow(const Quota& source, std::int32_t now) {
  auto row = NewRow<recordPD_UFSQ>(now);
  row.fileSystem = DirectoryOf(source.GetPath());
  row.fileName = source.GetPath();
  row.userId = static_cast<std::int32_t>(source.uid);
  row.user = UserName(nullptr, static_cast<int>(source.uid));
  row.activeState = source.GetState();
  row.blockLimit = source.softKB;
  row.hardBlockLimit = source.hardKB;
  row.blocksInUse = source.usedKB;
  row.fileLimit = source.softFiles;
  row.hardFileLimit = source.hardFiles;
  row.filesInUse = source.usedFiles;
  row.blocksInUsePercent = LimitPercent(source.usedKB, source.softKB);
  row.hardBlocksInUsePercent = LimitPercent(source.usedKB, source.hardKB);
  row.filesInUsePercent = LimitPercent(source.usedFiles, source.softFiles);
  row.hardFilesInUsePercent = LimitPercent(source.usedFiles, source.hardFiles);
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_UFSQ(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_UFSQ", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<recordPD_UFSQ>(*m_pCollector->GetQuota(), *pEvent, QuotaRow);
  TraceExit("RecordBuilder::BuildPD_UFSQ", 0);
  return nullptr;
}
