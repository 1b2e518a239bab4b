#include <algorithm>

#include "local/metrics/node/NodeNames.h"

namespace {

constexpr double kBytesOfSizeUnit = 1048576;

constexpr std::array kLocalLabels{NodeLabel{"device", "Device Name"},
                                  NodeLabel{"fstype", "File System Type"},
                                  NodeLabel{"mountpoint", "File System"}};
constexpr std::array kRemoteLabels{NodeLabel{"device", "Remote File System"},
                                   NodeLabel{"fstype", "File System Type"},
                                   NodeLabel{"mountpoint", "File System"}};

constexpr NodeEntry FileSystemGauge(const char* name, const char* help, const char* field,
                                    double factor = kBytesOfSizeUnit) {
  return {name, help, MetricKind::kGauge, {field}, factor};
}

constexpr NodeEntry kSizeEntry = FileSystemGauge(
    "node_filesystem_size_bytes", "How much the file system holds", "Total Size Mbytes");
constexpr NodeEntry kFreeEntry =
    FileSystemGauge("node_filesystem_free_bytes",
                    "What is free, that for the superuser alone included", "Mbytes Free");
constexpr NodeEntry kAvailableEntry = FileSystemGauge(
    "node_filesystem_avail_bytes", "What ordinary users may still fill", "Available Space Mbytes");

constexpr std::array kLocalEntries{
    kSizeEntry, kFreeEntry, kAvailableEntry,
    FileSystemGauge("node_filesystem_files", "Files that the file system can hold", "Total Inodes",
                    1),
    FileSystemGauge("node_filesystem_files_free", "Files that can still be made",
                    "Total Inodes Free", 1)};
constexpr std::array kRemoteEntries{kSizeEntry, kFreeEntry, kAvailableEntry};

/// Types and folders that the exporter's defaults leave out, as far as a record has them; sorted.
constexpr std::array<std::string_view, 7> kOtherTypes{
    "devtmpfs", "hugetlbfs", "iso9660", "overlay", "procfs", "rpc_pipefs", "squashfs"};
static_assert(std::ranges::is_sorted(kOtherTypes));
constexpr std::array<std::string_view, 3> kOtherFolders{"/dev", "/proc", "/sys"};
/// What lies within these is left out, they themselves are not.
constexpr std::array<std::string_view, 3> kOtherParents{"/run/credentials/", "/var/lib/docker/",
                                                        "/var/lib/containers/storage/"};

bool IsGivenMount(const NodeFields& row) {
  const std::string_view path = row.Text(1);
  const auto isWithin = [path](std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
  };
  const auto isBelow = [path](std::string_view parent) {
    return path.starts_with(parent) && path.size() > parent.size();
  };
  return !std::ranges::binary_search(kOtherTypes, row.Text(0)) &&
         std::ranges::none_of(kOtherFolders, isWithin) &&
         std::ranges::none_of(kOtherParents, isBelow);
}

constexpr std::array kFileSystemGroups{
    NodeGroup{
        "FSL", kLocalLabels, kLocalEntries, {"File System Type", "File System"}, IsGivenMount},
    NodeGroup{
        "FSR", kRemoteLabels, kRemoteEntries, {"File System Type", "File System"}, IsGivenMount}};

}  // namespace

std::span<const NodeGroup> NodeFileSystemTable() { return kFileSystemGroups; }
