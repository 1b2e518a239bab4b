#include "local/metrics/node/NodeNames.h"

namespace {

constexpr double kBytesOfSpeedUnit = 1e6 / 8;

constexpr std::array kDeviceLabels{NodeLabel{"device", "Interface"}};

constexpr NodeEntry DeviceCounter(const char* name, const char* help,
                                  std::array<const char*, 4> fields) {
  return {name, help, MetricKind::kCounter, fields};
}

/// 1 if the first field, a text, says so.
std::optional<double> IsUp(const NodeFields& row) { return row.Text(0) == "up" ? 1 : 0; }

// The sums are those of the kernel's table of interfaces, /proc/net/dev.
constexpr std::array kDeviceEntries{
    DeviceCounter("node_network_receive_bytes_total", "Bytes received", {"Bytes In"}),
    DeviceCounter("node_network_receive_packets_total", "Packets received", {"Packets In"}),
    DeviceCounter("node_network_receive_errs_total", "Packets received that were bad",
                  {"Errors In"}),
    DeviceCounter("node_network_receive_drop_total",
                  "Packets received that the host or the device dropped",
                  {"Drops In", "Missed In"}),
    DeviceCounter("node_network_receive_fifo_total",
                  "Packets that the device's queue had no room for", {"FIFO Errors In"}),
    DeviceCounter(
        "node_network_receive_frame_total",
        "Packets received that were not aligned, of a wrong length or checksum, or too many",
        {"Frame Errors In", "Length Errors In", "Overruns In", "CRC Errors In"}),
    DeviceCounter("node_network_receive_multicast_total", "Packets received for a group of hosts",
                  {"Multicast In"}),
    DeviceCounter("node_network_transmit_bytes_total", "Bytes sent", {"Bytes Out"}),
    DeviceCounter("node_network_transmit_packets_total", "Packets sent", {"Packets Out"}),
    DeviceCounter("node_network_transmit_errs_total", "Packets that could not be sent",
                  {"Errors Out"}),
    DeviceCounter("node_network_transmit_drop_total", "Packets to be sent that the host dropped",
                  {"Drops Out"}),
    DeviceCounter("node_network_transmit_fifo_total",
                  "Packets to be sent that the device's queue had no room for", {"Overruns Out"}),
    DeviceCounter("node_network_transmit_colls_total", "Packets that met another on the wire",
                  {"Collisions"}),
    DeviceCounter("node_network_carrier_changes_total", "How often the link came or went",
                  {"Carrier Changes"}),
    NodeEntry{"node_network_mtu_bytes",
              "The greatest packet",
              MetricKind::kGauge,
              {"Max Transmission Unit"}},
    NodeEntry{"node_network_speed_bytes",
              "What the link carries a second",
              MetricKind::kGauge,
              {"Speed Mbits"},
              kBytesOfSpeedUnit},
    NodeEntry{"node_network_up",
              "1 if the kernel says that the link is up, else 0",
              MetricKind::kGauge,
              {"State"},
              1,
              "",
              IsUp}};

constexpr std::array kLinkLabels{NodeLabel{"address", "Hardware Address"},
                                 NodeLabel{"device", "Interface"}, NodeLabel{"duplex", "Duplex"},
                                 NodeLabel{"operstate", "State"}};
constexpr std::array kLinkEntries{NodeEntry{"node_network_info",
                                            "The link of a network interface",
                                            MetricKind::kGauge,
                                            {},
                                            1,
                                            "",
                                            AlwaysOne}};

constexpr std::array kNetworkGroups{NodeGroup{"NETD", kDeviceLabels, kDeviceEntries},
                                    NodeGroup{"NETD", kLinkLabels, kLinkEntries}};

}  // namespace

std::span<const NodeGroup> NodeNetworkTable() { return kNetworkGroups; }
