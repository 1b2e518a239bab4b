#pragma once

#include <sys/msg.h>

#include <cstdint>

#include "collect/ipc/IPCListSource.h"

/// One System V message queue as the source reads it.
struct x_msg {
  std::int32_t key = 0;
  std::uint32_t cuid = 0;
  std::uint32_t cgid = 0;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::int32_t msqId = 0;
  std::uint32_t mode = 0;    ///< 16 bits
  std::uint32_t cbytes = 0;  ///< bytes that stand in the queue
  std::uint32_t qnum = 0;    ///< messages that stand in the queue
  std::uint32_t qbytes = 0;  ///< bytes that it may hold
  std::uint32_t lspid = 0;
  std::uint32_t lrpid = 0;
  IPCTime changeTime;
  IPCTime recvTime;
  IPCTime sendTime;
};

/// One queue as builders see it.
class Msg : public x_msg {
 public:
  [[nodiscard]] static const char* name() { return "Message Queues"; }
};

extern const IPCSide<x_msg, ::msqid_ds> kMessageQueueSide;

/// Reads one row per queue from msgctl(2).
class MsgSourceUser : public IPCListSource<x_msg, Msg, ::msqid_ds, kMessageQueueSide> {};
