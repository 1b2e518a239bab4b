#include <algorithm>

#include "local/metrics/node/NodeNames.h"

namespace {

constexpr double kSectorsOfByte = 1.0 / 512;

constexpr std::array kDiskLabels{NodeLabel{"device", "Device"}};

constexpr NodeEntry DiskCounter(const char* name, const char* help, const char* field,
                                double factor = 1) {
  return {name, help, MetricKind::kCounter, {field}, factor};
}

constexpr std::array kDiskEntries{
    DiskCounter("node_disk_reads_completed_total", "Reads that were completed", "Reads"),
    DiskCounter("node_disk_reads_merged_total", "Reads that became one with another",
                "Reads Merged"),
    DiskCounter("node_disk_read_bytes_total", "Bytes read", "Read Bytes"),
    DiskCounter("node_disk_read_time_seconds_total", "Time that the reads took, waiting included",
                "Read Seconds"),
    DiskCounter("node_disk_writes_completed_total", "Writes that were completed", "Writes"),
    DiskCounter("node_disk_writes_merged_total", "Writes that became one with another",
                "Writes Merged"),
    DiskCounter("node_disk_written_bytes_total", "Bytes written", "Write Bytes"),
    DiskCounter("node_disk_write_time_seconds_total", "Time that the writes took, waiting included",
                "Write Seconds"),
    NodeEntry{"node_disk_io_now",
              "Operations under way at this moment",
              MetricKind::kGauge,
              {"In Flight"}},
    DiskCounter("node_disk_io_time_seconds_total", "Time with at least one operation under way",
                "In Use Seconds"),
    DiskCounter("node_disk_io_time_weighted_seconds_total",
                "Time of all operations under way, each counted by itself", "Weighted Seconds"),
    DiskCounter("node_disk_discards_completed_total", "Discards that were completed", "Discards"),
    DiskCounter("node_disk_discards_merged_total", "Discards that became one with another",
                "Discards Merged"),
    DiskCounter("node_disk_discarded_sectors_total", "Sectors of 512 bytes that were discarded",
                "Discard Bytes", kSectorsOfByte),
    DiskCounter("node_disk_discard_time_seconds_total",
                "Time that the discards took, waiting included", "Discard Seconds"),
    DiskCounter("node_disk_flush_requests_total", "Flushes of the device's cache", "Flushes"),
    DiskCounter("node_disk_flush_requests_time_seconds_total", "Time that the flushes took",
                "Flush Seconds")};

constexpr std::array kMapperLabels{NodeLabel{"device", "Device"}, NodeLabel{"name", "Name"}};
constexpr std::array kMapperEntries{NodeEntry{"node_disk_device_mapper_info",
                                              "A device of the device mapper",
                                              MetricKind::kGauge,
                                              {},
                                              1,
                                              "",
                                              AlwaysOne}};

/// Whether the exporter has the device too, whose default leaves out these with a number.
bool IsCountedDisk(const NodeFields& row) {
  const std::string_view device = row.Text(0);
  return std::ranges::none_of(
      std::array<std::string_view, 3>{"ram", "loop", "fd"}, [device](std::string_view prefix) {
        return device.starts_with(prefix) && device.size() > prefix.size() &&
               device.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
      });
}

constexpr std::array kDiskGroups{
    NodeGroup{"DISK", kDiskLabels, kDiskEntries, {"Device"}, IsCountedDisk},
    NodeGroup{"DISK", kMapperLabels, kMapperEntries, {"Name"}, [](const NodeFields& row) {
                return !row.Text(0).empty();
              }}};

}  // namespace

std::span<const NodeGroup> NodeDiskTable() { return kDiskGroups; }
