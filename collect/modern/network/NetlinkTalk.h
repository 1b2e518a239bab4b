#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <vector>

#include "support/Descriptor.h"
#include "support/HostReads.h"

/// What the kernel sent, or a part of it.
using NetlinkBytes = std::span<const unsigned char>;

/// Copies a value from the front; false if there are fewer bytes than it has.
template <class T>
bool LoadNetlink(NetlinkBytes bytes, T& value) {
  if (bytes.size() < sizeof(T)) {
    return false;
  }
  std::memcpy(&value, bytes.data(), sizeof(T));
  return true;
}

/// The bytes behind the first `size` and what fills these up; empty if there are none.
[[nodiscard]] inline NetlinkBytes NetlinkBehind(NetlinkBytes bytes, std::size_t size) {
  return bytes.subspan(std::min(bytes.size(), (size + 3) / 4 * 4));
}

/// Shows each attribute's type and value, up to the first whose length is a lie.
template <class Visit>
void VisitNetlinkAttributes(NetlinkBytes bytes, const Visit& visit) {
  ::rtattr header{};
  while (LoadNetlink(bytes, header) && header.rta_len >= sizeof(header) &&
         header.rta_len <= bytes.size()) {
    visit(header.rta_type & NLA_TYPE_MASK,
          bytes.subspan(sizeof(header), header.rta_len - sizeof(header)));
    bytes = NetlinkBehind(bytes, header.rta_len);
  }
}

/// How an answer went.
struct NetlinkOutcome {
  int error = 0;  ///< what the kernel or the bytes ended an answer with; 0 for none
  /// What is told of came or went while the kernel answered, so that others may be missing.
  bool isInterrupted = false;
};

/// Takes the payload of one message of an answer.
using TakeNetlinkMessage = std::function<void(std::uint16_t type, NetlinkBytes payload)>;

/// Hands on the messages of one datagram but those of other sequence numbers. True if more of the
/// answer is to come; it has come to its end otherwise, with `error` set if that was no good one.
[[nodiscard]] bool ParseNetlinkDatagram(NetlinkBytes datagram, std::uint32_t sequence,
                                        NetlinkOutcome& outcome, const TakeNetlinkMessage& take);

/// The header of a question whose answer is a whole table; `size` is the question's.
[[nodiscard]] ::nlmsghdr NetlinkQuestion(std::size_t size, std::uint16_t type);

/// One conversation with the kernel. It waits for a second at a time and for two in all, and takes
/// `mostBytes` at most. After a failure, which is the outcome's error, nothing is asked any more.
class NetlinkTalk {
 public:
  /// Of a protocol like NETLINK_ROUTE; `outcome` outlives the talk.
  NetlinkTalk(int protocol, std::size_t mostBytes, NetlinkOutcome& outcome);

  /// Has a question answered without interruption, if that can be had within three tries; `begin`
  /// is called before each, to forget what `take` was given. A question begins with its `header`.
  template <class Question>
  void AskWhole(Question question, const std::function<void()>& begin,
                const TakeNetlinkMessage& take) {
    for (int tries = 0; tries < kMostTries && m_outcome.error == 0; ++tries) {
      begin();
      m_outcome.isInterrupted = false;
      question.header.nlmsg_seq = ++m_sequence;
      Ask(&question, sizeof(question), take);
      if (!m_outcome.isInterrupted) {
        return;
      }
    }
  }

 private:
  static constexpr int kMostTries = 3;

  /// Has a question answered: by the kernel, or by what it said in a capture.
  void Ask(const void* question, std::size_t size, const TakeNetlinkMessage& take);
  /// Sends a question to the kernel and takes all of its answer.
  void AskKernel(const void* question, std::size_t size, const TakeNetlinkMessage& take,
                 HeardTalk* heard);
  /// False at the answer's end. What came from the kernel is added to `heard`, if not null.
  bool TakeDatagram(const TakeNetlinkMessage& take, HeardTalk* heard);
  /// Takes an answer that was heard before.
  void TakeHeard(const HeardTalk& heard, const TakeNetlinkMessage& take);
  [[nodiscard]] bool IsInTime() const;

  NetlinkOutcome& m_outcome;
  int m_protocol;
  Descriptor m_socket;
  std::vector<unsigned char> m_buffer;
  std::size_t m_mostBytes;
  std::size_t m_taken = 0;
  std::uint32_t m_sequence = 0;
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};
