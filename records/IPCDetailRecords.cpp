#include <cstddef>
#include <cstdint>
#include <string_view>

#include "collect/ipc/MsgSource.h"
#include "collect/ipc/SHMSource.h"
#include "collect/ipc/SemSource.h"
#include "collect/process/NameCache.h"
#include "records/DetailRows.h"

namespace {

constexpr std::string_view kSemaphoreMode = "--ra-ra-ra-";
constexpr std::string_view kReadWriteMode = "--rw-rw-rw-";

const char* OrUnavailable(const char* name) { return name == nullptr ? "Unavailable" : name; }
const char* UserText(std::uint32_t uid) {
  return OrUnavailable(KnownUserName(static_cast<int>(uid)));
}
const char* GroupText(std::uint32_t gid) {
  return OrUnavailable(KnownGroupName(static_cast<int>(gid)));
}

/// The template with a '-' for each of the nine permission bits that is not set.
Text<12> ModeText(std::string_view all, std::uint32_t mode) {
  std::string text(all);
  std::size_t place = text.size();
  for (std::uint32_t bit = 1; bit <= 0400; bit <<= 1U) {
    --place;
    if ((mode & bit) == 0) {
      text[place] = '-';
    }
  }
  Text<12> packed{};
  packed = text;
  return packed;
}

std::int32_t Seconds(const IPCTime& time) { return static_cast<std::int32_t>(time.seconds); }
std::uint32_t Unsigned(std::int32_t figure) { return static_cast<std::uint32_t>(figure); }

/// What rows of all three records have under one name; `modeOfAll` is the mode with all rights.
template <class Record, class Source>
Record NewObjectRow(const Source& source, std::int32_t id, std::string_view modeOfAll,
                    std::int32_t now) {
  auto row = NewRow<Record>(now);
  row.id = Unsigned(id);
  row.mode = ModeText(modeOfAll, source.mode);
  row.key = Unsigned(source.key);
  row.creatorLoginId = source.cuid;
  row.creatorGroupId = source.cgid;
  row.ownerLoginId = source.uid;
  row.ownerGroupId = source.gid;
  return row;
}

template <class Record, class Source>
void FillLoginNames(Record& row, const Source& source) {
  row.creatorLoginName = UserText(source.cuid);
  row.creatorGroupName = GroupText(source.cgid);
  row.ownerLoginName = UserText(source.uid);
  row.ownerGroupName = GroupText(source.gid);
}

recordPD_SEMD SemaphoreRow(const Sem& source, std::int32_t now) {
  auto row = NewObjectRow<recordPD_SEMD>(source, source.semId, kSemaphoreMode, now);
  row.semnum = source.semNum;
  row.creatorName = UserText(source.cuid);
  row.creatorGroup = GroupText(source.cgid);
  row.ownerName = UserText(source.uid);
  row.ownerGroup = GroupText(source.gid);
  row.changeTime = Seconds(source.changeTime);
  row.lastOpTime = Seconds(source.opTime);
  row.lastPid = Unsigned(source.pid);
  row.currentValue = Unsigned(source.value);
  row.processesWaitingOnSemaphore = Unsigned(source.nCount);
  row.processesWaitingOnZero = Unsigned(source.zCount);
  return row;
}

recordPD_SHMD SegmentRow(const SHM& source, std::int32_t now) {
  auto row = NewObjectRow<recordPD_SHMD>(source, source.shmId, kReadWriteMode, now);
  FillLoginNames(row, source);
  row.changedTime = Seconds(source.changeTime);
  row.detachTime = Seconds(source.detachTime);
  row.processesAttached = source.nAttach;
  row.creatingPid = source.creatorPid;
  row.lastUsedPid = source.lastPid;
  row.segmentSize = static_cast<double>(source.segmentSize);
  row.lastAttachedTime = Seconds(source.attachTime);
  return row;
}

recordPD_MSQD QueueRow(const Msg& source, std::int32_t now) {
  auto row = NewObjectRow<recordPD_MSQD>(source, source.msqId, kReadWriteMode, now);
  FillLoginNames(row, source);
  row.changeTime = Seconds(source.changeTime);
  row.lastReceiveTime = Seconds(source.recvTime);
  row.lastSendTime = Seconds(source.sendTime);
  row.bytesOutstanding = source.cbytes;
  row.messagesOutstanding = source.qnum;
  row.maxOustandingBytes = source.qbytes;
  row.lastSendingPid = source.lspid;
  row.lastReceivingPid = source.lrpid;
  return row;
}

}  // namespace

UtlError* RecordBuilder::BuildPD_SEMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_SEMD", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<recordPD_SEMD>(*m_pCollector->GetSem(), *pEvent, SemaphoreRow);
  TraceExit("RecordBuilder::BuildPD_SEMD", 0);
  return nullptr;
}

UtlError* RecordBuilder::BuildPD_SHMD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_SHMD", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<recordPD_SHMD>(*m_pCollector->GetSHM(), *pEvent, SegmentRow);
  TraceExit("RecordBuilder::BuildPD_SHMD", 0);
  return nullptr;
}

UtlError* RecordBuilder::BuildPD_MSQD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::BuildPD_MSQD", AddressOf(pEvent), AddressOf(pRequest));
  BuildDetailRows<recordPD_MSQD>(*m_pCollector->GetMsg(), *pEvent, QueueRow);
  TraceExit("RecordBuilder::BuildPD_MSQD", 0);
  return nullptr;
}
