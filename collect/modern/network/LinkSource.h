#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/NotTold.h"

/// One network interface. Its counters have 64 bits and run since it came to be or, with some
/// drivers, since it was last reset; they are those of rtnl_link_stats64, whose names stand behind
/// them and are the names of `ip -s -s -j link` and of the files of /sys/class/net/NAME/statistics
/// too. What /proc/net/dev calls drop and frame are sums of several of them. kNotTold and an empty
/// text stand for what the kernel does not tell.
struct LinkFigures {
  std::string name;
  /// Dotted; the first of global scope, else the first. Only the own kernel is asked for it.
  std::string ipv4;
  /// As inet_ntop(3) writes it: one of global scope, else another; of these one that is neither
  /// temporary nor deprecated nor doubtful first. From /proc/net/if_inet6.
  std::string ipv6;
  /// Of two hexadecimal digits a byte, parted by colons; empty if all are 0.
  std::string hardwareAddress;
  std::string state;                   ///< "up", "down", "lowerlayerdown", "unknown" and so on
  std::string master;                  ///< the bond, bridge or team that it belongs to
  std::string duplex;                  ///< "full" or "half"; from /sys/class/net/NAME/duplex
  double speed = kNotTold;             ///< Mbit/s; from /sys/class/net/NAME/speed
  double mtu = kNotTold;               ///< bytes
  double carrierChanges = kNotTold;    ///< how often the line came or went
  double bytesIn = kNotTold;           ///< rx_bytes
  double bytesOut = kNotTold;          ///< tx_bytes
  double packetsIn = kNotTold;         ///< rx_packets
  double packetsOut = kNotTold;        ///< tx_packets
  double errorsIn = kNotTold;          ///< rx_errors: all bad packets
  double errorsOut = kNotTold;         ///< tx_errors
  double dropsIn = kNotTold;           ///< rx_dropped: by the host; not those of missedIn
  double dropsOut = kNotTold;          ///< tx_dropped
  double missedIn = kNotTold;          ///< rx_missed_errors: by the device, for want of buffers
  double overrunsIn = kNotTold;        ///< rx_over_errors; "overrun" of `ip -s -s link`
  double fifoErrorsIn = kNotTold;      ///< rx_fifo_errors; "fifo" of /proc/net/dev
  double fifoErrorsOut = kNotTold;     ///< tx_fifo_errors
  double lengthErrorsIn = kNotTold;    ///< rx_length_errors
  double frameErrorsIn = kNotTold;     ///< rx_frame_errors: alignment alone
  double crcErrorsIn = kNotTold;       ///< rx_crc_errors
  double carrierErrorsOut = kNotTold;  ///< tx_carrier_errors
  double collisions = kNotTold;        ///< collisions
  double multicastIn = kNotTold;       ///< multicast
};

/// Reads a row per interface in the order of the kernel's numbers: by netlink(7), with speed and
/// duplex from /sys/class/net. A captured host, and one whose kernel does not answer, has all from
/// /sys/class/net and no IPv4 addresses, and no more than 16,384 rows.
void ReadLinks(std::vector<LinkFigures>& links);

/// An address of a line of /proc/net/if_inet6.
struct Inet6Address {
  std::string_view interface;  ///< in the line
  std::string address;
  int rank = 0;  ///< lower ones stand for the interface before higher ones
};
/// False for a line that has no address.
[[nodiscard]] bool ParseInet6Line(std::string_view line, Inet6Address& address);

/// The text of a hardware address; empty without a byte that is not 0.
[[nodiscard]] std::string HardwareText(const unsigned char* bytes, std::size_t count);
