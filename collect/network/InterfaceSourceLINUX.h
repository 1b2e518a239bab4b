#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "collect/Source.h"
#include "support/TextFile.h"

/// One network interface as the source reads it; counters since the interface came up.
struct x_interface {
  std::uint32_t size = 0;  ///< always 128
  std::array<char, 40> name{};
  std::int32_t mtu = 0;
  std::uint32_t ifFlags = 0;  ///< IFF_UP and kin
  std::int32_t metric = 0;
  std::uint32_t rxPackets = 0;
  std::uint32_t reserved1 = 0;
  std::uint32_t rxErrors = 0;
  std::uint32_t txPackets = 0;
  std::uint32_t reserved2 = 0;
  std::uint32_t txErrors = 0;
  std::uint32_t collisions = 0;
  std::uint32_t addressFamily = 0;  ///< 1 if the interface has an IPv4 address, else 0
  std::uint32_t address = 0;        ///< network order, as the next two
  std::uint32_t broadcast = 0;
  std::uint32_t netmask = 0;
  std::array<char, 12> type{};  ///< "Point-Point", "Loopback" or "Ethernet"
};

/// Counters of one interface since it came up, as wide as kernels have them today.
struct InterfaceCounters {
  std::uint64_t rxPackets = 0;
  std::uint64_t rxErrors = 0;
  std::uint64_t rxDropped = 0;
  std::uint64_t txPackets = 0;
  std::uint64_t txErrors = 0;
  std::uint64_t txDropped = 0;
  std::uint64_t collisions = 0;
};

/// What the flags tell of an interface's kind: "Point-Point", "Loopback" or "Ethernet".
[[nodiscard]] std::string_view InterfaceTypeText(std::uint32_t flags);

/// One network interface as builders see it.
class Interface : public x_interface {
 public:
  InterfaceCounters counters;  ///< 0 under the profile `classic`

  [[nodiscard]] static const char* name() { return "Interface"; }

  [[nodiscard]] const char* GetName() const { return x_interface::name.data(); }
};

/// Reads one row per network interface from /proc/net/dev and ioctl(2) on a socket. Fails as a
/// whole only if the file or the socket cannot be opened; a figure that cannot be had is 0. From
/// kernel 2.6 on the numbered tunnels sit0, sit1 and so on are left out.
class InterfaceSourceUser : public PtrSource<x_interface, Interface, std::vector<Interface>> {
 public:
  InterfaceSourceUser();
  ~InterfaceSourceUser() override;

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }
  /// Fills the next interface of the file, which keeps the place between calls.
  void read(x_interface* record) override;

  /// Fills a zeroed record from a line of /proc/net/dev, "NAME:NUMBERS", and from the six ioctl
  /// calls on that name. What fails is traced and leaves its field 0. Always 0.
  [[nodiscard]] int Get_IFace_Info(const char* line, x_interface* work) const;

 private:
  void QueryInterface(x_interface& work) const;

  inline static SourceStatistics s_statistics;

  TextFilePtr m_fp;
  int m_sock = -1;
};
