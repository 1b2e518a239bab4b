#pragma once

#include <cstdint>
#include <vector>

#include "collect/Source.h"
#include "support/TextFile.h"

/// The host's packets by protocol as the source reads them; counters since boot.
struct x_protocol {
  std::uint32_t size = 0;  ///< always 64
  std::uint32_t totalIn = 0;
  std::uint32_t reserved1 = 0;
  std::uint32_t totalOut = 0;
  std::uint32_t reserved2 = 0;
  std::uint32_t icmpIn = 0;
  std::uint32_t reserved3 = 0;
  std::uint32_t icmpOut = 0;
  std::uint32_t tcpIn = 0;
  std::uint32_t tcpOut = 0;
  std::uint32_t udpIn = 0;
  std::uint32_t udpOut = 0;
  std::uint32_t ipIn = 0;
  std::uint32_t ipOut = 0;
  // The kernel does not count other protocols: 0.
  std::uint32_t otherIn = 0;
  std::uint32_t otherOut = 0;
};

/// The host's packets as builders see them.
class Protocol : public x_protocol {
 public:
  [[nodiscard]] static const char* name() { return "Protocol"; }
};

/// Reads the host's one row from /proc/net/snmp. Fails as a whole only if that cannot be opened; a
/// protocol that is missing or cannot be read counts 0.
class ProtocolSourceUser : public PtrSource<x_protocol, Protocol, std::vector<Protocol>> {
 public:
  ProtocolSourceUser();
  ~ProtocolSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  void read(x_protocol* record) override;

 private:
  inline static SourceStatistics s_statistics;

  TextFilePtr m_fp;
};
