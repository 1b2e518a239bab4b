#pragma once

#include <linux/inet_diag.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstdint>
#include <span>

#include "tests/support/Testing.h"

// What the kernel sends by netlink, made by hand, and a socket that stands for its own.

/// Bytes of an answer, put together by hand.
class Answer {
 public:
  Answer& Attribute(std::uint16_t type, const std::string& value) {
    const rtattr header{static_cast<std::uint16_t>(sizeof(rtattr) + value.size()), type};
    return Raw(header).Text(value);
  }
  Answer& Word(std::uint16_t type, std::uint32_t value) {
    return Attribute(type, std::string(reinterpret_cast<const char*>(&value), sizeof value));
  }
  Answer& Link(std::int32_t index, std::uint32_t flags) {
    return Begin(RTM_NEWLINK, 1).Raw(ifinfomsg{AF_UNSPEC, 0, 1, index, flags, 0});
  }
  Answer& Address(std::uint32_t index, std::uint8_t scope, std::uint8_t prefix,
                  std::uint8_t flags = 0, std::uint8_t family = AF_INET) {
    return Begin(RTM_NEWADDR, 2).Raw(ifaddrmsg{family, prefix, flags, scope, index});
  }
  Answer& Socket(std::uint8_t state, std::uint8_t timer = 0, std::uint16_t type = 20,
                 std::uint8_t family = AF_INET) {
    inet_diag_msg socket{};
    socket.idiag_family = family;
    socket.idiag_state = state;
    socket.idiag_timer = timer;
    return Begin(type, 1).Raw(socket);
  }
  Answer& End(std::uint16_t type, std::uint32_t sequence, std::int32_t result) {
    return Begin(type, sequence).Raw(result).Begin(0, 0);
  }
  Answer& Begin(std::uint16_t type, std::uint32_t sequence) {
    Close();
    m_begin = m_bytes.size();
    return Raw(nlmsghdr{0, type, NLM_F_MULTI, sequence, 0});
  }
  /// All messages; the last one's length is put in.
  std::string Bytes() {
    Close();
    return m_bytes;
  }

 private:
  template <class T>
  Answer& Raw(const T& value) {
    return Text(std::string(reinterpret_cast<const char*>(&value), sizeof value));
  }
  Answer& Text(const std::string& text) {
    m_bytes += text;
    m_bytes.resize((m_bytes.size() + 3) / 4 * 4);
    return *this;
  }
  void Close() {
    if (!m_bytes.empty()) {
      const auto length = static_cast<std::uint32_t>(m_bytes.size() - m_begin);
      std::memcpy(m_bytes.data() + m_begin, &length, sizeof length);
    }
  }

  std::string m_bytes;
  std::size_t m_begin = 0;
};

inline std::span<const unsigned char> Span(const std::string& bytes) {
  return {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()};
}

/// The messages as answers to another question, and with further flags.
inline std::string Renumbered(std::string bytes, std::uint32_t sequence, std::uint16_t flags = 0) {
  for (std::size_t at = 0; at < bytes.size();) {
    nlmsghdr header{};
    std::memcpy(&header, bytes.data() + at, sizeof header);
    header.nlmsg_seq = sequence;
    header.nlmsg_flags |= flags;
    std::memcpy(bytes.data() + at, &header, sizeof header);
    at += (header.nlmsg_len + 3) / 4 * 4;
  }
  return bytes;
}

/// The socket that stands for the kernel's, and what is written into it before it is asked.
inline int g_kernelEnd = -1;
inline std::vector<std::string> g_datagrams;

inline int KernelSocket(int domain, int, int) {
  EXPECT_EQ(domain, AF_NETLINK);
  std::array<int, 2> ends{};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  g_kernelEnd = ends[1];
  for (const std::string& datagram : g_datagrams) {
    EXPECT_EQ(::send(ends[1], datagram.data(), datagram.size(), 0),
              static_cast<ssize_t>(datagram.size()));
  }
  return ends[0];
}

inline void CloseKernelEnd() { ::close(std::exchange(g_kernelEnd, -1)); }
