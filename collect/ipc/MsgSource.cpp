#include "collect/ipc/MsgSource.h"

namespace {

constexpr IPCKind<::msqid_ds> kQueues{
    [] {
      // MSG_INFO answers with a structure of its own, which is the smaller one.
      static_assert(sizeof(::msginfo) <= sizeof(::msqid_ds));
      ::msqid_ds info{};
      return Os().msgctl(0, MSG_INFO, &info);
    },
    [](int slot, ::msqid_ds& description) { return Os().msgctl(slot, MSG_STAT, &description); },
    "System call msgctl() failed.Error incalculating the number of Message Queues configured",
    "No Message Queues are currently configured"};

void FillQueue(x_msg& record, const IPCObject<::msqid_ds>& queue, std::uint64_t /*number*/) {
  const ::msqid_ds& description = queue.description;
  FillPermissions(record, description.msg_perm);
  record.msqId = queue.id;
  record.cbytes = static_cast<std::uint32_t>(description.__msg_cbytes);
  record.qnum = static_cast<std::uint32_t>(description.msg_qnum);
  record.qbytes = static_cast<std::uint32_t>(description.msg_qbytes);
  record.lspid = static_cast<std::uint32_t>(description.msg_lspid);
  record.lrpid = static_cast<std::uint32_t>(description.msg_lrpid);
  record.changeTime.seconds = description.msg_ctime;
  record.recvTime.seconds = description.msg_rtime;
  record.sendTime.seconds = description.msg_stime;
}

}  // namespace

constexpr IPCSide<x_msg, ::msqid_ds> kMessageQueueSide{
    .kind = kQueues,
    .rows = [](const ::msqid_ds& /*description*/) -> std::uint64_t { return 1; },
    .fill = FillQueue,
    .constructor = "MsgSourceUser::MsgSourceUser",
    .read = "MsgSourceUser::read",
    .initializeFailed = "An error occured in a function (MsgSourceUser::Initialize). (rc=%1)"};
